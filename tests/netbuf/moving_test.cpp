// The operation that moves all views of one buffer to another: move_buffer.
#include <gtest/gtest.h>

#include <string>

#include "tests/netbuf/tested_buffer.h"

namespace {

using tests::external_memory;
using tests::tested_buffer;

class moving : public tests::buffer_test {};
INSTANTIATE_TEST_SUITE_P(each, moving, tests::all_settings(), tests::setting_name);

TEST_P(moving, appends_all_views_in_order_and_empties_the_source) {
  tested_buffer to(through(), {"ab"}), from(through(), {"c", "de"});
  const netbuf_imp::chunk* const chunk = from.view(1).chunk;
  to.move_from(from);
  EXPECT_EQ(to.bytes(), "abcde");
  EXPECT_EQ(to.layout(), "0+2/2 0+1/1 0+2/2");
  EXPECT_EQ(to.view(2).chunk, chunk);
  EXPECT_EQ(chunk->references, 1);
  EXPECT_EQ(from.size(), 0);
  EXPECT_EQ(from.views(), 0U);
}

TEST_P(moving, to_the_front_keeps_the_order) {
  tested_buffer to(through(), {"de"}), from(through(), {"a", "bc"});
  to.move_from(from, false);
  EXPECT_EQ(to.bytes(), "abcde");
  EXPECT_EQ(to.layout(), "0+1/1 0+2/2 0+2/2");
  EXPECT_EQ(from.views(), 0U);
}

TEST_P(moving, to_an_empty_buffer_takes_everything) {
  for (const int views : {1, 4, 5, 100}) {
    for (const bool at_end : {true, false}) {
      tested_buffer to(through()), from(through());
      add_views(from, views);
      to.move_from(from, at_end);
      EXPECT_EQ(to.bytes(), digits(views));
      EXPECT_EQ(to.views(), static_cast<std::size_t>(views));
      EXPECT_EQ(from.views(), 0U);
      EXPECT_EQ(from.size(), 0);
    }
  }
}

TEST_P(moving, an_empty_buffer_changes_nothing) {
  for (const bool at_end : {true, false}) {
    tested_buffer to(through(), {"ab"}), from(through()), empty(through());
    to.move_from(from, at_end);
    EXPECT_EQ(to.layout(), "0+2/2");
    empty.move_from(from, at_end);
    EXPECT_EQ(empty.size(), 0);
  }
}

TEST_P(moving, leaves_a_source_that_can_be_used_again) {
  tested_buffer to(through(), {"a"}), from(through(), {"b"});
  to.move_from(from);
  from.add("c");
  to.move_from(from);
  from.add("d");
  EXPECT_EQ(to.bytes(), "abc");
  EXPECT_EQ(from.bytes(), "d");
}

TEST_P(moving, into_itself_moves_nothing) {
  for (const bool at_end : {true, false}) {
    tested_buffer b(through(), {"ab", "c"});
    b.move_from(b, at_end);
    EXPECT_EQ(b.layout(), "0+2/2 0+1/1");
  }
}

TEST_P(moving, compacts_a_destination_of_129_views) {
  for (const bool at_end : {true, false}) {
    tested_buffer to(through()), from(through(), {"x"});
    add_views(to, 127);
    to.move_from(from, at_end);
    EXPECT_EQ(to.views(), 128U);
    from.add("y");
    to.move_from(from, at_end);
    EXPECT_EQ(to.layout(), view(0, 129, block(129)));
    EXPECT_EQ(to.bytes(), at_end ? digits(127) + "xy" : "yx" + digits(127));
  }
}

TEST_P(moving, compacts_the_destination_also_for_an_empty_or_the_same_source) {
  tested_buffer empty(through()), first(through()), second(through());
  add_views(first, 129);
  first.move_from(empty);
  EXPECT_EQ(first.views(), 1U);
  add_views(second, 129);
  second.move_from(second);
  EXPECT_EQ(second.views(), 1U);
  EXPECT_EQ(second.bytes(), digits(129));
}

TEST_P(moving, to_an_empty_buffer_compacts_what_it_took) {
  tested_buffer to(through()), from(through());
  add_views(from, 129);
  to.move_from(from);
  EXPECT_EQ(to.views(), 1U);
  EXPECT_EQ(to.bytes(), digits(129));
}

TEST_P(moving, releases_nothing) {
  external_memory memory{"ab"};
  {
    tested_buffer to(through(), {"x"});
    {
      tested_buffer from(through());
      from.add_external(memory);
      to.move_from(from);
    }
    EXPECT_EQ(memory.released, 0);
  }
  EXPECT_EQ(memory.released, 1);
}

}  // namespace
