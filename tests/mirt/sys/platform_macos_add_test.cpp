// Which of the system's calls counts the references to chunks on macOS.
#include <gtest/gtest.h>
#include <time.h>

#include <cstdint>
#include <string>

#define __APPLE__ 1  // after the headers that would follow it to another system
#include "mirt/sys/platform.h"

namespace {

int g_calls = 0;

}  // namespace

extern "C" std::int32_t OSAtomicAdd32Barrier(std::int32_t amount, volatile std::int32_t* number) {
  ++g_calls;
  *number = *number + amount;
  return *number;
}

namespace {

TEST(add_with_barrier_on_macos, leaves_the_work_to_the_system) {
  std::int32_t number = 40;
  EXPECT_EQ(mirt::platform::add_with_barrier(&number, 2), 42);
  EXPECT_EQ(number, 42);
  EXPECT_EQ(mirt::platform::add_with_barrier(&number, -1), 41);
  EXPECT_EQ(number, 41);
  EXPECT_EQ(g_calls, 2);
}

}  // namespace
