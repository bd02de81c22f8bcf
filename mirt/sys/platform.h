// What the runtime wants from the system beyond POSIX. A new system brings one file that supplies
// these, platform_NAME.cpp, and the build picks it.
//
// Ownership: results are plain values.
// Threads: callable from any thread.
#pragma once

#ifdef __APPLE__
#include <libkern/OSAtomic.h>
#endif
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

/// Adds to a number that threads share, atomically and as a full barrier; the new value.
inline std::int32_t add_with_barrier(std::int32_t* number, std::int32_t amount) {
#ifdef __APPLE__
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
  // Old, and kept: hosts share chunks with us and count by the same call.
  return ::OSAtomicAdd32Barrier(amount, number);
#pragma GCC diagnostic pop
#else
  return __atomic_add_fetch(number, amount, __ATOMIC_SEQ_CST);
#endif
}

}  // namespace mirt::platform
