# find_package(mirt): the targets mirt::mirt (the runtime) and mirt::flag (product flags).
include(CMakeFindDependencyMacro)
find_dependency(Threads)
include("${CMAKE_CURRENT_LIST_DIR}/mirtTargets.cmake")
