// Locks, guards and the locks of the whole process.
#include "mirt/sys/lock.h"

#include <gtest/gtest.h>

#include <thread>
#include <type_traits>
#include <vector>

#include "tests/support/new_process.h"

namespace {

static_assert(sizeof(mirt::rec_mutex) == sizeof(pthread_mutex_t));
static_assert(!std::is_copy_constructible_v<mirt::rec_mutex>);
static_assert(!std::is_copy_assignable_v<mirt::rec_mutex>);
static_assert(!std::is_convertible_v<mirt::rec_mutex*, mirt::rec_lock>);
static_assert(std::is_same_v<decltype(mirt::mirt_lock), void (*)()>);
static_assert(std::is_same_v<decltype(mirt::mirt_unlock), void (*)()>);
static_assert(std::is_same_v<decltype(mirt::g_global_mutex), mirt::rec_mutex*>);

/// Whether another thread could lock it now.
bool is_free(pthread_mutex_t* mutex) {
  bool result = false;
  std::thread([&] {
    result = pthread_mutex_trylock(mutex) == 0;
    if (result) pthread_mutex_unlock(mutex);
  }).join();
  return result;
}

/// A rec_mutex is its one pthread mutex.
bool is_free(mirt::rec_mutex& mutex) {
  return is_free(reinterpret_cast<pthread_mutex_t*>(&mutex));
}

TEST(rec_mutex, locked_twice_by_one_thread_needs_two_unlocks) {
  mirt::rec_mutex mutex;
  mutex.lock();
  mutex.lock();
  EXPECT_FALSE(is_free(mutex));
  mutex.unlock();
  EXPECT_FALSE(is_free(mutex));
  mutex.unlock();
  EXPECT_TRUE(is_free(mutex));
}

TEST(rec_mutex, can_be_used_before_init_mirtlock) {
  tests::in_new_process([] {
    mirt::rec_mutex mutex;
    mirt::rec_lock outer(mutex);
    mirt::rec_lock inner(mutex);
    EXPECT_FALSE(is_free(mutex));
    EXPECT_EQ(mirt::mirt_lock, nullptr);
  });
}

TEST(rec_mutex, lets_one_thread_in_at_a_time) {
  mirt::rec_mutex mutex;
  int count = 0;
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      for (int n = 0; n < 1000; ++n) {
        mirt::rec_lock outer(mutex);
        mirt::rec_lock inner(&mutex);
        ++count;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(count, 4000);
}

TEST(rec_lock, holds_a_referenced_mutex_for_its_scope) {
  mirt::rec_mutex mutex;
  {
    mirt::rec_lock guard(mutex);
    EXPECT_FALSE(is_free(mutex));
  }
  EXPECT_TRUE(is_free(mutex));
}

TEST(rec_lock, holds_a_pointed_to_mutex_for_its_scope) {
  mirt::rec_mutex mutex;
  {
    mirt::rec_lock guard(&mutex);
    EXPECT_FALSE(is_free(mutex));
  }
  EXPECT_TRUE(is_free(mutex));
}

TEST(rec_lock, holds_null_by_doing_nothing) {
  mirt::rec_mutex* const none = nullptr;
  EXPECT_NO_THROW(mirt::rec_lock{none});
}

TEST(slock, holds_a_plain_mutex_for_its_scope) {
  pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
  {
    slock guard(mutex);
    EXPECT_FALSE(is_free(&mutex));
  }
  EXPECT_TRUE(is_free(&mutex));
}

TEST(init_mirtlock, sets_up_the_default_global_lock_which_nests) {
  tests::in_new_process([] {
    ASSERT_EQ(mirt::g_global_mutex, nullptr);
    ASSERT_EQ(mirt::mirt_lock, nullptr);
    ASSERT_EQ(mirt::mirt_unlock, nullptr);
    mirt::init_mirtlock();
    ASSERT_NE(mirt::g_global_mutex, nullptr);
    mirt::mirt_lock();
    mirt::mirt_lock();
    mirt::mirt_unlock();
    EXPECT_FALSE(is_free(*mirt::g_global_mutex));
    mirt::mirt_unlock();
    EXPECT_TRUE(is_free(*mirt::g_global_mutex));
  });
}

int g_host_calls = 0;
void host_lock() {
  g_host_calls += 1;
}
void host_unlock() {
  g_host_calls += 10;
}

TEST(init_mirtlock, leaves_a_hosts_functions_in_place) {
  tests::in_new_process([] {
    mirt::mirt_lock = host_lock;
    mirt::mirt_unlock = host_unlock;
    mirt::init_mirtlock();
    EXPECT_EQ(mirt::g_global_mutex, nullptr);
    mirt::mirt_lock();
    mirt::mirt_unlock();
    EXPECT_EQ(g_host_calls, 11);
  });
}

TEST(init_mirtlock, adds_nothing_to_half_a_host_lock) {
  static mirt::rec_mutex host_mutex;
  const struct {
    mirt::rec_mutex* mutex;
    void (*lock)();
    void (*unlock)();
  } rows[] = {{nullptr, host_lock, nullptr},
              {nullptr, nullptr, host_unlock},
              {&host_mutex, nullptr, nullptr}};
  for (const auto& row : rows) {
    SCOPED_TRACE(&row - rows);
    tests::in_new_process([&] {
      mirt::g_global_mutex = row.mutex;
      mirt::mirt_lock = row.lock;
      mirt::mirt_unlock = row.unlock;
      mirt::init_mirtlock();
      EXPECT_EQ(mirt::g_global_mutex, row.mutex);
      EXPECT_EQ(mirt::mirt_lock, row.lock);
      EXPECT_EQ(mirt::mirt_unlock, row.unlock);
    });
  }
}

TEST(task_lock, is_made_by_the_first_call_and_kept) {
  tests::in_new_process([] {
    mirt::rec_mutex* const lock = mirt::task_lock();
    ASSERT_NE(lock, nullptr);
    EXPECT_EQ(mirt::task_lock(), lock);
    mirt::rec_lock outer(lock);
    mirt::rec_lock inner(lock);
    EXPECT_FALSE(is_free(*lock));
  });
}

TEST(task_lock, is_not_the_global_lock) {
  tests::in_new_process([] {
    mirt::init_mirtlock();
    EXPECT_NE(mirt::task_lock(), mirt::g_global_mutex);
  });
}

TEST(rwlock_init, sets_up_no_lock) {
  tests::in_new_process([] {
    mirt::rwlock_init();
    EXPECT_EQ(mirt::g_global_mutex, nullptr);
    EXPECT_EQ(mirt::mirt_lock, nullptr);
    EXPECT_EQ(mirt::mirt_unlock, nullptr);
  });
}

TEST(object_counters, are_32_bits_wide_and_stay_0) {
  tests::in_new_process([] {
    mirt::init_mirtlock();
    mirt::rec_mutex mutex;
    for (const std::int32_t* counter :
         {&mirt::g_fut_queue_counter, &mirt::g_ptask_counter, &mirt::g_pnetstream_counter,
          &mirt::g_pnetmtstream_counter, &mirt::g_psemaphore_counter, &mirt::g_pevent_counter}) {
      EXPECT_EQ(*counter, 0);
    }
  });
}

}  // namespace
