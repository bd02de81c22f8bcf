// The platform room on macOS.
#include <mach-o/dyld.h>
#include <pthread.h>

#include <cstdint>

#include "mirt/sys/platform.h"

namespace mirt::platform {

bool executable_path(std::string& out) {
  char buffer[16384];
  std::uint32_t size = 0;
  ::_NSGetExecutablePath(buffer, &size);  // fails, and tells the size that is needed
  if (size > sizeof buffer || ::_NSGetExecutablePath(buffer, &size) != 0) return false;
  out.assign(buffer, size - 1);
  return true;
}

bool monotonic_time(timespec&) {
  return false;  // the relative clock counts ticks here
}

std::uint64_t thread_number() {
  return ::pthread_mach_thread_np(::pthread_self());
}

}  // namespace mirt::platform
