// The operations on iterators, and the typed face's walk over the pieces.
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "tests/netbuf/tested_buffer.h"
#include "tests/support/allocations.h"

namespace {

using tests::table_call;
using tests::tested_buffer;

class iterating : public tests::buffer_test {};
INSTANTIATE_TEST_SUITE_P(each, iterating, tests::all_settings(), tests::setting_name);

void* begin(const tested_buffer& b) {
  return table_call<15, void*>(b.handle());
}
bool valid(void* iterator) {
  return table_call<17, bool>(iterator);
}
void next(void* iterator) {
  table_call<19, void>(iterator);
}
void release(void* iterator) {
  table_call<14, void>(iterator);
}
std::string get(void* iterator) {
  char* data = nullptr;
  std::int32_t length = -1;
  const auto result = table_call<18, std::int32_t>(iterator, &data, &length);
  EXPECT_EQ(result, length);
  return std::string(data, static_cast<std::size_t>(length));
}

TEST_P(iterating, visits_every_view_from_front_to_back) {
  tested_buffer b(through(), {"xab", "c", "dey"});
  b.drop(1);
  b.drop(1, true);
  void* const it = begin(b);
  std::vector<std::string> pieces;
  for (; valid(it); next(it)) pieces.push_back(get(it));
  release(it);
  EXPECT_EQ(pieces, (std::vector<std::string>{"ab", "c", "de"}));
}

TEST_P(iterating, points_into_the_buffer) {
  const tested_buffer b(through(), {"ab"});
  void* const it = begin(b);
  char* data;
  std::int32_t length;
  table_call<18, std::int32_t>(it, &data, &length);
  EXPECT_EQ(data, b.view(0).begin());
  release(it);
}

TEST_P(iterating, an_empty_buffer_is_over_at_once) {
  const tested_buffer b(through());
  void* const it = begin(b);
  EXPECT_FALSE(valid(it));
  release(it);
}

TEST_P(iterating, a_copy_goes_its_own_way) {
  const tested_buffer b(through(), {"ab", "c", "d"});
  void* const it = begin(b);
  next(it);
  void* const copy = table_call<16, void*>(it);
  EXPECT_EQ(get(copy), "c");
  next(copy);
  EXPECT_EQ(get(copy), "d");
  EXPECT_EQ(get(it), "c");
  next(copy);
  EXPECT_FALSE(valid(copy));
  void* const copy_of_end = table_call<16, void*>(copy);
  EXPECT_FALSE(valid(copy_of_end));
  release(copy_of_end);
  release(copy);
  EXPECT_TRUE(valid(it));
  release(it);
}

TEST_P(iterating, the_typed_walk_sees_the_same_and_gives_its_iterator_back) {
  netbuf::buffer b;
  for (const char piece : {'a', 'b', 'c'}) *b.reserve(1, netbuf::end::front) = piece;
  char external[] = "xy";
  b.add_external(external, 2, false, nullptr, nullptr);
  std::string seen;
  int pieces = 0;
  const tests::allocation_count count;
  b.for_each([&](netbuf::span piece) {
    ++pieces;
    seen.append(piece.data, static_cast<std::size_t>(piece.length));
  });
  EXPECT_EQ(seen, "cbaxy");
  EXPECT_EQ(pieces, 2);
  EXPECT_THROW(b.for_each([](netbuf::span) { throw std::runtime_error("enough"); }),
               std::runtime_error);
  EXPECT_EQ(count.live(), 0);
}

TEST(delete_object, frees_an_iterator_and_ignores_null) {
  const tests::allocation_count count;
  void* const b = table_call<2, void*>();
  void* const it = table_call<15, void*>(b);
  table_call<1, void>(b);
  EXPECT_EQ(count.live(), 1);
  table_call<14, void>(it);
  EXPECT_EQ(count.live(), 0);
  table_call<14, void>(static_cast<void*>(nullptr));
}

}  // namespace
