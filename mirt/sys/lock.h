// Mutexes with their guards, and the locks that the whole process shares.
//
// Ownership: a guard borrows its mutex, which must outlive it.
// Threads: every operation may be called from any thread, the initialisers from start-up alone.
// Errors: a failed pthread call throws mirt::exception ":Error in '...'"; destructors never throw.
#pragma once

#include <pthread.h>

#include <cstdint>

namespace mirt {

/// A mutex that the thread that holds it may lock again. Usable before `init_mirtlock`.
class rec_mutex {
 public:
  rec_mutex();  ///< throws ":Error in 'rec_mutex'"
  ~rec_mutex();
  rec_mutex(const rec_mutex&) = delete;
  rec_mutex& operator=(const rec_mutex&) = delete;

  /// Throws ":Error in 'lock'".
  void lock() {
    if (::pthread_mutex_lock(&mutex_) != 0) fail("lock");
  }

  /// Throws ":Error in 'unlock'".
  void unlock() {
    if (::pthread_mutex_unlock(&mutex_) != 0) fail("unlock");
  }

 private:
  [[noreturn]] static void fail(const char* operation);

  pthread_mutex_t mutex_;
};

/// Holds a `rec_mutex` for a scope. A null pointer is held by doing nothing.
class rec_lock {
 public:
  explicit rec_lock(rec_mutex* mutex) : mutex_(mutex) {
    if (mutex_ != nullptr) mutex_->lock();
  }
  explicit rec_lock(rec_mutex& mutex) : mutex_(&mutex) { mutex_->lock(); }
  ~rec_lock() {
    try {
      if (mutex_ != nullptr) mutex_->unlock();
    } catch (...) {
      // A guard leaves its scope quietly, also while another exception is on its way.
    }
  }
  rec_lock(const rec_lock&) = delete;
  rec_lock& operator=(const rec_lock&) = delete;

 private:
  rec_mutex* mutex_;
};

/// The mutex behind the default global lock; null while there is none.
extern rec_mutex* g_global_mutex;

/// The global lock. Null until start-up; a host sets both through its table before start-up's
/// `init_mirtlock`, which then leaves them alone. They run on any thread and nest.
extern void (*mirt_lock)();
extern void (*mirt_unlock)();

/// Prepares recursive mutexes and, unless a host installed one, the default global lock. Ends the
/// process where recursive mutexes cannot be had: nothing can be reported before locking works.
void init_mirtlock();

/// The task lock, created by the first call, which must come from start-up: it is not guarded.
rec_mutex* task_lock();

/// Start-up's step for reader-writer locks, which need no preparation.
void rwlock_init();

/// Objects alive of each kind, for hosts that count them; the runtime leaves them at 0.
extern std::int32_t g_fut_queue_counter;
extern std::int32_t g_ptask_counter;
extern std::int32_t g_pnetstream_counter;
extern std::int32_t g_pnetmtstream_counter;
extern std::int32_t g_psemaphore_counter;
extern std::int32_t g_pevent_counter;

}  // namespace mirt

/// Holds a plain pthread mutex for a scope.
class slock {
 public:
  explicit slock(pthread_mutex_t& mutex);  ///< throws ":Error in 'slock'"
  ~slock();
  slock(const slock&) = delete;
  slock& operator=(const slock&) = delete;

 private:
  pthread_mutex_t* mutex_;
};
