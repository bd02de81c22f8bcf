// How a semaphore waits: what it asks of the system and when it gives up, by clocks and
// conditions of the test's own instead of real time.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/time.h>

#include <functional>
#include <limits>
#include <vector>

#include "mirt/sys/clock.h"
#include "mirt/sys/semaphore.h"
#include "tests/support/c_function.h"
#include "tests/support/error_of.h"

using ::testing::ElementsAre;
using tests::error_of;
using tests::failing;

namespace {

constexpr long long wall_seconds = 1000;
constexpr long wall_microseconds = 999999;

long long g_now = 0;         // what the relative clock says
bool g_wall_stands = false;  // the wall clock then shows the constants above

/// What happens during a wait for the condition, with its result; none: the system waits.
std::function<int()> g_during_wait;
int g_waits = 0;
std::vector<timespec> g_deadlines;  // of each timed wait

/// The deadlines as nanoseconds from the wall clock on.
std::vector<long long> bounds() {
  std::vector<long long> result;
  for (const timespec& at : g_deadlines) {
    result.push_back((at.tv_sec - wall_seconds) * 1000000000 + at.tv_nsec -
                     wall_microseconds * 1000);
    EXPECT_LT(at.tv_nsec, 1000000000);
  }
  return result;
}

int wait_as_scripted(pthread_cond_t*, pthread_mutex_t* mutex) {
  ++g_waits;
  pthread_mutex_unlock(mutex);
  const int result = g_during_wait();
  pthread_mutex_lock(mutex);
  return result;
}

}  // namespace

extern "C" {

int gettimeofday(timeval* out, void* zone) noexcept {
  if (failing::now("gettimeofday")) return -1;
  if (!g_wall_stands) return tests::next<int(timeval*, void*)>("gettimeofday")(out, zone);
  *out = {wall_seconds, wall_microseconds};
  return 0;
}

int pthread_mutex_init(pthread_mutex_t* mutex, const pthread_mutexattr_t* attr) noexcept {
  if (const int error = failing::now("pthread_mutex_init")) return error;
  return tests::next<int(pthread_mutex_t*, const pthread_mutexattr_t*)>("pthread_mutex_init")(mutex,
                                                                                              attr);
}

int pthread_mutex_lock(pthread_mutex_t* mutex) noexcept {
  if (const int error = failing::now("pthread_mutex_lock")) return error;
  return tests::next<int(pthread_mutex_t*)>("pthread_mutex_lock")(mutex);
}

int pthread_cond_init(pthread_cond_t* cond, const pthread_condattr_t* attr) noexcept {
  if (const int error = failing::now("pthread_cond_init")) return error;
  return tests::next<int(pthread_cond_t*, const pthread_condattr_t*)>("pthread_cond_init")(cond,
                                                                                           attr);
}

int pthread_cond_signal(pthread_cond_t* cond) noexcept {
  if (const int error = failing::now("pthread_cond_signal")) return error;
  return tests::next<int(pthread_cond_t*)>("pthread_cond_signal")(cond);
}

int pthread_cond_wait(pthread_cond_t* cond, pthread_mutex_t* mutex) {
  if (g_during_wait) return wait_as_scripted(cond, mutex);
  return tests::next<int(pthread_cond_t*, pthread_mutex_t*)>("pthread_cond_wait")(cond, mutex);
}

int pthread_cond_timedwait(pthread_cond_t* cond, pthread_mutex_t* mutex, const timespec* until) {
  using real = int(pthread_cond_t*, pthread_mutex_t*, const timespec*);
  if (!g_during_wait) return tests::next<real>("pthread_cond_timedwait")(cond, mutex, until);
  g_deadlines.push_back(*until);
  return wait_as_scripted(cond, mutex);
}

}  // extern "C"

namespace {

/// An empty semaphore, a relative clock at 5000 and a wall clock that stands still.
class semaphore_wait_ms : public ::testing::Test {
 protected:
  void SetUp() override {
    g_now = 5000;
    g_wall_stands = true;
    g_waits = 0;
    g_deadlines.clear();
    mirt::x_relative_time = [] { return g_now; };
  }
  void TearDown() override {
    g_wall_stands = false;
    g_during_wait = nullptr;
    mirt::x_relative_time = nullptr;
  }

  mirt::semaphore empty_{0, 0};
};

using semaphore_wait = semaphore_wait_ms;
using semaphore_failure = semaphore_wait_ms;

TEST_F(semaphore_wait, blocks_until_the_one_post) {
  g_during_wait = [this] {
    if (g_waits == 3) empty_.post();
    return 0;  // twice a wake-up without a reason
  };
  empty_.wait();
  EXPECT_EQ(g_waits, 3);
}

TEST_F(semaphore_wait, does_not_block_for_units_that_are_there) {
  g_during_wait = [] { return EINVAL; };
  mirt::semaphore two(0, 2);
  two.wait();
  two.wait();
  EXPECT_EQ(g_waits, 0);
}

TEST_F(semaphore_wait_ms, takes_a_unit_that_is_there_without_waiting) {
  g_during_wait = [] { return EINVAL; };
  for (const long long ms : {std::numeric_limits<long long>::min(), -1LL, 0LL, 1LL, 1000LL,
                             std::numeric_limits<long long>::max()}) {
    empty_.post();
    EXPECT_TRUE(empty_.wait_ms(ms)) << ms;
  }
  EXPECT_EQ(g_waits, 0);
}

TEST_F(semaphore_wait_ms, of_zero_or_less_never_blocks) {
  g_during_wait = [] { return EINVAL; };
  for (const long long ms : {0LL, -1LL, -5000LL, std::numeric_limits<long long>::min()}) {
    EXPECT_FALSE(empty_.wait_ms(ms)) << ms;
  }
  EXPECT_EQ(g_waits, 0);
}

TEST_F(semaphore_wait_ms, of_zero_or_less_never_blocks_while_the_clock_runs) {
  mirt::x_relative_time = [] { return g_now++; };
  g_during_wait = [] { return EINVAL; };
  for (const long long ms : {0LL, -1LL, std::numeric_limits<long long>::min()}) {
    EXPECT_FALSE(empty_.wait_ms(ms)) << ms;
  }
  EXPECT_EQ(g_waits, 0);
}

TEST_F(semaphore_wait_ms, of_one_asks_the_system_for_one_millisecond_from_the_wall_clock_on) {
  g_during_wait = [] {
    ++g_now;
    return ETIMEDOUT;
  };
  EXPECT_FALSE(empty_.wait_ms(1));
  EXPECT_THAT(bounds(), ElementsAre(1000000));
}

TEST_F(semaphore_wait_ms, does_not_start_over_after_wake_ups) {
  g_during_wait = [] {
    g_now += 40;
    return 0;
  };
  EXPECT_FALSE(empty_.wait_ms(100));
  EXPECT_THAT(bounds(), ElementsAre(100000000, 60000000, 20000000));
}

TEST_F(semaphore_wait_ms, waits_on_when_the_relative_clock_is_behind_a_reported_time_out) {
  g_during_wait = [] {
    g_now += g_waits == 1 ? 98 : 1;
    return ETIMEDOUT;
  };
  EXPECT_FALSE(empty_.wait_ms(100));
  EXPECT_THAT(bounds(), ElementsAre(100000000, 2000000, 1000000));
}

TEST_F(semaphore_wait_ms, takes_a_unit_that_is_there_after_a_reported_time_out) {
  g_during_wait = [this] {
    g_now += 1000;
    empty_.post();
    return ETIMEDOUT;
  };
  EXPECT_TRUE(empty_.wait_ms(100));
  EXPECT_EQ(g_waits, 1);
  EXPECT_FALSE(empty_.wait_ms(0));
}

TEST_F(semaphore_wait_ms, takes_a_unit_that_came_with_the_wake_up_however_late_it_is) {
  g_during_wait = [this] {
    g_now += 100000;
    empty_.post();
    return 0;
  };
  EXPECT_TRUE(empty_.wait_ms(100));
}

TEST_F(semaphore_wait_ms, goes_on_waiting_when_another_took_the_unit) {
  g_during_wait = [this] {
    g_now += 30;
    empty_.post();
    if (g_waits < 3) empty_.wait();
    return 0;
  };
  EXPECT_TRUE(empty_.wait_ms(100));
  EXPECT_THAT(bounds(), ElementsAre(100000000, 70000000, 40000000));
}

TEST_F(semaphore_wait_ms, counts_from_before_it_locked_its_mutex) {
  static mirt::semaphore* self;
  self = &empty_;
  // Locked already, the post would never return.
  mirt::x_relative_time = [] {
    if (g_now++ == 5000) self->post();
    return g_now;
  };
  EXPECT_TRUE(empty_.wait_ms(0));
}

TEST_F(semaphore_wait_ms, may_be_as_long_as_a_number_can_tell) {
  g_during_wait = [this] {
    empty_.post();
    return 0;
  };
  EXPECT_TRUE(empty_.wait_ms(std::numeric_limits<long long>::max()));
  EXPECT_TRUE(empty_.wait(std::numeric_limits<long>::max()));
  EXPECT_EQ(g_waits, 2);
}

TEST_F(semaphore_wait, of_one_second_gives_up_after_a_thousand_milliseconds) {
  g_during_wait = [] {
    g_now += 1000;
    return ETIMEDOUT;
  };
  EXPECT_FALSE(empty_.wait(1));
  EXPECT_THAT(bounds(), ElementsAre(1000000000));
}

TEST_F(semaphore_failure, of_its_making_is_named_semaphore) {
  for (const char* call : {"pthread_mutex_init", "pthread_cond_init"}) {
    EXPECT_EQ(error_of([&] {
                failing init(call, ENOMEM);
                mirt::semaphore semaphore(0, 0);
              }),
              ":Error in 'semaphore'")
        << call;
  }
}

TEST_F(semaphore_failure, of_waiting_is_named_wait) {
  g_during_wait = [] { return EINVAL; };
  EXPECT_EQ(error_of([this] { empty_.wait(); }), ":Error in 'wait'");
}

TEST_F(semaphore_failure, of_an_untimed_wait_is_also_a_time_out) {
  g_during_wait = [] { return ETIMEDOUT; };
  EXPECT_EQ(error_of([this] { empty_.wait(); }), ":Error in 'wait'");
}

TEST_F(semaphore_failure, of_a_timed_wait_is_named_cond_) {
  g_during_wait = [] { return EINVAL; };
  EXPECT_EQ(error_of([this] { empty_.wait_ms(1); }), ":Error in 'cond_'");
  EXPECT_EQ(error_of([this] { empty_.wait(1); }), ":Error in 'cond_'");
}

TEST_F(semaphore_failure, of_waiting_leaves_it_unlocked_and_takes_no_unit) {
  g_during_wait = [this] {
    empty_.post();
    return EINVAL;
  };
  EXPECT_EQ(error_of([this] { empty_.wait(); }), ":Error in 'wait'");
  EXPECT_EQ(error_of([this] { empty_.wait_ms(0); }), "no exception");
  EXPECT_FALSE(empty_.wait_ms(0));
}

TEST_F(semaphore_failure, of_posting_is_named_post_and_the_unit_is_there_all_the_same) {
  EXPECT_EQ(error_of([this] {
              failing signal("pthread_cond_signal", EINVAL);
              empty_.post();
            }),
            ":Error in 'post'");
  EXPECT_TRUE(empty_.wait_ms(0));
  EXPECT_FALSE(empty_.wait_ms(0));
}

TEST_F(semaphore_failure, of_locking_is_named_slock_in_every_operation) {
  const std::function<void()> operations[] = {
      [this] { empty_.wait(); },
      [this] { empty_.post(); },
      [this] { empty_.wait_ms(1); },
      [this] { empty_.wait(1); },
  };
  for (const auto& operation : operations) {
    SCOPED_TRACE(&operation - operations);
    EXPECT_EQ(error_of([&] {
                failing lock("pthread_mutex_lock", EINVAL);
                operation();
              }),
              ":Error in 'slock'");
  }
}

TEST_F(semaphore_failure, of_the_wall_clock_comes_out_of_a_timed_wait) {
  EXPECT_EQ(error_of([this] {
              failing clock("gettimeofday", EPERM);
              empty_.wait_ms(1);
            }),
            ":Error in 'clock_realtime'");
}

}  // namespace
