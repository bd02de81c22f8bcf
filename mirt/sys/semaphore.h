// A counting semaphore with timed waits.
//
// Ownership: a waiter only borrows the semaphore; it must outlive the last wait.
// Threads: every operation may be called from any thread at any time.
// Time: a timed wait is bounded by the relative clock and does not start over after a wake-up.
#pragma once

#include <pthread.h>

#include <cstdint>

namespace mirt {

class semaphore {
 public:
  /// Starts with `initial` units. The first argument caps nothing: it is accepted and ignored.
  /// Throws ":Error in 'semaphore'".
  semaphore(unsigned int, unsigned int initial);
  virtual ~semaphore();
  semaphore(const semaphore&) = delete;
  semaphore& operator=(const semaphore&) = delete;

  /// Takes one unit, however long that takes. Throws ":Error in 'wait'".
  virtual void wait();

  /// Adds one unit, without any bound, and wakes one waiter. Throws ":Error in 'post'".
  virtual void post();

  /// Takes one unit within `ms` milliseconds; false on time-out. Zero or less takes a unit that is
  /// there and never blocks. Throws ":Error in 'cond_'".
  virtual bool wait_ms(long long ms);

  /// `wait_ms` in seconds.
  virtual bool wait(long seconds);

 private:
  pthread_mutex_t mutex_;
  pthread_cond_t cond_;
  std::int64_t count_;  // guarded by mutex_
};

}  // namespace mirt
