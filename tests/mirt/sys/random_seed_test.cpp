// What the random numbers are seeded from.
#include <gtest/gtest.h>
#include <time.h>
#include <unistd.h>

#include "mirt/sys/random.h"
#include "mirt/sys/thread.h"
#include "tests/support/c_function.h"
#include "tests/support/new_process.h"

namespace {

struct sources {
  time_t time;
  clock_t clock;
  pid_t process;
};

const sources* g_sources = nullptr;  // while set, they stand in for the system's

}  // namespace

extern "C" {

time_t time(time_t* out) noexcept {
  const time_t now = g_sources ? g_sources->time : tests::next<time_t(time_t*)>("time")(nullptr);
  if (out != nullptr) *out = now;
  return now;
}

clock_t clock() noexcept {
  return g_sources ? g_sources->clock : tests::next<clock_t()>("clock")();
}

pid_t getpid() noexcept {
  return g_sources ? g_sources->process : tests::next<pid_t()>("getpid")();
}

}  // extern "C"

namespace {

TEST(init_rand, seeds_by_the_low_bits_of_time_processor_time_thread_and_process) {
  const struct {
    sources from;
    std::uint32_t sum;
  } rows[] = {{{0, 0, 0}, 0},
              {{1000000, 200, 3}, 1000203},
              {{0x1'0000'0005, 0, 0}, 5},
              {{0xffffffff, 0x2'0000'0002, 1}, 2}};
  for (const auto& row : rows) {
    SCOPED_TRACE(&row - rows);
    tests::in_new_process([&row] {
      g_sources = &row.from;
      mirt::init_rand();
      g_sources = nullptr;
      const auto thread = static_cast<std::uint32_t>(mirt::get_current_thread_id());
      EXPECT_EQ(mirt::g_random_state->words[0], row.sum + thread);
    });
  }
}

}  // namespace
