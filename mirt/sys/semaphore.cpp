#include "mirt/sys/semaphore.h"

#include <algorithm>
#include <cerrno>
#include <limits>

#include "mirt/diag/exception.h"
#include "mirt/sys/clock.h"
#include "mirt/sys/lock.h"

namespace mirt {

semaphore::semaphore(unsigned int, unsigned int initial) : count_(initial) {
  if (::pthread_mutex_init(&mutex_, nullptr) != 0) throw exception::function("semaphore");
  if (::pthread_cond_init(&cond_, nullptr) != 0) {
    ::pthread_mutex_destroy(&mutex_);
    throw exception::function("semaphore");
  }
}

semaphore::~semaphore() {
  ::pthread_cond_destroy(&cond_);
  ::pthread_mutex_destroy(&mutex_);
}

void semaphore::wait() {
  slock guard(mutex_);
  while (count_ <= 0) {
    if (::pthread_cond_wait(&cond_, &mutex_) != 0) throw exception::function("wait");
  }
  --count_;
}

void semaphore::post() {
  slock guard(mutex_);
  ++count_;
  if (::pthread_cond_signal(&cond_) != 0) throw exception::function("post");
}

bool semaphore::wait_ms(long long ms) {
  const long long start = relative_time();
  // Bounded, so that a clock that a host sets back cannot make the difference overflow.
  const long long bounded = std::clamp(ms, 0LL, std::numeric_limits<long long>::max() / 2);
  slock guard(mutex_);
  while (count_ <= 0) {
    const long long remaining = bounded - (relative_time() - start);
    if (remaining < 1 || bounded == 0) return false;
    timespec deadline;
    clock_realtime(deadline);
    add_ms(deadline, remaining);
    // A time-out by the wall clock is only a reason to look at the relative clock again.
    const int result = ::pthread_cond_timedwait(&cond_, &mutex_, &deadline);
    if (result != 0 && result != ETIMEDOUT) throw exception::function("cond_");
  }
  --count_;
  return true;
}

bool semaphore::wait(long seconds) {
  constexpr long longest = std::numeric_limits<long>::max() / 1000;
  return wait_ms(std::clamp(seconds, -longest, longest) * 1000LL);
}

}  // namespace mirt
