// The number of the calling thread.
#include "mirt/sys/thread.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <thread>
#include <type_traits>

#include "tests/support/new_process.h"

namespace {

static_assert(std::is_same_v<decltype(mirt::get_current_thread_id()), std::uint64_t>);
static_assert(std::is_same_v<decltype(mirt::thread_startup_error), std::uint32_t*>);

TEST(get_current_thread_id, is_pthread_self_as_a_number) {
  EXPECT_EQ(mirt::get_current_thread_id(), (std::uint64_t)pthread_self());
}

TEST(get_current_thread_id, differs_between_threads) {
  const std::uint64_t own = mirt::get_current_thread_id();
  std::thread([own] {
    EXPECT_EQ(mirt::get_current_thread_id(), (std::uint64_t)pthread_self());
    EXPECT_NE(mirt::get_current_thread_id(), own);
  }).join();
}

TEST(thread_startup_error, is_null_before_start_up) {
  tests::in_new_process([] { EXPECT_EQ(mirt::thread_startup_error, nullptr); });
}

}  // namespace
