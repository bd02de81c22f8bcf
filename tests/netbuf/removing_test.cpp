// The operations that take bytes out of a buffer: drop, read that consumes, and destroy.
#include <gtest/gtest.h>

#include <limits>
#include <string>

#include "tests/netbuf/tested_buffer.h"

namespace {

using tests::external_memory;
using tests::tested_buffer;

constexpr std::int32_t lowest = std::numeric_limits<std::int32_t>::min();

class removing : public tests::buffer_test {};
INSTANTIATE_TEST_SUITE_P(each, removing, tests::all_settings(), tests::setting_name);

struct row {
  std::int32_t count;
  const char* layout;
  const char* bytes;
};

const row from_front[] = {
    {lowest, "0+3/3 0+1/1 0+4/4", "abcdefgh"},
    {-1, "0+3/3 0+1/1 0+4/4", "abcdefgh"},
    {0, "0+3/3 0+1/1 0+4/4", "abcdefgh"},
    {1, "1+2/3 0+1/1 0+4/4", "bcdefgh"},
    {2, "2+1/3 0+1/1 0+4/4", "cdefgh"},
    {3, "0+1/1 0+4/4", "defgh"},
    {4, "0+4/4", "efgh"},
    {5, "1+3/4", "fgh"},
    {7, "3+1/4", "h"},
    {8, "", ""},
    {9, "", ""},
    {netbuf::all, "", ""},
};

const row from_back[] = {
    {lowest, "0+3/3 0+1/1 0+4/4", "abcdefgh"},
    {-1, "0+3/3 0+1/1 0+4/4", "abcdefgh"},
    {0, "0+3/3 0+1/1 0+4/4", "abcdefgh"},
    {1, "0+3/3 0+1/1 0+3/4", "abcdefg"},
    {3, "0+3/3 0+1/1 0+1/4", "abcde"},
    {4, "0+3/3 0+1/1", "abcd"},
    {5, "0+3/3", "abc"},
    {6, "0+2/3", "ab"},
    {7, "0+1/3", "a"},
    {8, "", ""},
    {9, "", ""},
    {netbuf::all, "", ""},
};

TEST_P(removing, drop_takes_bytes_from_the_front) {
  for (const row& r : from_front) {
    SCOPED_TRACE(r.count);
    tested_buffer b(through(), {"abc", "d", "efgh"});
    b.drop(r.count);
    EXPECT_EQ(b.layout(), r.layout);
    EXPECT_EQ(b.bytes(), r.bytes);
  }
}

TEST_P(removing, drop_takes_bytes_from_the_back) {
  for (const row& r : from_back) {
    SCOPED_TRACE(r.count);
    tested_buffer b(through(), {"abc", "d", "efgh"});
    b.drop(r.count, true);
    EXPECT_EQ(b.layout(), r.layout);
    EXPECT_EQ(b.bytes(), r.bytes);
  }
}

TEST_P(removing, read_that_consumes_removes_what_it_copied) {
  for (const bool back : {false, true}) {
    for (const row& r : back ? from_back : from_front) {
      SCOPED_TRACE(r.count);
      tested_buffer b(through(), {"abc", "d", "efgh"});
      char copied[9] = "";
      b.read(copied, r.count, true, back);
      EXPECT_EQ(b.layout(), r.layout);
      EXPECT_EQ(back ? b.bytes() + copied : copied + b.bytes(), "abcdefgh");
    }
  }
}

TEST_P(removing, nothing_comes_out_of_an_empty_buffer) {
  tested_buffer b(through());
  char untouched = 'u';
  for (const bool back : {false, true}) {
    for (const std::int32_t count : {lowest, -1, 0, 1, netbuf::all}) {
      b.drop(count, back);
      b.read(&untouched, count, true, back);
      EXPECT_EQ(b.size(), 0);
    }
  }
  EXPECT_EQ(untouched, 'u');
}

TEST_P(removing, an_emptied_buffer_is_as_good_as_new) {
  tested_buffer b(through(), {"abc"});
  b.drop(3);
  b.reserve(10);
  EXPECT_EQ(b.layout(), view(0, 10, block(130)));
}

TEST_P(removing, external_memory_goes_back_once_with_its_last_byte) {
  for (const bool back : {false, true}) {
    external_memory memory{"abcd"};
    tested_buffer b(through());
    b.add_external(memory);
    b.drop(3, back);
    EXPECT_EQ(memory.released, 0);
    b.drop(1, back);
    EXPECT_EQ(memory.released, 1);
    b.drop(1, back);
    EXPECT_EQ(memory.released, 1);
  }
}

TEST_P(removing, external_memory_goes_back_with_the_last_buffer_that_shares_it) {
  external_memory memory{"abcd"};
  tested_buffer b(through());
  b.add_external(memory);
  {
    const tested_buffer first = b.sub(0, 2), second = first.sub(1, 1);
    b.drop(4);
    EXPECT_EQ(memory.released, 0);
    EXPECT_EQ(first.bytes() + second.bytes(), "abb");
  }
  EXPECT_EQ(memory.released, 1);
}

TEST_P(removing, destroy_gives_every_reference_back) {
  external_memory first{"ab"}, second{"cd"};
  {
    tested_buffer b(through());
    b.add_external(first);
    b.add_external(second);
    b.add_shared(b);
    EXPECT_EQ(b.view(0).chunk->references, 2);
  }
  EXPECT_EQ(first.released, 1);
  EXPECT_EQ(second.released, 1);
}

TEST_P(removing, a_partly_dropped_view_keeps_its_chunk) {
  tested_buffer b(through(), {"abc"});
  const netbuf_imp::chunk* const chunk = b.view(0).chunk;
  b.drop(1);
  b.drop(1, true);
  EXPECT_EQ(b.view(0).chunk, chunk);
  EXPECT_EQ(b.layout(), "1+1/3");
  EXPECT_EQ(chunk->references, 1);
}

}  // namespace
