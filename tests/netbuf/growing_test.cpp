// The operations that make a buffer grow by bytes of its own: alloc_array, add_array, reserve and
// reserve_any.
#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <string>

#include "tests/netbuf/tested_buffer.h"
#include "tests/support/allocations.h"

namespace {

using tests::external_memory;
using tests::tested_buffer;

constexpr std::int32_t lowest = std::numeric_limits<std::int32_t>::min();

class growing : public tests::buffer_test {};
INSTANTIATE_TEST_SUITE_P(each, growing, tests::all_settings(), tests::setting_name);

TEST_P(growing, create_makes_an_empty_buffer) {
  const tested_buffer b(through());
  EXPECT_EQ(b.size(), 0);
  EXPECT_EQ(b.views(), 0U);
}

TEST_P(growing, alloc_array_gives_as_many_bytes_and_none_for_less_than_one) {
  for (const std::int32_t count : {lowest, -1, 0}) {
    EXPECT_EQ(tested_buffer::alloc_array(count), nullptr);
    EXPECT_EQ(netbuf::buffer::alloc_array(count), nullptr);
  }
  for (const std::int32_t count : {1, 2, 70000}) {
    const std::unique_ptr<char[]> array(tested_buffer::alloc_array(count));
    std::memset(array.get(), 'a', static_cast<std::size_t>(count));
  }
}

TEST_P(growing, add_array_adopts_the_array_at_either_end) {
  tested_buffer b(through());
  char* const array = tested_buffer::alloc_array(3);
  std::memcpy(array, "bcd", 3);
  b.add_array(array, 3);
  EXPECT_EQ(b.view(0).begin(), array);
  b.add("ef");
  b.add("a", false);
  EXPECT_EQ(b.bytes(), "abcdef");
  EXPECT_EQ(b.layout(), "0+1/1 0+3/3 0+2/2");
  EXPECT_EQ(b.view(1).chunk->references, 1);
}

TEST_P(growing, add_array_frees_an_array_of_no_length_at_once) {
  tested_buffer b(through(), {"x"});
  for (const std::int32_t length : {0, -1, lowest}) {
    const tests::allocation_count count;
    b.add_array(tested_buffer::alloc_array(1), length);
    EXPECT_EQ(count.made(), 1);
    EXPECT_EQ(count.live(), 0);
    b.add_array(nullptr, length, false);
  }
  EXPECT_EQ(b.layout(), "0+1/1");
}

TEST_P(growing, add_array_frees_the_array_with_its_last_view) {
  const tests::allocation_count count;
  {
    tested_buffer b(through(), {"abc"});
    const tested_buffer shared = b.sub(1, 1);
    b.drop(3);
    EXPECT_EQ(shared.bytes(), "b");
  }
  EXPECT_EQ(count.live(), 0);
}

TEST_P(growing, reserve_of_less_than_one_byte_does_nothing) {
  tested_buffer b(through(), {"ab"});
  for (const std::int32_t count : {0, -1, lowest}) {
    EXPECT_EQ(b.reserve(count), nullptr);
    EXPECT_EQ(b.reserve(count, false), nullptr);
  }
  EXPECT_EQ(b.layout(), "0+2/2");
}

TEST_P(growing, reserve_takes_further_bytes_from_the_same_chunk) {
  tested_buffer b(through());
  char* const first = b.reserve(10);
  EXPECT_EQ(b.layout(), view(0, 10, block(130)));
  EXPECT_EQ(first, b.view(0).begin());
  EXPECT_EQ(b.reserve(10), first + 10);
  EXPECT_EQ(b.layout(), view(0, 20, block(130)));
  EXPECT_EQ(b.size(), 20);
}

TEST_P(growing, reserve_in_front_starts_at_the_chunks_end) {
  tested_buffer b(through());
  const std::int32_t end = block(130);
  char* const first = b.reserve(10, false);
  EXPECT_EQ(b.layout(), view(end - 10, 10, end));
  EXPECT_EQ(first, b.view(0).begin());
  EXPECT_EQ(b.reserve(3, false), first - 3);
  EXPECT_EQ(b.layout(), view(end - 13, 13, end));
}

TEST_P(growing, reserve_makes_a_chunk_by_the_views_and_the_size) {
  static char bytes[5 << 20];
  const struct {
    int views;
    std::int32_t size, count, wanted;
  } rows[] = {
      {0, 0, 1, 128},
      {0, 0, 3, 128},
      {0, 0, 4, 129},
      {0, 0, 170, 170},
      {0, 0, 171, 171},
      {1, 1, 2, 256},
      {1, 1, 3, 257},
      {1, 397, 2, 355},
      {1, 397, 3, 356},
      {2, 11, 4, 387},
      {2, 11, 5, 388},
      {3, 402, 100, 637},
      {3, 402, 5000, 5000},
      {1, 4193278, 1, 1048575},
      {1, 4193279, 1, 1048576},
      {1, 4193283, 1, 1048576},
      {1, 5000000, 1048575, 1048576},
      {1, 5000000, 1048576, 1048576},
      {1, 5000000, 1048577, 1048577},
  };
  for (const auto& row : rows) {
    for (const bool at_end : {true, false}) {
      SCOPED_TRACE(&row - rows);
      tested_buffer b(through());
      // All views but the first are of one byte.
      const std::int32_t first = row.size - (row.views - 1);
      if (row.views > 0) b.add_external(bytes, first, false, nullptr, nullptr);
      add_views(b, row.views - 1);
      b.reserve(row.count, at_end);
      const netbuf_imp::view& made = b.view(at_end ? b.views() - 1 : 0);
      EXPECT_EQ(made.chunk->capacity, block(row.wanted));
      EXPECT_EQ(made.length, row.count);
      EXPECT_EQ(made.offset, at_end ? 0 : made.chunk->capacity - row.count);
    }
  }
}

TEST_P(growing, reserve_takes_a_tail_that_is_just_long_enough) {
  for (const std::int32_t count : {2, 3, 4}) {
    SCOPED_TRACE(count);
    external_memory memory{"abcdefgh"};
    tested_buffer b(through());
    b.add_external(memory, true);
    b.drop(3, true);
    char* const at = b.reserve(count);
    EXPECT_EQ(b.views(), count <= 3 ? 1U : 2U);
    EXPECT_EQ(at == memory.bytes.data() + 5, count <= 3);
    EXPECT_EQ(b.size(), 5 + count);
  }
}

TEST_P(growing, reserve_takes_room_in_front_that_is_just_long_enough) {
  for (const std::int32_t count : {2, 3, 4}) {
    SCOPED_TRACE(count);
    external_memory memory{"abcdefgh"};
    tested_buffer b(through());
    b.add_external(memory, true);
    b.drop(3);
    char* const at = b.reserve(count, false);
    EXPECT_EQ(b.views(), count <= 3 ? 1U : 2U);
    EXPECT_EQ(at == memory.bytes.data() + 3 - count, count <= 3);
    EXPECT_EQ(b.view(b.views() - 1).begin() + b.view(b.views() - 1).length,
              memory.bytes.data() + 8);
  }
}

TEST_P(growing, reserve_looks_at_the_chosen_end_alone) {
  external_memory memory{"abcdefgh"};
  tested_buffer b(through());
  b.add_external(memory, true);
  b.drop(2);
  b.drop(2, true);
  b.add("z");
  b.reserve(1);  // the room in front and inside is of no use
  EXPECT_EQ(b.layout(), "2+4/8 0+1/1 " + view(0, 1, block(128 * 2 + 6 / 4 + 128)));
}

TEST_P(growing, reserve_leaves_shared_and_read_only_chunks_alone) {
  for (const bool at_end : {true, false}) {
    external_memory memory{"abcdefgh"};
    tested_buffer shared(through()), fixed(through());
    shared.add_external(memory, true);
    fixed.add_external(memory, false);
    for (tested_buffer* b : {&shared, &fixed}) {
      b->drop(3, at_end);
      const tested_buffer other = b->sub(0, b == &shared ? 1 : 0);
      b->reserve(1, at_end);
      EXPECT_EQ(b->views(), 2U);
      b->drop(1, at_end);
      const netbuf::span any = b->reserve_any(2, at_end);
      EXPECT_EQ(any.length, 2);
      EXPECT_EQ(b->views(), 2U);
    }
  }
}

TEST_P(growing, reserve_uses_a_chunk_again_once_it_is_no_longer_shared) {
  tested_buffer b(through());
  b.reserve(10);
  { const tested_buffer other = b.sub(0, 5); }
  b.reserve(10);
  EXPECT_EQ(b.views(), 1U);
}

TEST_P(growing, reserve_any_of_less_than_one_byte_gives_nothing) {
  tested_buffer b(through(), {"ab"});
  for (const std::int32_t count : {0, -1, lowest}) {
    for (const bool at_end : {true, false}) {
      const netbuf::span any = b.reserve_any(count, at_end);
      EXPECT_EQ(any.data, nullptr);
      EXPECT_EQ(any.length, 0);
    }
  }
  EXPECT_EQ(b.layout(), "0+2/2");
}

TEST_P(growing, reserve_any_takes_the_whole_tail_whatever_was_asked_for) {
  for (const std::int32_t count : {1, 3, 100}) {
    external_memory memory{"abcdefgh"};
    tested_buffer b(through());
    b.add_external(memory, true);
    b.drop(3, true);
    const netbuf::span any = b.reserve_any(count);
    EXPECT_EQ(any.data, memory.bytes.data() + 5);
    EXPECT_EQ(any.length, 3);
    EXPECT_EQ(b.layout(), "0+8/8");
  }
}

TEST_P(growing, reserve_any_takes_the_whole_room_in_front_whatever_was_asked_for) {
  for (const std::int32_t count : {1, 3, 100}) {
    external_memory memory{"abcdefgh"};
    tested_buffer b(through());
    b.add_external(memory, true);
    b.drop(3);
    const netbuf::span any = b.reserve_any(count, false);
    EXPECT_EQ(any.data, memory.bytes.data());
    EXPECT_EQ(any.length, 3);
    EXPECT_EQ(b.layout(), "0+8/8");
  }
}

TEST_P(growing, reserve_any_without_room_makes_a_chunk_for_the_count) {
  for (const std::int32_t count : {1, 127, 128, 129, 65537}) {
    for (const bool at_end : {true, false}) {
      SCOPED_TRACE(count);
      tested_buffer b(through(), {"ab"});
      const netbuf::span any = b.reserve_any(count, at_end);
      const std::int32_t end = block(count);
      const std::string made = view(at_end ? 0 : end - count, count, end);
      EXPECT_EQ(b.layout(), at_end ? "0+2/2 " + made : made + " 0+2/2");
      EXPECT_EQ(any.data, b.view(at_end ? 1 : 0).begin());
      EXPECT_EQ(any.length, count);
    }
  }
}

TEST_P(growing, what_reserve_any_did_not_need_goes_back_by_drop) {
  tested_buffer b(through());
  const netbuf::span any = b.reserve_any(100);
  std::memcpy(any.data, "abc", 3);
  b.drop(any.length - 3, true);
  EXPECT_EQ(b.bytes(), "abc");
  EXPECT_EQ(b.reserve_any(1).data, any.data + 3);
}

TEST_P(growing, reserving_compacts_129_views_first_and_lets_128_be) {
  for (const int views : {127, 128, 129, 130}) {
    for (const bool any : {false, true}) {
      SCOPED_TRACE(std::to_string(views) + (any ? " any" : ""));
      tested_buffer b(through());
      add_views(b, views);
      if (any) {
        b.reserve_any(200);
      } else {
        b.reserve(200000);  // more than any tail has
      }
      // Compacted with caches, the chunk has a tail that reserve_any takes.
      const bool tail = any && views >= 129 && block(views) > views;
      EXPECT_EQ(b.views(), views < 129 ? static_cast<std::size_t>(views) + 1 : tail ? 1U : 2U);
      EXPECT_EQ(b.bytes().substr(0, static_cast<std::size_t>(views)), digits(views));
    }
  }
}

TEST_P(growing, reserving_nothing_does_not_compact) {
  tested_buffer b(through());
  add_views(b, 130);
  b.reserve(0);
  b.reserve_any(0);
  EXPECT_EQ(b.views(), 130U);
}

TEST_P(growing, add_array_compacts_when_it_brings_the_129th_view) {
  for (const bool at_end : {true, false}) {
    tested_buffer b(through());
    add_views(b, 127);
    b.add("x", at_end);
    EXPECT_EQ(b.views(), 128U);
    b.add("y", at_end);
    EXPECT_EQ(b.layout(), view(0, 129, block(129)));
    EXPECT_EQ(b.bytes(), at_end ? digits(127) + "xy" : "yx" + digits(127));
  }
}

}  // namespace
