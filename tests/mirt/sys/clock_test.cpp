// Clocks by the system's own time, conversions, and the clocks of a host.
#include "mirt/sys/clock.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <limits>
#include <thread>
#include <type_traits>

#include "tests/support/new_process.h"

namespace {

static_assert(std::is_same_v<decltype(mirt::x_relative_time), long long (*)()>);
static_assert(std::is_same_v<decltype(mirt::x_absolute_time), long long (*)(void*)>);
static_assert(std::is_same_v<decltype(mirt::x_absolute_system_time), long long (*)()>);

TEST(to_time_t, cuts_towards_zero) {
  const struct {
    long long ms;
    long long seconds;
  } rows[] = {{0, 0},
              {999, 0},
              {1000, 1},
              {1001, 1},
              {-1, 0},
              {-999, 0},
              {-1000, -1},
              {-1001, -1},
              {-1500, -1},
              {-2000, -2},
              {1999, 1},
              {1700000000999, 1700000000},
              {std::numeric_limits<long long>::max(), 9223372036854775},
              {std::numeric_limits<long long>::min(), -9223372036854775}};
  for (const auto& row : rows) EXPECT_EQ(mirt::to_time_t(row.ms), row.seconds) << row.ms;
}

TEST(get_ms_from_ns, cuts_towards_zero) {
  const struct {
    long long ns;
    long long ms;
  } rows[] = {{0, 0},       {999999, 0},  {1000000, 1},   {1000001, 1},
              {1999999, 1}, {-999999, 0}, {-1000000, -1}, {-1999999, -1}};
  for (const auto& row : rows) EXPECT_EQ(mirt::get_ms_from_ns(row.ns), row.ms) << row.ns;
}

TEST(get_ns, is_all_of_the_time_in_nanoseconds) {
  EXPECT_EQ(mirt::get_ns({0, 0}), 0);
  EXPECT_EQ(mirt::get_ns({0, 999999999}), 999999999);
  EXPECT_EQ(mirt::get_ns({1, 2}), 1000000002);
  EXPECT_EQ(mirt::get_ns({1700000000, 123456789}), 1700000000123456789);
  EXPECT_EQ(mirt::get_ns({-1, 500}), -999999500);
}

TEST(add_ms, carries_full_seconds_up_and_never_borrows) {
  const struct {
    timespec from;
    long long ms;
    timespec to;
  } rows[] = {
      {{5, 600000000}, 1500, {7, 100000000}},
      {{5, 600000000}, 0, {5, 600000000}},
      {{0, 0}, 999, {0, 999000000}},
      {{0, 0}, 1000, {1, 0}},
      {{0, 0}, 1001, {1, 1000000}},
      {{0, 998999999}, 1, {0, 999999999}},
      {{0, 999000000}, 1, {1, 0}},
      {{0, 999000001}, 1, {1, 1}},
      {{0, 999999999}, 999, {1, 998999999}},
      {{0, 3500000000}, 0, {3, 500000000}},  // more than one full second at once
      {{0, 3500000000}, 600, {4, 100000000}},
      {{1, 0}, 86400001, {86401, 1000000}},
      {{5, 0}, -1, {5, -1000000}},  // deliberate: no borrow
      {{5, 0}, -1500, {4, -500000000}},
      {{5, 600000000}, -1500, {4, 100000000}},
      {{5, 600000000}, -2000, {3, 600000000}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(&row - rows);
    timespec time = row.from;
    mirt::add_ms(time, row.ms);
    EXPECT_EQ(time.tv_sec, row.to.tv_sec);
    EXPECT_EQ(time.tv_nsec, row.to.tv_nsec);
  }
}

TEST(clock_realtime, is_the_wall_clock_to_the_microsecond) {
  const time_t before = ::time(nullptr);
  timespec now = {0, -1};
  mirt::clock_realtime(now);
  EXPECT_LE(before - 1, now.tv_sec);
  EXPECT_LE(now.tv_sec, ::time(nullptr) + 1);
  EXPECT_GE(now.tv_nsec, 0);
  EXPECT_LT(now.tv_nsec, 1000000000);
  EXPECT_EQ(now.tv_nsec % 1000, 0);
}

/// Both clocks: the suite runs once with the system's and once without any monotonic clock.
class relative_time : public ::testing::TestWithParam<bool> {
 protected:
  static void start() {
    if (GetParam()) mirt::init_unixtime();
    mirt::init_timer();
  }
};

INSTANTIATE_TEST_SUITE_P(clock, relative_time, ::testing::Bool(), [](const auto& row) {
  return std::string(row.param ? "as_start_up_finds_it" : "by_ticks");
});

TEST_P(relative_time, can_be_read_before_start_up) {
  tests::in_new_process([] {
    mirt::g_has_monotonic = GetParam();
    const long long first = mirt::relative_time();
    EXPECT_GE(first, 0);
    EXPECT_GE(mirt::relative_time(), first);
    EXPECT_GT(mirt::absolute_time(nullptr), 0);
  });
}

TEST_P(relative_time, never_decreases) {
  tests::in_new_process([] {
    start();
    long long last = 0;
    for (int i = 0; i < 1000; ++i) {
      const long long now = mirt::relative_time();
      ASSERT_GE(now, last);
      last = now;
    }
  });
}

TEST(init_unixtime, reads_the_time_zone) {
  tests::in_new_process([] {
    ::setenv("TZ", "ABC-5", 1);
    mirt::init_unixtime();
    EXPECT_STREQ(::tzname[0], "ABC");
    EXPECT_EQ(::timezone, -5 * 3600);
  });
}

TEST(g_has_monotonic, is_false_until_init_unixtime_finds_a_clock) {
  tests::in_new_process([] {
    EXPECT_FALSE(mirt::g_has_monotonic);
    timespec now;
    bool found = true;
    try {
      mirt::clock_monotonic(now);
    } catch (...) {
      found = false;
    }
    mirt::init_unixtime();
    EXPECT_EQ(mirt::g_has_monotonic, found);
  });
}

// What a host's clocks say, and what they saw.
int g_calls = 0;
void* g_argument = nullptr;

class host_clocks : public ::testing::Test {
 protected:
  void SetUp() override { g_calls = 0; }
  void TearDown() override {
    mirt::x_relative_time = nullptr;
    mirt::x_absolute_time = nullptr;
    mirt::x_absolute_system_time = nullptr;
    mirt::g_has_monotonic = false;
  }
};

TEST_F(host_clocks, are_absent_without_a_host) {
  EXPECT_EQ(mirt::x_relative_time, nullptr);
  EXPECT_EQ(mirt::x_absolute_time, nullptr);
  EXPECT_EQ(mirt::x_absolute_system_time, nullptr);
}

TEST_F(host_clocks, replace_the_relative_clock) {
  mirt::x_relative_time = [] { return -42LL; };
  EXPECT_EQ(mirt::relative_time(), -42);
}

TEST_F(host_clocks, replace_the_wall_clock_of_both_absolute_times) {
  mirt::x_absolute_system_time = [] { return 1999LL; };
  EXPECT_EQ(mirt::absolute_system_time(), 1999);
  EXPECT_EQ(mirt::absolute_time(nullptr), 1999);
  EXPECT_EQ(mirt::absolute_time_t(nullptr), 1);
}

TEST_F(host_clocks, replace_the_absolute_time_and_are_given_its_argument) {
  mirt::x_absolute_system_time = [] { return 1LL; };
  mirt::x_absolute_time = [](void* argument) {
    g_argument = argument;
    return -1500LL;
  };
  int mark = 0;
  EXPECT_EQ(mirt::absolute_time(&mark), -1500);
  EXPECT_EQ(g_argument, &mark);
  EXPECT_EQ(mirt::absolute_time_t(nullptr), -1);
  EXPECT_EQ(g_argument, nullptr);
  EXPECT_EQ(mirt::absolute_system_time(), 1);
}

TEST_F(host_clocks, of_relative_time_are_read_by_wall_clock_readers_where_there_is_no_monotonic) {
  mirt::x_relative_time = [] {
    ++g_calls;
    return 0LL;
  };
  mirt::absolute_system_time();
  EXPECT_EQ(g_calls, 1);
  mirt::g_has_monotonic = true;
  mirt::absolute_system_time();
  EXPECT_EQ(g_calls, 1);
}

TEST_F(host_clocks, of_the_wall_are_all_that_wall_clock_readers_read) {
  mirt::x_relative_time = [] {
    ++g_calls;
    return 0LL;
  };
  mirt::x_absolute_system_time = [] { return 7LL; };
  mirt::absolute_system_time();
  mirt::absolute_time(nullptr);
  EXPECT_EQ(g_calls, 0);
}

/// Reads the relative clock by ticks in another thread, which needs the timer's lock.
void read_ticks_elsewhere() {
  std::thread([] { mirt::relative_time(); }).join();
}

TEST_F(host_clocks, of_the_wall_are_called_without_the_timers_lock) {
  mirt::init_timer();
  mirt::x_absolute_system_time = [] {
    read_ticks_elsewhere();
    return 7LL;
  };
  EXPECT_EQ(mirt::absolute_system_time(), 7);
  EXPECT_EQ(mirt::absolute_time(nullptr), 7);
}

TEST_F(host_clocks, of_absolute_time_are_called_without_the_timers_lock) {
  mirt::init_timer();
  mirt::x_absolute_time = [](void*) {
    read_ticks_elsewhere();
    return 7LL;
  };
  EXPECT_EQ(mirt::absolute_time(nullptr), 7);
}

TEST_F(host_clocks, of_relative_time_are_called_without_the_timers_lock) {
  mirt::init_timer();
  // The one override hides the other way to the lock, so it steps aside for the other thread.
  static long long (*const host)() = [] {
    ++g_calls;
    mirt::x_relative_time = nullptr;
    read_ticks_elsewhere();
    mirt::x_relative_time = host;
    return 7LL;
  };
  mirt::x_relative_time = host;
  EXPECT_EQ(mirt::relative_time(), 7);
  mirt::absolute_system_time();
  mirt::absolute_time(nullptr);
  EXPECT_EQ(g_calls, 3);
}

}  // namespace
