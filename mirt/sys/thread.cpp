#include "mirt/sys/thread.h"

#include <cstdlib>
#include <ctime>

#include "mirt/diag/errlog.h"
#include "mirt/diag/exception.h"
#include "mirt/diag/fmt_dbg.h"
#include "mirt/sys/immortal.h"
#include "mirt/sys/random.h"

namespace mirt {
namespace {

constexpr std::size_t stack_ceiling = 0x200000;

pthread_attr_t g_attributes;  // guarded by m_threads_mtx
bool g_attributes_ready = false;

/// The mutex is made by whoever starts a thread first: a failed start-up logs, and the log has a
/// thread, before `init_thread` had its turn.
rec_mutex& threads_mutex() {
  static rec_mutex* const made = m_threads_mtx = immortal<rec_mutex>();
  return *made;
}

/// Zero, or the number of the error. Requires: m_threads_mtx is held.
int prepare_attributes() {
  if (g_attributes_ready) ::pthread_attr_destroy(&g_attributes);
  g_attributes_ready = false;
  int err = ::pthread_attr_init(&g_attributes);
  if (err == 0) err = ::pthread_attr_setdetachstate(&g_attributes, PTHREAD_CREATE_DETACHED);
  if (err != 0) return err;
  std::size_t size = 0;
  if (::pthread_attr_getstacksize(&g_attributes, &size) == 0 && size > stack_ceiling) {
    ::pthread_attr_setstacksize(&g_attributes, stack_ceiling);
  }
  g_attributes_ready = true;
  return 0;
}

/// Tells the log. m_threads_mtx is not held: if this is the process's first line, the log starts
/// its own thread.
template <class T>
void log_under(const char* name, const char* format, const T& value) {
  errlog log(name, true, nullptr);
  fmt_dbg::fmt_verbose(log, format, value);
}

/// The same for what is known by other means as well, or has to be told by another exception.
void try_to_log(const char* name, const char* format, int value) {
  try {
    log_under(name, format, value);
  } catch (...) {
    // A line less; what happened to the thread stays as it is.
  }
}

void count_failed_start() {
  if (thread_startup_error == nullptr) return;
  std::uint32_t count;
  {
    rec_lock guard(threads_mutex());
    count = ++*thread_startup_error;
  }
  try_to_log("thread startup", "error count: %1%", static_cast<int>(count));
}

}  // namespace

rec_mutex* m_threads_mtx = nullptr;
std::int32_t g_thread_count = -666;
std::int32_t g_thread_peak = -666;
std::uint32_t* thread_startup_error = nullptr;
void (*_unprevent_timeout)() = nullptr;
void (*_prevent_cb)() = nullptr;
const char* g_thread_peak_category = nullptr;

thread::thread(bool auto_delete, std::string name, int number)
    : name_(name.empty() ? "" : name + ":" + std::to_string(number)),
      done_(1, 1),
      auto_delete_(auto_delete) {}

thread::~thread() {
  try {
    done_.wait();
  } catch (const exception&) {
    // Nothing is left to wait with.
  }
}

void thread::detach(priority) {
  int err = 0;
  int peak = 0;
  bool is_new_peak = false;
  {
    rec_lock guard(threads_mutex());
    if (started_) throw exception::function("detach");
    if (!g_attributes_ready) err = prepare_attributes();
    if (err == 0) err = ::pthread_create(&tid_, &g_attributes, thread_starter, this);
    if (err == 0) {
      started_ = true;
      is_new_peak = ++g_thread_count > g_thread_peak;
      if (is_new_peak) g_thread_peak = g_thread_count;
      peak = g_thread_peak;
      done_.wait();
    }
  }
  // From here on a thread that deletes its own object may have done so.
  if (err != 0) {
    try {
      log_under("thread startup", "pthread_create failed: %1%", safe_strerror(err));
      throw exception::function("detach");
    } catch (...) {
      count_failed_start();
      throw;
    }
  }
  if (is_new_peak && g_thread_peak_category != nullptr) {
    try_to_log(g_thread_peak_category, "new maximum number of threads: %1%", peak);
  }
}

void* thread::thread_starter(void* self) {
  auto* const started = static_cast<thread*>(self);
  { rec_lock until_detach_is_done(threads_mutex()); }
  started->run();
  const bool auto_delete = started->auto_delete_;
  started->done_.post();
  if (auto_delete) delete started;
  {
    rec_lock guard(threads_mutex());
    --g_thread_count;
    if (_unprevent_timeout != nullptr) _unprevent_timeout();
  }
  if (_prevent_cb != nullptr) _prevent_cb();
  return nullptr;
}

void init_thread() {
  std::srand(static_cast<unsigned>(std::time(nullptr)));
  rec_lock guard(threads_mutex());
  g_thread_count = 0;
  g_thread_peak = 0;
  if (thread_startup_error == nullptr) thread_startup_error = immortal<std::uint32_t>(0U);
  if (prepare_attributes() != 0) throw exception::function("init_thread");
}

void foreign_thread(bool seed) {
  if (seed) init_random();
}

std::uint64_t get_current_thread_id() {
  return (std::uint64_t)::pthread_self();  // a number on Linux, a pointer on macOS
}

}  // namespace mirt
