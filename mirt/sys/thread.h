// Threads of the runtime.
//
// Threads: callable from any thread.
#pragma once

#include <cstdint>

namespace mirt {

/// The number of failed thread starts. A host may share a counter of its own through its table;
/// null until there is one.
extern std::uint32_t* thread_startup_error;

/// The calling thread's `pthread_self()` as a number.
std::uint64_t get_current_thread_id();

}  // namespace mirt
