# What `cmake --install` puts where: the tool, its manual and its authorisation policy, the libraries
# with their headers, and how CMake and pkg-config find them.
include(CMakePackageConfigHelpers)

set(MIRT_INCLUDEDIR ${CMAKE_INSTALL_INCLUDEDIR}/mirt)
set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/mirt)
if(APPLE)
  set(MIRT_FLAG_SYSTEM_LIBS "-framework Security")
endif()

install(TARGETS store_product_flags DESTINATION ${CMAKE_INSTALL_SBINDIR})
install(FILES docs/store_product_flags.8 DESTINATION ${CMAKE_INSTALL_MANDIR}/man8)
if(NOT APPLE)
  # polkit knows the tool by the path at which it is installed.
  set(MIRT_POLKIT_TOOL ${CMAKE_INSTALL_FULL_SBINDIR}/store_product_flags CACHE STRING
      "The tool's path in the desktop's authorisation policy")
  set(policy org.quorvex.store-product-flags.policy)
  configure_file(packaging/${policy}.in ${policy} @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${policy}
          DESTINATION ${CMAKE_INSTALL_DATADIR}/polkit-1/actions)
endif()

install(TARGETS mirt mirt_flag EXPORT mirtTargets)
install(DIRECTORY flag mirt netbuf text xstd DESTINATION ${MIRT_INCLUDEDIR}
        FILES_MATCHING PATTERN "*.h"
        PATTERN authorization*.h EXCLUDE
        PATTERN immortal.h EXCLUDE
        PATTERN log_settings.h EXCLUDE
        PATTERN log_text.h EXCLUDE
        PATTERN log_writer.h EXCLUDE
        PATTERN view_queue.h EXCLUDE)
install(EXPORT mirtTargets NAMESPACE mirt:: DESTINATION ${package_dir})
write_basic_package_version_file(mirtConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES cmake/mirtConfig.cmake ${PROJECT_BINARY_DIR}/mirtConfigVersion.cmake
        DESTINATION ${package_dir})
file(RELATIVE_PATH MIRT_PC_PREFIX /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
foreach(name mirt mirt-flag)
  configure_file(cmake/${name}.pc.in ${name}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${name}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endforeach()
