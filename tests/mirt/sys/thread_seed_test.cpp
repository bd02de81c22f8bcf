// What the standard generators are seeded with, and by whom.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <time.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "mirt/init.h"
#include "mirt/sys/random.h"
#include "mirt/sys/thread.h"
#include "tests/support/c_function.h"
#include "tests/support/new_process.h"

namespace {

bool g_armed = false;  // these then stand in for the system's
time_t g_time = 0;
clock_t g_clock = 0;  // one more with each call
pid_t g_process = 0;
std::vector<std::string> g_seeds;

void record(const char* function, unsigned seed) {
  if (g_armed) g_seeds.push_back(function + std::to_string(seed));
}

}  // namespace

extern "C" {

time_t time(time_t* out) noexcept {
  const time_t now = g_armed ? g_time : tests::next<time_t(time_t*)>("time")(nullptr);
  if (out != nullptr) *out = now;
  return now;
}

clock_t clock() noexcept {
  return g_armed ? g_clock++ : tests::next<clock_t()>("clock")();
}

pid_t getpid() noexcept {
  return g_armed ? g_process : tests::next<pid_t()>("getpid")();
}

void srand(unsigned seed) noexcept {
  record("srand ", seed);
  tests::next<void(unsigned)>("srand")(seed);
}

void srandom(unsigned seed) noexcept {
  record("srandom ", seed);
  tests::next<void(unsigned)>("srandom")(seed);
}

}  // extern "C"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// The seeds that `action` sets at this time, tick and process.
template <class F>
std::vector<std::string> seeds_of(F action, time_t time, clock_t clock, pid_t process) {
  g_time = time;
  g_clock = clock;
  g_process = process;
  g_seeds.clear();
  g_armed = true;
  action();
  g_armed = false;
  return g_seeds;
}

std::string seed(const std::string& function, std::uint32_t sum) {
  return function + " " +
         std::to_string(sum + static_cast<std::uint32_t>(mirt::get_current_thread_id()));
}

TEST(init_random, seeds_both_generators_each_with_a_sum_of_its_own) {
  EXPECT_THAT(seeds_of(mirt::init_random, 1000000, 200, 3),
              ElementsAre(seed("srand", 1000203), seed("srandom", 1000204)));
}

TEST(init_random, takes_the_low_bits) {
  EXPECT_THAT(seeds_of(mirt::init_random, 0x1'0000'0005, 0x2'0000'0000, 0),
              ElementsAre(seed("srand", 5), seed("srandom", 6)));
  EXPECT_THAT(seeds_of(mirt::init_random, 0xffffffff, 0, 2),
              ElementsAre(seed("srand", 1), seed("srandom", 2)));
}

TEST(foreign_thread, seeds_if_it_is_told_to) {
  EXPECT_THAT(seeds_of([] { mirt::foreign_thread(false); }, 1, 2, 3), IsEmpty());
  EXPECT_THAT(seeds_of([] { mirt::foreign_thread(true); }, 1, 2, 3),
              ElementsAre(seed("srand", 6), seed("srandom", 7)));
}

TEST(init_thread, seeds_with_the_time) {
  EXPECT_THAT(seeds_of(mirt::init_thread, 1709647629, 2, 3), ElementsAre("srand 1709647629"));
}

TEST(start_up, seeds_for_its_own_thread_and_then_for_threads) {
  tests::in_new_process([] {
    const auto seeds = seeds_of([] { new mirt::init(nullptr); }, 1, 2, 3);
    EXPECT_THAT(seeds, ElementsAre(seed("srand", 6), seed("srandom", 7), "srand 1"));
  });
}

}  // namespace
