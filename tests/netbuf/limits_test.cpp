// Buffers that would get more bytes than can be counted: nothing happens, and out of memory it is.
#include <gtest/gtest.h>

#include <memory>
#include <new>
#include <string>

#include "tests/netbuf/tested_buffer.h"

namespace {

using tests::external_memory;
using tests::tested_buffer;

class limits : public tests::buffer_test {
 protected:
  /// A buffer of all the bytes that can be counted but some; nobody looks at them.
  struct huge : tested_buffer {
    explicit huge(tests::face through, std::int32_t less) : tested_buffer(through) {
      static char byte;
      add_external(&byte, netbuf::all - less, false, nullptr, nullptr);
    }
  };
};
INSTANTIATE_TEST_SUITE_P(each, limits, tests::all_settings(), tests::setting_name);

TEST_P(limits, a_buffer_holds_all_the_bytes_that_can_be_counted) {
  for (const bool at_end : {true, false}) {
    huge b(through(), 3);
    b.add("ab", at_end);
    std::memcpy(b.reserve(1, at_end), "c", 1);
    EXPECT_EQ(b.size(), netbuf::all);
    std::string end(3, '.');
    b.read(end.data(), 3, true, at_end);
    EXPECT_EQ(end, at_end ? "abc" : "cab");
    EXPECT_EQ(b.size(), netbuf::all - 3);
  }
}

TEST_P(limits, one_byte_more_is_refused_and_changes_nothing) {
  for (const bool at_end : {true, false}) {
    huge b(through(), 1);
    tested_buffer two(through(), {"a", "b"});
    external_memory memory{"cd"};
    const std::unique_ptr<char[]> array(tested_buffer::alloc_array(2));
    EXPECT_THROW(b.reserve(2, at_end), std::bad_alloc);
    EXPECT_THROW(b.reserve(netbuf::all, at_end), std::bad_alloc);
    EXPECT_THROW(b.reserve_any(2, at_end), std::bad_alloc);
    EXPECT_THROW(b.add_array(array.get(), 2, at_end), std::bad_alloc);
    EXPECT_THROW(b.add_external(memory, true, at_end), std::bad_alloc);
    EXPECT_THROW(b.add_shared(two, at_end), std::bad_alloc);
    EXPECT_THROW(b.add_shared(b, at_end), std::bad_alloc);
    EXPECT_THROW(b.move_from(two, at_end), std::bad_alloc);
    EXPECT_EQ(memory.released, 0);
    EXPECT_EQ(b.views(), 1U);
    EXPECT_EQ(b.size(), netbuf::all - 1);
    EXPECT_EQ(two.bytes(), "ab");
    EXPECT_EQ(two.view(0).chunk->references, 1);
  }
}

TEST_P(limits, ranges_beyond_what_can_be_counted_are_clipped) {
  huge b(through(), 0);
  const tested_buffer end = b.sub(netbuf::all - 2, netbuf::all);
  EXPECT_EQ(end.size(), 2);
  EXPECT_EQ(b.sub(1, netbuf::all).size(), netbuf::all - 1);
  EXPECT_EQ(b.sub(netbuf::all, netbuf::all).size(), 0);
  EXPECT_EQ(b.sub(0, netbuf::all).size(), netbuf::all);
  b.drop(netbuf::all - 1);
  EXPECT_EQ(b.size(), 1);
}

}  // namespace
