// The operations that share bytes between buffers: sub and add_shared.
#include <gtest/gtest.h>

#include <limits>
#include <string>

#include "tests/netbuf/tested_buffer.h"

namespace {

using tests::tested_buffer;

constexpr std::int32_t lowest = std::numeric_limits<std::int32_t>::min();
constexpr std::int32_t all = netbuf::all;

class sharing : public tests::buffer_test {};
INSTANTIATE_TEST_SUITE_P(each, sharing, tests::all_settings(), tests::setting_name);

TEST_P(sharing, sub_shares_the_pieces_of_the_range) {
  const struct {
    std::int32_t offset, length;
    const char* layout;
    const char* bytes;
  } rows[] = {
      {0, all, "0+3/3 0+1/1 0+4/4", "abcdefgh"},
      {0, 8, "0+3/3 0+1/1 0+4/4", "abcdefgh"},
      {0, 9, "0+3/3 0+1/1 0+4/4", "abcdefgh"},
      {0, 7, "0+3/3 0+1/1 0+3/4", "abcdefg"},
      {0, 1, "0+1/3", "a"},
      {0, 3, "0+3/3", "abc"},
      {0, 4, "0+3/3 0+1/1", "abcd"},
      {1, 1, "1+1/3", "b"},
      {1, 2, "1+2/3", "bc"},
      {1, 3, "1+2/3 0+1/1", "bcd"},
      {1, all, "1+2/3 0+1/1 0+4/4", "bcdefgh"},
      {2, 3, "2+1/3 0+1/1 0+1/4", "cde"},
      {3, 1, "0+1/1", "d"},
      {3, 2, "0+1/1 0+1/4", "de"},
      {4, 2, "0+2/4", "ef"},
      {5, 2, "1+2/4", "fg"},
      {5, 3, "1+3/4", "fgh"},
      {5, 4, "1+3/4", "fgh"},
      {5, all, "1+3/4", "fgh"},
      {7, all, "3+1/4", "h"},
      {8, all, "", ""},
      {9, 1, "", ""},
      {all, all, "", ""},
      {0, 0, "", ""},
      {3, 0, "", ""},
      {0, -1, "", ""},
      {3, lowest, "", ""},
      {-1, 2, "0+2/3", "ab"},
      {lowest, all, "0+3/3 0+1/1 0+4/4", "abcdefgh"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(std::to_string(row.offset) + " " + std::to_string(row.length));
    const tested_buffer b(through(), {"abc", "d", "efgh"});
    const tested_buffer result = b.sub(row.offset, row.length);
    EXPECT_EQ(result.layout(), row.layout);
    EXPECT_EQ(result.bytes(), row.bytes);
    EXPECT_EQ(b.bytes(), "abcdefgh");
    EXPECT_EQ(b.layout(), "0+3/3 0+1/1 0+4/4");
  }
}

TEST_P(sharing, sub_holds_a_reference_on_each_chunk_that_it_reaches) {
  const tested_buffer b(through(), {"abc", "d", "efgh"});
  const tested_buffer result = b.sub(3, 2);
  EXPECT_EQ(result.view(0).chunk, b.view(1).chunk);
  EXPECT_EQ(result.view(1).chunk, b.view(2).chunk);
  EXPECT_EQ(b.view(0).chunk->references, 1);
  EXPECT_EQ(b.view(1).chunk->references, 2);
  EXPECT_EQ(b.view(2).chunk->references, 2);
}

TEST_P(sharing, sub_of_views_in_the_middle_of_their_chunks_adds_to_their_offsets) {
  tested_buffer b(through(), {"abcdef"});
  b.drop(2);
  b.drop(1, true);
  EXPECT_EQ(b.sub(0, all).layout(), "2+3/6");
  EXPECT_EQ(b.sub(1, 1).layout(), "3+1/6");
}

TEST_P(sharing, sub_of_an_empty_buffer_is_empty) {
  const tested_buffer b(through());
  for (const std::int32_t offset : {-1, 0, 1}) EXPECT_EQ(b.sub(offset, all).size(), 0);
}

TEST_P(sharing, sub_compacts_a_result_of_129_views) {
  tested_buffer b(through());
  add_views(b, 130);
  EXPECT_EQ(b.sub(1, 128).views(), 128U);
  EXPECT_EQ(b.sub(1, 129).layout(), view(0, 129, block(129)));
  EXPECT_EQ(b.sub(1, 129).bytes(), digits(130).substr(1));
  EXPECT_EQ(b.sub(0, all).layout(), view(0, 130, block(130)));
  EXPECT_EQ(b.views(), 130U);
}

TEST_P(sharing, add_shared_appends_all_views_in_order) {
  const tested_buffer from(through(), {"cd", "e"});
  tested_buffer to(through(), {"ab"});
  to.add_shared(from);
  EXPECT_EQ(to.bytes(), "abcde");
  EXPECT_EQ(to.layout(), "0+2/2 0+2/2 0+1/1");
  EXPECT_EQ(from.bytes(), "cde");
  EXPECT_EQ(to.view(1).chunk, from.view(0).chunk);
  EXPECT_EQ(from.view(0).chunk->references, 2);
}

TEST_P(sharing, add_shared_in_front_keeps_the_order) {
  const tested_buffer from(through(), {"a", "bc", "d"});
  tested_buffer to(through(), {"ef"});
  to.add_shared(from, false);
  EXPECT_EQ(to.bytes(), "abcdef");
  EXPECT_EQ(to.layout(), "0+1/1 0+2/2 0+1/1 0+2/2");
  EXPECT_EQ(from.layout(), "0+1/1 0+2/2 0+1/1");
}

TEST_P(sharing, add_shared_of_nothing_or_to_nothing) {
  const tested_buffer none(through()), some(through(), {"ab"});
  tested_buffer to(through());
  to.add_shared(none);
  EXPECT_EQ(to.size(), 0);
  to.add_shared(some, false);
  to.add_shared(none, false);
  EXPECT_EQ(to.layout(), "0+2/2");
}

TEST_P(sharing, add_shared_to_itself_doubles_it) {
  for (const bool at_end : {true, false}) {
    tested_buffer b(through(), {"ab", "c", "d"});
    b.add_shared(b, at_end);
    EXPECT_EQ(b.bytes(), "abcdabcd");
    EXPECT_EQ(b.layout(), "0+2/2 0+1/1 0+1/1 0+2/2 0+1/1 0+1/1");
    for (std::size_t i = 0; i < 6; ++i) EXPECT_EQ(b.view(i).chunk->references, 2);
  }
}

TEST_P(sharing, add_shared_to_itself_grows_beyond_the_room_of_its_queue) {
  for (const bool at_end : {true, false}) {
    tested_buffer b(through());
    add_views(b, 10);
    b.drop(3);
    b.add_shared(b, at_end);
    b.add_shared(b, at_end);
    EXPECT_EQ(b.bytes(), "3456789345678934567893456789");
  }
}

TEST_P(sharing, add_shared_compacts_129_views_and_leaves_the_source) {
  for (const bool at_end : {true, false}) {
    tested_buffer from(through()), to(through(), {"x"});
    add_views(from, 127);
    to.add_shared(from, at_end);
    EXPECT_EQ(to.views(), 128U);
    tested_buffer again(through(), {"xy", "z"});
    again.add_shared(from, at_end);
    EXPECT_EQ(again.layout(), view(0, 130, block(130)));
    EXPECT_EQ(again.bytes(), at_end ? "xyz" + digits(127) : digits(127) + "xyz");
    EXPECT_EQ(from.views(), 127U);
  }
}

TEST_P(sharing, add_shared_of_nothing_still_checks_for_129_views) {
  const tested_buffer none(through());
  tested_buffer b(through());
  add_views(b, 129);
  b.add_shared(none);
  EXPECT_EQ(b.views(), 1U);
}

TEST_P(sharing, changes_of_one_buffer_do_not_reach_the_other) {
  tested_buffer b(through());
  std::memcpy(b.reserve(4), "abcd", 4);
  tested_buffer other = b.sub(0, 2);
  std::memcpy(other.reserve(2), "XY", 2);
  std::memcpy(b.reserve(2), "ef", 2);
  EXPECT_EQ(b.bytes(), "abcdef");
  EXPECT_EQ(other.bytes(), "abXY");
}

}  // namespace
