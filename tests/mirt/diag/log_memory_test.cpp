// mirt/diag/errlog.h: the memory that folding keeps, and lines that find none.
#include <gtest/gtest.h>

#include <new>
#include <string>

#include "mirt/diag/errlog.h"
#include "mirt/sys/thread.h"
#include "tests/support/allocations.h"
#include "tests/support/new_process.h"

namespace {

const std::string g_bytes(200'000, 'x');
const std::string g_lines[] = {std::string(40, 'a'), std::string(40, 'b')};

/// Holds a line of so many bytes, none of them behind a header. Returns the allocations it took.
long hold(std::size_t length) {
  const char* out;
  std::size_t out_length;
  const tests::allocation_count count;
  mirt::errlog::update_last_string(out, out_length, g_bytes.data(), length, length);
  return count.made();
}

long repeat(char text) {
  const char* out;
  std::size_t out_length;
  const tests::allocation_count count;
  mirt::errlog::update_last_string(out, out_length, g_lines[text - 'a'].data(), 40, 20);
  return count.made();
}

void forget() {
  const char* out;
  std::size_t out_length;
  mirt::errlog::update_last_string(out, out_length, nullptr, 0, 0);
}

TEST(held_line, reuses_a_buffer_of_at_least_64_kib_and_gives_longer_ones_back) {
  forget();
  const struct {
    std::size_t length;
    long allocations;
  } rows[] = {{0, 1},     {1, 0},      {65535, 0}, {65536, 0}, {10, 0},    {65537, 1},
              {65537, 0}, {65538, 1},  {65537, 0}, {65536, 1}, {65536, 0}, {200000, 1},
              {66000, 0}, {199999, 0}, {0, 1},     {65536, 0}};
  for (const auto& row : rows) {
    SCOPED_TRACE(&row - rows);
    EXPECT_EQ(hold(row.length), row.allocations);
  }
}

TEST(held_line, keeps_one_marker_for_a_whole_run) {
  forget();
  hold(1);
  EXPECT_EQ(repeat('a'), 0);
  EXPECT_EQ(repeat('a'), 1);
  EXPECT_EQ(repeat('a'), 0);
  EXPECT_EQ(repeat('a'), 0);
  EXPECT_EQ(repeat('b'), 0);
  EXPECT_EQ(repeat('b'), 1);
}

TEST(held_line, is_given_back_when_the_run_is_forgotten) {
  forget();
  const tests::allocation_count count;
  repeat('a');
  repeat('a');
  EXPECT_EQ(count.live(), 2);
  forget();
  EXPECT_EQ(count.live(), 0);
}

TEST(errlog, passes_on_that_there_is_no_memory_for_a_line) {
  tests::in_new_process([] {
    const std::string prefix = "X/";
    mirt::errlog log("core", true, &prefix);
    const tests::allocation_count count;
    for (const long good : {0, 1}) {
      EXPECT_THROW(
          {
            const tests::failing_allocations failing(good);
            log.log(0, g_bytes.data(), g_bytes.size());
          },
          std::bad_alloc);
    }
    EXPECT_EQ(count.live(), 0);
    EXPECT_EQ(mirt::g_thread_count, -666) << "no line, no writer";
  });
}

}  // namespace
