#include "mirt/sys/thread.h"

#include <pthread.h>

namespace mirt {

std::uint32_t* thread_startup_error = nullptr;

std::uint64_t get_current_thread_id() {
  return (std::uint64_t)::pthread_self();  // a number on Linux, a pointer on macOS
}

}  // namespace mirt
