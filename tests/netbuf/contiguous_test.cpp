// The operation that brings bytes together: pullup.
#include <gtest/gtest.h>

#include <limits>
#include <string>

#include "tests/netbuf/tested_buffer.h"

namespace {

using tests::external_memory;
using tests::tested_buffer;

constexpr std::int32_t lowest = std::numeric_limits<std::int32_t>::min();

class contiguous : public tests::buffer_test {
 protected:
  /// Pulls up views of these lengths: external memory, so that what is copied can be told.
  struct pulled {
    std::string layout;
    int released;
    std::int32_t length;
  };
  pulled pull_up(const std::vector<int>& lengths, std::int32_t wanted) {
    std::vector<external_memory> pieces;
    for (const int length : lengths)
      pieces.push_back(
          {std::string(static_cast<std::size_t>(length), static_cast<char>('a' + pieces.size()))});
    tested_buffer b(through());
    for (external_memory& piece : pieces) b.add_external(piece);
    const std::string before = b.bytes();
    const netbuf::span front = b.pullup(wanted);
    EXPECT_EQ(b.bytes(), before);
    EXPECT_EQ(front.data, b.view(0).begin());
    EXPECT_EQ(front.length, b.view(0).length);
    int released = 0;
    for (const external_memory& piece : pieces) released += piece.released;
    return {b.layout(), released, front.length};
  }
};
INSTANTIATE_TEST_SUITE_P(each, contiguous, tests::all_settings(), tests::setting_name);

TEST_P(contiguous, an_empty_buffer_has_no_front) {
  tested_buffer b(through());
  for (const std::int32_t wanted : {lowest, -1, 0, 1, netbuf::all}) {
    const netbuf::span front = b.pullup(wanted);
    EXPECT_EQ(front.data, nullptr);
    EXPECT_EQ(front.length, 0);
  }
}

TEST_P(contiguous, one_view_stays_as_it_is) {
  for (const std::int32_t wanted : {lowest, -1, 0, 1, 4, 5, 6, 10, 11, netbuf::all}) {
    const pulled result = pull_up({5}, wanted);
    EXPECT_EQ(result.layout, "0+5/5");
    EXPECT_EQ(result.released, 0);
  }
}

TEST_P(contiguous, no_more_than_wanted_becomes_one_view) {
  for (const std::int32_t wanted : {6, 7, netbuf::all}) {
    const pulled result = pull_up({1, 2, 3}, wanted);
    EXPECT_EQ(result.layout, view(0, 6, block(6)));
    EXPECT_EQ(result.released, 3);
    EXPECT_EQ(result.length, 6);
  }
}

TEST_P(contiguous, more_than_wanted_gathers_a_run_of_short_views) {
  const struct {
    std::vector<int> lengths;
    std::int32_t wanted;
    int copied;             // views that became the first one
    std::int32_t gathered;  // its length
  } rows[] = {
      {{5, 5, 5}, 8, 0, 5},            // the first is longer than half
      {{5, 5, 5}, 9, 0, 5},            // half of 9 is 4
      {{5, 5, 5}, 10, 2, 10},          // exactly half; the second one reaches what is wanted
      {{5, 5, 5}, 11, 3, 15},          // half is 5; two make 10, the third passes 11
      {{5, 5, 5}, 14, 3, 15},          //
      {{4, 5, 5}, 10, 3, 14},          // 9 is not yet enough: half again as much at the most
      {{4, 6, 5}, 10, 1, 4},           // the second is too long: a run of the first alone
      {{1, 1, 6, 5}, 10, 2, 2},        // a run ends before a long one
      {{1, 1, 5, 5, 5}, 10, 4, 12},    //
      {{1, 1, 1, 1}, 2, 2, 2},         //
      {{1, 1, 1, 1}, 3, 3, 3},         // half of 3 is 1
      {{1, 2, 1, 1}, 3, 1, 1},         //
      {{1, 1}, 1, 0, 1},               // half of 1 is 0
      {{1, 1}, 0, 0, 1},               //
      {{1, 1}, -1, 0, 1},              //
      {{1, 1}, lowest, 0, 1},          //
      {{3, 3}, 5, 0, 3},               //
      {{100, 100, 100}, 200, 2, 200},  //
      {{100, 100, 100}, 201, 3, 300},  //
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(&row - rows);
    const pulled result = pull_up(row.lengths, row.wanted);
    EXPECT_EQ(result.released, row.copied);
    EXPECT_EQ(result.length, row.gathered);
    const auto copied = static_cast<std::size_t>(row.copied);
    std::string layout = copied == 0 ? "" : view(0, row.gathered, block(row.gathered));
    for (std::size_t i = copied; i < row.lengths.size(); ++i) {
      if (!layout.empty()) layout += ' ';
      layout += view(0, row.lengths[i], row.lengths[i]);
    }
    EXPECT_EQ(result.layout, layout);
  }
}

TEST_P(contiguous, a_run_of_the_first_view_alone_is_copied_again_each_time) {
  external_memory first{"ab"}, second{"cdefgh"};
  tested_buffer b(through());
  b.add_external(first);
  b.add_external(second);
  char* const copy = b.pullup(4).data;
  EXPECT_EQ(first.released, 1);
  const tested_buffer keeper = b.sub(0, 2);  // so that the block cannot come back
  EXPECT_NE(b.pullup(4).data, copy);
}

TEST_P(contiguous, what_others_share_stays_with_them) {
  tested_buffer b(through(), {"ab", "cd"});
  const tested_buffer other = b.sub(1, 2);
  b.pullup(netbuf::all);
  EXPECT_EQ(other.layout(), "1+1/2 0+1/2");
  EXPECT_EQ(other.bytes(), "bc");
  EXPECT_EQ(other.view(0).chunk->references, 1);
}

TEST_P(contiguous, the_joined_chunk_grows_on) {
  tested_buffer b(through(), {"ab", "cd"});
  b.pullup(netbuf::all);
  b.reserve(3);
  EXPECT_EQ(b.views(), GetParam().caches ? 1U : 2U);
}

TEST_P(contiguous, only_the_viewed_bytes_are_joined) {
  tested_buffer b(through(), {"xab", "cdy"});
  b.drop(1);
  b.drop(1, true);
  EXPECT_EQ(std::string(b.pullup(4).data, 4), "abcd");
}

}  // namespace
