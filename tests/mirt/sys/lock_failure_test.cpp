// What locks say when the system fails them.
#include <gtest/gtest.h>
#include <pthread.h>

#include <csignal>

#include "mirt/sys/lock.h"
#include "tests/support/c_function.h"
#include "tests/support/error_of.h"
#include "tests/support/new_process.h"

using tests::error_of;
using tests::failing;

extern "C" {

int pthread_mutexattr_init(pthread_mutexattr_t* attr) noexcept {
  if (const int error = failing::now("pthread_mutexattr_init")) return error;
  return tests::next<int(pthread_mutexattr_t*)>("pthread_mutexattr_init")(attr);
}

int pthread_mutexattr_settype(pthread_mutexattr_t* attr, int type) noexcept {
  if (const int error = failing::now("pthread_mutexattr_settype")) return error;
  return tests::next<int(pthread_mutexattr_t*, int)>("pthread_mutexattr_settype")(attr, type);
}

int pthread_mutex_init(pthread_mutex_t* mutex, const pthread_mutexattr_t* attr) noexcept {
  if (const int error = failing::now("pthread_mutex_init")) return error;
  return tests::next<int(pthread_mutex_t*, const pthread_mutexattr_t*)>("pthread_mutex_init")(mutex,
                                                                                              attr);
}

int pthread_mutex_destroy(pthread_mutex_t* mutex) noexcept {
  const int result = tests::next<int(pthread_mutex_t*)>("pthread_mutex_destroy")(mutex);
  const int error = failing::now("pthread_mutex_destroy");
  return error != 0 ? error : result;
}

int pthread_mutex_lock(pthread_mutex_t* mutex) noexcept {
  if (const int error = failing::now("pthread_mutex_lock")) return error;
  return tests::next<int(pthread_mutex_t*)>("pthread_mutex_lock")(mutex);
}

/// Unlocks even when it is to report a failure: a mutex that stayed locked could not be destroyed.
int pthread_mutex_unlock(pthread_mutex_t* mutex) noexcept {
  const int result = tests::next<int(pthread_mutex_t*)>("pthread_mutex_unlock")(mutex);
  const int error = failing::now("pthread_mutex_unlock");
  return error != 0 ? error : result;
}

}  // extern "C"

namespace {

TEST(rec_mutex_failure, of_its_making_is_named_rec_mutex) {
  EXPECT_EQ(error_of([] {
              failing init("pthread_mutex_init", ENOMEM);
              mirt::rec_mutex mutex;
            }),
            ":Error in 'rec_mutex'");
}

TEST(rec_mutex_failure, of_locking_is_named_lock) {
  mirt::rec_mutex mutex;
  EXPECT_EQ(error_of([&] {
              failing lock("pthread_mutex_lock", EAGAIN);
              mutex.lock();
            }),
            ":Error in 'lock'");
}

TEST(rec_mutex_failure, of_unlocking_is_named_unlock) {
  mirt::rec_mutex mutex;
  mutex.lock();
  EXPECT_EQ(error_of([&] {
              failing unlock("pthread_mutex_unlock", EPERM);
              mutex.unlock();
            }),
            ":Error in 'unlock'");
}

TEST(rec_mutex_failure, of_its_destruction_is_ignored) {
  EXPECT_EQ(error_of([] {
              failing destroy("pthread_mutex_destroy", EBUSY);
              mirt::rec_mutex mutex;
            }),
            "no exception");
}

TEST(rec_lock_failure, of_locking_is_that_of_the_mutex) {
  mirt::rec_mutex mutex;
  const auto by_reference = [&] {
    failing lock("pthread_mutex_lock", EAGAIN);
    mirt::rec_lock guard(mutex);
  };
  const auto by_pointer = [&] {
    failing lock("pthread_mutex_lock", EAGAIN);
    mirt::rec_lock guard(&mutex);
  };
  EXPECT_EQ(error_of(by_reference), ":Error in 'lock'");
  EXPECT_EQ(error_of(by_pointer), ":Error in 'lock'");
}

TEST(rec_lock_failure, of_unlocking_is_dropped) {
  mirt::rec_mutex mutex;
  EXPECT_EQ(error_of([&] {
              failing unlock("pthread_mutex_unlock", EPERM);
              mirt::rec_lock guard(mutex);
            }),
            "no exception");
}

TEST(slock_failure, of_locking_is_named_slock) {
  pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
  EXPECT_EQ(error_of([&] {
              failing lock("pthread_mutex_lock", EINVAL);
              slock guard(mutex);
            }),
            ":Error in 'slock'");
}

TEST(slock_failure, of_unlocking_is_ignored) {
  pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
  EXPECT_EQ(error_of([&] {
              failing unlock("pthread_mutex_unlock", EPERM);
              slock guard(mutex);
            }),
            "no exception");
}

TEST(init_mirtlock_failure, of_the_recursive_attribute_ends_the_process) {
  // The attribute is prepared once, so each case begins a new run of the program.
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  for (const char* call : {"pthread_mutexattr_init", "pthread_mutexattr_settype"}) {
    EXPECT_EXIT(
        {
          failing attribute(call, ENOMEM);
          mirt::init_mirtlock();
        },
        ::testing::KilledBySignal(SIGABRT), "")
        << call;
  }
}

TEST(init_mirtlock_failure, of_the_global_mutex_is_thrown_and_leaves_no_lock) {
  tests::in_new_process([] {
    EXPECT_EQ(error_of([] {
                failing init("pthread_mutex_init", ENOMEM);
                mirt::init_mirtlock();
              }),
              ":Error in 'rec_mutex'");
    EXPECT_EQ(mirt::g_global_mutex, nullptr);
    EXPECT_EQ(mirt::mirt_lock, nullptr);
    EXPECT_EQ(mirt::mirt_unlock, nullptr);
  });
}

TEST(task_lock_failure, is_named_rec_mutex_and_the_next_call_tries_again) {
  tests::in_new_process([] {
    EXPECT_EQ(error_of([] {
                failing init("pthread_mutex_init", ENOMEM);
                mirt::task_lock();
              }),
              ":Error in 'rec_mutex'");
    EXPECT_NE(mirt::task_lock(), nullptr);
  });
}

}  // namespace
