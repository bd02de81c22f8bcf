// The platform room on Linux.
#include <unistd.h>

#include "mirt/sys/platform.h"

namespace mirt::platform {

bool executable_path(std::string& out) {
  char buffer[16384];
  const ssize_t length = ::readlink("/proc/self/exe", buffer, sizeof buffer);
  if (length < 0) return false;
  out.assign(buffer, static_cast<std::size_t>(length));
  return true;
}

bool monotonic_time(timespec& out) {
  return ::clock_gettime(CLOCK_MONOTONIC, &out) == 0;
}

std::uint64_t thread_number() {
  return static_cast<std::uint64_t>(::gettid());
}

}  // namespace mirt::platform
