// The operations that only look: size, read, find_byte, compare, and the two placeholders.
#include <gtest/gtest.h>

#include <cstdlib>
#include <limits>
#include <string>

#include "tests/netbuf/tested_buffer.h"

namespace {

using tests::table_call;
using tests::tested_buffer;

constexpr std::int32_t lowest = std::numeric_limits<std::int32_t>::min();

class reading : public tests::buffer_test {};
INSTANTIATE_TEST_SUITE_P(each, reading, tests::all_settings(), tests::setting_name);

TEST_P(reading, read_copies_from_either_end_in_the_buffers_order) {
  const struct {
    std::int32_t count;
    bool from_back;
    const char* result;  // '.' is left as it was
  } rows[] = {
      {1, false, "1......"},          {2, false, "12....."},
      {3, false, "123...."},          {4, false, "1234..."},
      {5, false, "12345.."},          {6, false, "123456."},
      {7, false, "123456."},          {netbuf::all, false, "123456."},
      {0, false, "......."},          {-1, false, "......."},
      {lowest, false, "......."},     {1, true, "6......"},
      {2, true, "56....."},           {3, true, "456...."},
      {4, true, "3456..."},           {5, true, "23456.."},
      {6, true, "123456."},           {7, true, "123456."},
      {netbuf::all, true, "123456."}, {0, true, "......."},
      {-1, true, "......."},          {lowest, true, "......."},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(&row - rows);
    tested_buffer b(through(), {"12", "3", "456"});
    std::string result = ".......";
    b.read(result.data(), row.count, false, row.from_back);
    EXPECT_EQ(result, row.result);
    EXPECT_EQ(b.layout(), "0+2/2 0+1/1 0+3/3");
  }
}

TEST_P(reading, find_byte_gives_the_first_position) {
  const struct {
    char byte;
    std::int32_t limit, position;
  } rows[] = {
      {'a', netbuf::all, 0}, {'b', netbuf::all, 1}, {'c', netbuf::all, 2},
      {'d', netbuf::all, 3}, {'f', netbuf::all, 6}, {'z', netbuf::all, -1},
      {'a', 1, 0},           {'a', 0, -1},          {'a', -1, -1},
      {'a', lowest, -1},     {'c', 2, -1},          {'c', 3, 2},
      {'c', 4, 2},           {'d', 3, -1},          {'d', 4, 3},
      {'d', 5, 3},           {'f', 6, -1},          {'f', 7, 6},
      {'f', 8, 6},
  };
  const tested_buffer b(through(), {"ab", "c", "ddaf"});
  for (const auto& row : rows) {
    SCOPED_TRACE(&row - rows);
    EXPECT_EQ(b.find_byte(static_cast<unsigned char>(row.byte), row.limit), row.position);
  }
}

TEST_P(reading, find_byte_looks_only_at_the_views) {
  tested_buffer b(through(), {"xaby"});
  b.drop(1);
  b.drop(1, true);
  EXPECT_EQ(b.find_byte('x'), -1);
  EXPECT_EQ(b.find_byte('y'), -1);
  EXPECT_EQ(b.find_byte('b'), 1);
}

TEST_P(reading, find_byte_finds_any_byte) {
  for (int byte = 0; byte < 256; ++byte) {
    tested_buffer b(through(), {"-"});
    b.drop(byte == '-');
    b.add(std::string(1, static_cast<char>(byte)));
    EXPECT_EQ(b.find_byte(static_cast<unsigned char>(byte)), byte == '-' ? 0 : 1);
  }
}

TEST_P(reading, find_byte_finds_nothing_in_an_empty_buffer) {
  const tested_buffer b(through());
  for (const std::int32_t limit : {-1, 0, 1, netbuf::all}) EXPECT_EQ(b.find_byte(0, limit), -1);
}

int sign(int number) {
  return (number > 0) - (number < 0);
}

TEST_P(reading, compare_orders_by_the_bytes_and_then_by_the_length) {
  const struct {
    std::string bytes;
    int order;
  } rows[] = {
      {"12", 1},  {"1234", -1}, {"123", 0},   {"1", 1},
      {"", 1},    {"124", -1},  {"122", 1},   {"2", -1},
      {"0", 1},   {"0999", 1},  {"2aaa", -1}, {"122aaa", 1},
      {"13", -1}, {"11", 1},    {"\xff", -1}, {std::string("1\0", 2), 1},
  };
  const tested_buffer b(through(), {"1", "23"});
  for (const auto& row : rows) {
    SCOPED_TRACE(row.bytes);
    const int order = b.compare(row.bytes.data(), static_cast<std::int32_t>(row.bytes.size()));
    EXPECT_EQ(sign(order), row.order);
  }
}

TEST_P(reading, compare_gives_exactly_one_for_a_longer_side_and_0_for_none) {
  const tested_buffer b(through(), {"1", "23"});
  EXPECT_EQ(b.compare("12", 2), 1);
  EXPECT_EQ(b.compare("1234", 4), -1);
  EXPECT_EQ(b.compare("123", 3), 0);
}

TEST_P(reading, compare_gives_the_order_of_the_first_piece_that_differs) {
  const tested_buffer b(through(), {"ab", "cd"});
  EXPECT_LT(b.compare("bbaa", 4), 0);
  EXPECT_GT(b.compare("aazz", 4), 0);
  EXPECT_GT(b.compare("abbz", 4), 0);
  EXPECT_EQ(b.compare("abbz", 4), std::memcmp("cd", "bz", 2));
}

TEST_P(reading, compare_with_nothing) {
  const tested_buffer none(through()), some(through(), {"a"});
  EXPECT_EQ(none.compare(nullptr, 0), 0);
  EXPECT_EQ(none.compare("a", 1), -1);
  EXPECT_EQ(some.compare(nullptr, 0), 1);
  EXPECT_EQ(some.compare(nullptr, -1), 1);
  EXPECT_EQ(none.compare(nullptr, lowest), 1);  // none is still more than a negative number
}

TEST_P(reading, compare_takes_bytes_as_unsigned) {
  const tested_buffer high(through(), {"\xff"}), low(through(), {"\x01"});
  EXPECT_GT(high.compare("\x01", 1), 0);
  EXPECT_LT(low.compare("\xff", 1), 0);
}

TEST(placeholders, do_nothing_and_return_0) {
  int something = 1;
  for (void* any : {static_cast<void*>(nullptr), static_cast<void*>(&something)}) {
    EXPECT_EQ((table_call<12, int>(any)), 0);
    EXPECT_EQ((table_call<21, int>(any)), 0);
  }
}

TEST(free_mem, releases_what_malloc_gave) {
  table_call<13, void>(std::malloc(10));  // a leak search tells if it does not
  table_call<13, void>(static_cast<void*>(nullptr));
}

}  // namespace
