#include "mirt/sys/lock.h"

#include <cstdlib>

#include "mirt/diag/exception.h"
#include "mirt/sys/immortal.h"

namespace mirt {
namespace {

pthread_mutexattr_t g_recursive;

void prepare_recursive() {
  if (::pthread_mutexattr_init(&g_recursive) != 0 ||
      ::pthread_mutexattr_settype(&g_recursive, PTHREAD_MUTEX_RECURSIVE) != 0) {
    std::abort();
  }
}

/// The attribute of every rec_mutex, prepared by whoever needs it first: a failed start-up logs
/// before `init_mirtlock` had its turn.
const pthread_mutexattr_t* recursive() {
  static pthread_once_t once = PTHREAD_ONCE_INIT;
  ::pthread_once(&once, prepare_recursive);
  return &g_recursive;
}

rec_mutex* g_task_lock = nullptr;

}  // namespace

rec_mutex* g_global_mutex = nullptr;
void (*mirt_lock)() = nullptr;
void (*mirt_unlock)() = nullptr;

std::int32_t g_fut_queue_counter = 0;
std::int32_t g_ptask_counter = 0;
std::int32_t g_pnetstream_counter = 0;
std::int32_t g_pnetmtstream_counter = 0;
std::int32_t g_psemaphore_counter = 0;
std::int32_t g_pevent_counter = 0;

rec_mutex::rec_mutex() {
  if (::pthread_mutex_init(&mutex_, recursive()) != 0) throw exception::function("rec_mutex");
}

rec_mutex::~rec_mutex() {
  ::pthread_mutex_destroy(&mutex_);
}

void rec_mutex::fail(const char* operation) {
  throw exception::function(operation);
}

void init_mirtlock() {
  recursive();
  if (g_global_mutex != nullptr || mirt_lock != nullptr || mirt_unlock != nullptr) return;
  g_global_mutex = immortal<rec_mutex>();
  mirt_lock = [] { g_global_mutex->lock(); };
  mirt_unlock = [] { g_global_mutex->unlock(); };
}

rec_mutex* task_lock() {
  if (g_task_lock == nullptr) g_task_lock = immortal<rec_mutex>();
  return g_task_lock;
}

void rwlock_init() {}

}  // namespace mirt

slock::slock(pthread_mutex_t& mutex) : mutex_(&mutex) {
  if (::pthread_mutex_lock(mutex_) != 0) throw mirt::exception::function("slock");
}

slock::~slock() {
  ::pthread_mutex_unlock(mutex_);
}
