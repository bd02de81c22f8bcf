// What the runtime wants from the system beyond POSIX. A new system brings one file that supplies
// these, platform_NAME.cpp, and the build picks it.
//
// Ownership: results are plain values.
// Threads: callable from any thread.
#pragma once

#include <time.h>

#include <cstdint>
#include <string>

namespace mirt::platform {

/// The path that the running executable was found under, not necessarily resolved; false if the
/// system does not tell.
bool executable_path(std::string& out);

/// A clock that never goes back, from any starting point; false if the system has none.
bool monotonic_time(timespec& out);

/// The number by which the system's tools know the calling thread.
std::uint64_t thread_number();

}  // namespace mirt::platform
