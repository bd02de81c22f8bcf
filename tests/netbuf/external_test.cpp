// The operations that add memory of the caller: add_external and add_external_compact.
#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <thread>

#include "tests/netbuf/tested_buffer.h"

namespace {

using tests::external_memory;
using tests::table_call;
using tests::tested_buffer;

constexpr std::int32_t lowest = std::numeric_limits<std::int32_t>::min();

class external : public tests::buffer_test {};
INSTANTIATE_TEST_SUITE_P(each, external, tests::all_settings(), tests::setting_name);

TEST_P(external, memory_is_added_at_either_end_without_a_copy) {
  external_memory first{"ab"}, second{"cde"};
  tested_buffer b(through());
  b.add_external(second);
  b.add_external(first, false, false);
  EXPECT_EQ(b.bytes(), "abcde");
  EXPECT_EQ(b.layout(), "0+2/2 0+3/3");
  EXPECT_EQ(b.view(0).begin(), first.bytes.data());
  EXPECT_EQ(b.view(1).begin(), second.bytes.data());
  EXPECT_EQ(b.view(0).chunk->references, 1);
}

TEST_P(external, memory_of_no_length_goes_back_at_once) {
  for (const std::int32_t length : {0, -1, lowest}) {
    for (const bool at_end : {true, false}) {
      external_memory memory;
      tested_buffer b(through(), {"ab", "c"});
      b.drop(1);  // a wasteful end view, which stays
      b.add_external(nullptr, length, true, external_memory::release, &memory, at_end, true);
      EXPECT_EQ(memory.released, 1);
      b.add_external(nullptr, length, true, nullptr, nullptr, at_end, true);
      EXPECT_EQ(b.layout(), "1+1/2 0+1/1");
    }
  }
}

TEST_P(external, memory_of_no_length_does_not_compact) {
  tested_buffer b(through());
  add_views(b, 129);
  b.add_external(nullptr, 0, true, nullptr, nullptr, true, true);
  EXPECT_EQ(b.views(), 129U);
}

TEST_P(external, memory_without_a_callback_just_goes) {
  char bytes[] = "ab";
  tested_buffer b(through());
  b.add_external(bytes, 2, true, nullptr, nullptr);
  b.drop(2);
  EXPECT_EQ(b.size(), 0);
}

TEST_P(external, memory_is_written_to_only_if_that_was_allowed) {
  for (const bool writable : {true, false}) {
    external_memory memory{"abcd"};
    tested_buffer b(through());
    b.add_external(memory, writable);
    b.drop(2, true);
    std::memcpy(b.reserve(2), "XY", 2);
    EXPECT_EQ(memory.bytes, writable ? "abXY" : "abcd");
    EXPECT_EQ(b.bytes(), "abXY");
  }
}

TEST_P(external, memory_that_fills_half_of_its_chunk_or_less_is_copied_before_more_is_added) {
  const struct {
    std::int32_t capacity, length;
    bool copied;
  } rows[] = {
      {10, 4, true},    {10, 5, true},    {10, 6, false},    {10, 10, false}, {11, 5, true},
      {11, 6, false},   {1, 1, false},    {2, 1, true},      {3, 1, true},    {3, 2, false},
      {400, 199, true}, {400, 200, true}, {400, 201, false},
  };
  for (const auto& row : rows) {
    for (const bool at_end : {true, false}) {
      SCOPED_TRACE(&row - rows);
      external_memory old{std::string(static_cast<std::size_t>(row.capacity), 'o')}, more{"mm"};
      tested_buffer b(through());
      b.add_external(old);
      b.drop(row.capacity - row.length, at_end);
      const std::int32_t offset = at_end ? 0 : row.capacity - row.length;
      b.add_external(more, false, at_end);
      EXPECT_EQ(old.released, row.copied ? 1 : 0);
      // The copy takes a cached block only if that is less than twice its length.
      const std::int32_t cached = block(row.length);
      const std::int32_t room = cached < 2 * row.length ? cached : row.length;
      const std::string kept =
          row.copied ? view(0, row.length, room) : view(offset, row.length, row.capacity);
      EXPECT_EQ(b.layout(), at_end ? kept + " 0+2/2" : "0+2/2 " + kept);
      const std::string bytes(static_cast<std::size_t>(row.length), 'o');
      EXPECT_EQ(b.bytes(), at_end ? bytes + "mm" : "mm" + bytes);
    }
  }
}

TEST_P(external, a_copy_of_a_wasteful_view_is_taken_by_a_limit_of_twice_its_length) {
  const struct {
    std::int32_t length, with_caches;
  } rows[] = {{63, 63},     {64, 64},       {65, 128},      {100, 128},    {128, 128},
              {129, 129},   {255, 255},     {256, 256},     {257, 512},    {1000, 1000},
              {1025, 2048}, {32769, 65536}, {32768, 32768}, {65537, 65537}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.length);
    tested_buffer b(through());
    b.reserve(2 * row.length);
    b.drop(row.length, true);
    add_views(b, 1);
    EXPECT_EQ(b.layout(),
              view(0, row.length, GetParam().caches ? row.with_caches : row.length) + " 0+1/1");
  }
}

TEST_P(external, only_the_view_at_the_chosen_end_is_copied) {
  tested_buffer b(through(), {"abc", "def"});
  b.drop(2);
  b.drop(2, true);
  const tested_buffer keeper = b.sub(0, netbuf::all);
  external_memory more{"m"};
  b.add_external(more);
  EXPECT_EQ(b.layout(), "2+1/3 0+1/1 0+1/1");
  EXPECT_EQ(b.view(0).chunk, keeper.view(0).chunk);
  EXPECT_NE(b.view(1).chunk, keeper.view(1).chunk);
  external_memory less{"l"};
  b.add_external(less, false, false);
  EXPECT_EQ(b.layout(), "0+1/1 0+1/1 0+1/1 0+1/1");
  EXPECT_EQ(b.bytes(), "lcdm");
}

TEST_P(external, a_shared_wasteful_view_is_copied_for_this_buffer_alone) {
  external_memory old{"oooo"}, more{"m"};
  tested_buffer b(through());
  b.add_external(old);
  tested_buffer half = b.sub(1, 2);
  half.add_external(more);
  EXPECT_EQ(half.bytes(), "oom");
  EXPECT_EQ(old.released, 0);
  EXPECT_EQ(b.view(0).chunk->references, 1);
  EXPECT_EQ(b.view(0).begin(), old.bytes.data());
}

TEST_P(external, memory_goes_back_early_when_its_view_became_wasteful) {
  external_memory old{"oooo"}, more{"m"};
  tested_buffer b(through());
  b.add_external(old, true);
  b.drop(2, true);
  EXPECT_EQ(old.released, 0);
  b.add_external(more);
  EXPECT_EQ(old.released, 1);
  b.drop(2);
  EXPECT_EQ(old.released, 1);
}

TEST_P(external, only_the_compact_flag_compacts) {
  for (const bool compact : {false, true}) {
    for (const bool at_end : {false, true}) {
      external_memory one{"x"}, two{"y"};
      tested_buffer b(through());
      add_views(b, 127);
      b.add_external(one, false, at_end, compact);
      EXPECT_EQ(b.views(), 128U);
      b.add_external(two, false, at_end, compact);
      EXPECT_EQ(b.views(), compact ? 1U : 129U);
      EXPECT_EQ(two.released, compact ? 1 : 0);
      EXPECT_EQ(b.bytes(), at_end ? digits(127) + "xy" : "yx" + digits(127));
    }
  }
}

TEST_P(external, the_compact_twin_is_the_same_with_its_flag_set) {
  external_memory first{"ab"}, none;
  tested_buffer b(through());
  table_call<22, void>(b.handle(), first.bytes.data(), 2, 1, 1, external_memory::release,
                       static_cast<void*>(&first));
  EXPECT_EQ(b.layout(), "0+2/2");
  EXPECT_TRUE(b.view(0).chunk->writable());
  table_call<22, void>(b.handle(), static_cast<char*>(nullptr), 0, 0, 0, external_memory::release,
                       static_cast<void*>(&none));
  EXPECT_EQ(none.released, 1);
  add_views(b, 127);
  external_memory last{"z"};
  table_call<22, void>(b.handle(), last.bytes.data(), 1, 0, 0, external_memory::release,
                       static_cast<void*>(&last));
  EXPECT_EQ(b.views(), 1U);
  EXPECT_EQ(b.bytes(), "zab" + digits(127));
  EXPECT_EQ(first.released + last.released, 2);
}

TEST_P(external, memory_goes_back_on_the_thread_that_lets_go_last) {
  static std::thread::id released_on;
  released_on = std::thread::id();
  char bytes[] = "a";
  tested_buffer b(through());
  b.add_external(
      bytes, 1, false, [](void*) { released_on = std::this_thread::get_id(); }, nullptr);
  std::thread::id other;
  std::thread thread([&b, &other] {
    other = std::this_thread::get_id();
    b.drop(1);
  });
  thread.join();
  EXPECT_EQ(released_on, other);
  EXPECT_NE(other, std::thread::id());
}

}  // namespace
