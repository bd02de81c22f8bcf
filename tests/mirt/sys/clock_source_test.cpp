// What the clocks make of the system's time sources, which are the test's own here: both ways to
// the relative clock, the arithmetic of ticks, and failures.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/time.h>
#include <sys/times.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <thread>
#include <vector>

#include "mirt/init.h"
#include "mirt/sys/clock.h"
#include "mirt/sys/platform.h"
#include "tests/support/c_function.h"
#include "tests/support/error_of.h"
#include "tests/support/new_process.h"

using tests::error_of;
using tests::failing;

namespace {

bool g_fake = false;  // while set, the values below stand in for the system's
std::atomic<clock_t> g_ticks = 0;
bool g_ticks_run = false;  // then each reading is one tick later than the one before
long g_ticks_per_second = 100;
timespec g_monotonic = {};
timeval g_wall = {};

}  // namespace

extern "C" {

clock_t times(tms* out) noexcept {
  if (!g_fake) return tests::next<clock_t(tms*)>("times")(out);
  return g_ticks_run ? ++g_ticks : g_ticks.load();
}

/// The thread sanitizer asks, too, before it is ready to watch any code.
__attribute__((no_sanitize("thread"))) long sysconf(int name) noexcept {
  if (g_fake && name == _SC_CLK_TCK) return g_ticks_per_second;
  return reinterpret_cast<long (*)(int)>(::dlsym(RTLD_NEXT, "sysconf"))(name);
}

int gettimeofday(timeval* out, void* zone) noexcept {
  if (failing::now("gettimeofday")) return -1;
  if (!g_fake) return tests::next<int(timeval*, void*)>("gettimeofday")(out, zone);
  *out = g_wall;
  return 0;
}

int clock_gettime(clockid_t clock, timespec* out) noexcept {
  if (clock != CLOCK_MONOTONIC)
    return tests::next<int(clockid_t, timespec*)>("clock_gettime")(clock, out);
  if (failing::now("clock_gettime")) return -1;
  if (!g_fake) return tests::next<int(clockid_t, timespec*)>("clock_gettime")(clock, out);
  *out = g_monotonic;
  return 0;
}

}  // extern "C"

namespace {

/// Starts the relative clock on ticks.
void start_ticks(long per_second, clock_t at) {
  g_fake = true;
  mirt::g_has_monotonic = false;
  g_ticks_per_second = per_second;
  g_ticks = at;
  mirt::init_timer();
}

class clock_source : public ::testing::Test {
 protected:
  void TearDown() override {
    g_fake = false;
    g_ticks_run = false;
    mirt::g_has_monotonic = false;
  }
};

using ticks = clock_source;
using monotonic = clock_source;
using wall = clock_source;

TEST_F(ticks, start_from_0_and_add_up) {
  start_ticks(100, 5000);
  EXPECT_EQ(mirt::relative_time(), 0);
  g_ticks = 5007;
  EXPECT_EQ(mirt::relative_time(), 70);
  EXPECT_EQ(mirt::relative_time(), 70);
  g_ticks = 5107;
  EXPECT_EQ(mirt::relative_time(), 1070);
}

TEST_F(ticks, start_from_0_again_with_init_timer) {
  start_ticks(100, 5000);
  g_ticks = 5100;
  EXPECT_EQ(mirt::relative_time(), 1000);
  mirt::init_timer();
  EXPECT_EQ(mirt::relative_time(), 0);
  g_ticks = 5101;
  EXPECT_EQ(mirt::relative_time(), 10);
}

TEST_F(ticks, drop_the_fraction_at_every_reading) {
  start_ticks(60, 0);  // 16 2/3 ms each
  g_ticks = 1;
  EXPECT_EQ(mirt::relative_time(), 16);
  g_ticks = 2;
  EXPECT_EQ(mirt::relative_time(), 32);
  g_ticks = 4;
  EXPECT_EQ(mirt::relative_time(), 65);
  g_ticks = 7;
  EXPECT_EQ(mirt::relative_time(), 115);
}

TEST_F(ticks, below_a_millisecond_are_lost_when_read_one_by_one) {
  start_ticks(1024, 0);
  for (int i = 1; i <= 10; ++i) {
    g_ticks = i;
    EXPECT_EQ(mirt::relative_time(), 0);
  }
  g_ticks = 10 + 1024;
  EXPECT_EQ(mirt::relative_time(), 1000);
}

TEST_F(ticks, of_a_long_pause_do_not_overflow_32_bits) {
  start_ticks(100, 0);
  g_ticks = 100L * 86400 * 400;
  EXPECT_EQ(mirt::relative_time(), 1000LL * 86400 * 400);
}

TEST_F(ticks, are_kept_current_by_readers_of_the_wall_clock) {
  start_ticks(60, 0);
  g_ticks = 1;
  mirt::absolute_system_time();
  g_ticks = 2;
  mirt::absolute_time(nullptr);
  g_ticks = 3;
  EXPECT_EQ(mirt::relative_time(), 48);  // 50 had the fractions not been dropped in between
}

TEST_F(ticks, are_counted_once_by_threads_that_read_together) {
  start_ticks(1000, 0);
  g_ticks_run = true;
  std::vector<std::thread> readers;
  for (int i = 0; i < 4; ++i) {
    readers.emplace_back([] {
      long long last = 0;
      for (int n = 0; n < 1000; ++n) {
        const long long now = mirt::relative_time();
        if (now <= last) ADD_FAILURE() << now << " after " << last;
        last = now;
      }
    });
  }
  for (std::thread& reader : readers) reader.join();
  EXPECT_EQ(mirt::relative_time(), 4001);
}

TEST_F(ticks, do_not_go_back_when_a_monotonic_clock_is_found_before_init_timer_starts_it) {
  tests::in_new_process([] {
    g_fake = true;
    g_ticks = 500;
    g_monotonic = {7, 0};
    const long long before = mirt::relative_time();
    mirt::init_unixtime();
    EXPECT_GE(mirt::relative_time(), before);
    mirt::init_timer();
    EXPECT_EQ(mirt::relative_time(), 0);
    g_monotonic = {8, 0};
    EXPECT_EQ(mirt::relative_time(), 1000);
  });
}

TEST_F(monotonic, starts_from_0_and_ticks_are_not_asked_for) {
  g_fake = true;
  g_ticks = 0;
  g_ticks_run = true;
  g_monotonic = {100, 250000000};
  mirt::init_unixtime();
  EXPECT_TRUE(mirt::g_has_monotonic);
  mirt::init_timer();
  EXPECT_EQ(mirt::relative_time(), 0);
  g_monotonic = {101, 750000000};
  EXPECT_EQ(mirt::relative_time(), 1500);
  mirt::absolute_system_time();
  mirt::absolute_time(nullptr);
  EXPECT_EQ(g_ticks, 0);
}

TEST_F(monotonic, is_found_and_started_from_0_by_start_up) {
  tests::in_new_process([] {
    start_ticks(100, 0);
    g_ticks = 100;
    g_monotonic = {100, 0};
    EXPECT_EQ(mirt::relative_time(), 1000);
    new mirt::init(nullptr);
    EXPECT_TRUE(mirt::g_has_monotonic);
    EXPECT_EQ(mirt::relative_time(), 0);
    g_monotonic = {103, 0};
    EXPECT_EQ(mirt::relative_time(), 3000);
  });
}

TEST_F(monotonic, fills_in_the_systems_time) {
  g_fake = true;
  g_monotonic = {12, 345678901};
  timespec now = {};
  mirt::clock_monotonic(now);
  EXPECT_EQ(now.tv_sec, 12);
  EXPECT_EQ(now.tv_nsec, 345678901);
  now = {};
  EXPECT_TRUE(mirt::platform::monotonic_time(now));
  EXPECT_EQ(now.tv_sec, 12);
}

TEST_F(monotonic, that_is_missing_is_named_clock_monotonic) {
  EXPECT_EQ(error_of([] {
              timespec now;
              failing clock("clock_gettime", EINVAL);
              mirt::clock_monotonic(now);
            }),
            ":Error in 'clock_monotonic'");
}

TEST_F(monotonic, that_is_missing_lets_start_up_take_the_ticks) {
  EXPECT_EQ(error_of([] {
              failing clock("clock_gettime", EINVAL);
              mirt::init_unixtime();
            }),
            "no exception");
  EXPECT_FALSE(mirt::g_has_monotonic);
}

TEST_F(wall, is_gettimeofday_with_its_microseconds_as_nanoseconds) {
  g_fake = true;
  g_wall = {1234567890, 654321};
  timespec now = {};
  mirt::clock_realtime(now);
  EXPECT_EQ(now.tv_sec, 1234567890);
  EXPECT_EQ(now.tv_nsec, 654321000);
}

TEST_F(wall, is_cut_to_milliseconds_and_seconds) {
  g_fake = true;
  for (const bool has_monotonic : {false, true}) {
    mirt::g_has_monotonic = has_monotonic;
    g_wall = {1234567890, 999999};
    EXPECT_EQ(mirt::absolute_system_time(), 1234567890999);
    EXPECT_EQ(mirt::absolute_time(nullptr), 1234567890999);
    EXPECT_EQ(mirt::absolute_time(&g_wall), 1234567890999);
    EXPECT_EQ(mirt::absolute_time_t(nullptr), 1234567890);
  }
}

TEST_F(wall, that_fails_is_named_clock_realtime_by_every_reader) {
  const struct {
    void (*read)();
  } rows[] = {{[] {
                timespec now;
                mirt::clock_realtime(now);
              }},
              {[] { mirt::absolute_system_time(); }},
              {[] { mirt::absolute_time(nullptr); }},
              {[] { mirt::absolute_time_t(nullptr); }}};
  for (const auto& row : rows) {
    SCOPED_TRACE(&row - rows);
    EXPECT_EQ(error_of([&] {
                failing clock("gettimeofday", EPERM);
                row.read();
              }),
              ":Error in 'clock_realtime'");
  }
}

}  // namespace
