// Detached worker threads: a subclass says what to do, `detach` starts it.
//
// Ownership: the creator's, until an object made with `auto_delete` is detached; that one belongs
// to its own thread. The destructor waits until `run` has returned; but by then the parts of a
// subclass are gone, and a `run` that has only just been started might be that of a half-destroyed
// object. A subclass that is not auto-deleting therefore waits for the end of `run`, by an event of
// its own, before its destructor starts.
// Threads: `detach` may be called from any thread, also before `init_thread`.
#pragma once

#include <pthread.h>

#include <cstdint>
#include <string>

#include "mirt/sys/lock.h"
#include "mirt/sys/semaphore.h"

namespace mirt {

class thread {
 public:
  /// Accepted and not used.
  enum priority : int { normal = 0 };

  /// With a name the thread is called "name:number"; without one it has none.
  thread(bool auto_delete, std::string name, int number);
  virtual ~thread();
  thread(const thread&) = delete;
  thread& operator=(const thread&) = delete;

  /// The thread's work, on the thread itself, with no lock of the runtime held. It must not throw.
  virtual void run() = 0;

  /// Starts the thread, once. Throws ":Error in 'detach'" if it was started before, or cannot be
  /// started: that is logged under "thread startup" and counted in `thread_startup_error`.
  void detach(priority);

  /// The start routine that `detach` hands to the system, with the object as its argument.
  static void* thread_starter(void* self);

  const std::string& name() const { return name_; }

 private:
  const std::string name_;
  semaphore done_;  // has its one unit whenever `run` is not on its way
  const bool auto_delete_;
  bool started_ = false;  // guarded by m_threads_mtx
  pthread_t tid_ = {};
};

/// Guards the counters below and the hand-over from `detach` to the new thread. Null until
/// `init_thread` or the first thread.
extern rec_mutex* m_threads_mtx;

/// Threads of the runtime that are alive, and the most there ever were. Both are -666 until
/// `init_thread`, deliberately: a start before start-up shows as an absurd number.
extern std::int32_t g_thread_count;
extern std::int32_t g_thread_peak;

/// The number of failed thread starts. A host may share a counter of its own through its table;
/// otherwise `init_thread` makes one.
extern std::uint32_t* thread_startup_error;

/// Hooks of a host, called when a thread of the runtime ends, on that thread: the first with
/// `m_threads_mtx` held, so it must not log, start or wait for threads, the second without. Null
/// means none; to be set before the first thread starts.
extern void (*_unprevent_timeout)();
extern void (*_prevent_cb)();

/// The name under which a new peak of threads is logged; null, as it is at first, means not at all.
/// To be set before the first thread starts.
extern const char* g_thread_peak_category;

/// Prepares threads: detached, with a stack of at most 2 MiB. Throws ":Error in 'init_thread'".
void init_thread();

/// To be called on a thread that the runtime did not create; `seed` seeds the standard generators.
void foreign_thread(bool seed);

/// The calling thread's `pthread_self()` as a number.
std::uint64_t get_current_thread_id();

}  // namespace mirt
