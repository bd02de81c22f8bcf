// text/string_ref.h: what a view is made of and what it can be made from.
#include "text/string_ref.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <type_traits>

namespace {

using mirt::cstring_ref;
using mirt::string_ref;

static_assert(std::is_convertible_v<std::string, string_ref>);
static_assert(std::is_convertible_v<const char*, string_ref>);
static_assert(std::is_convertible_v<std::string, cstring_ref>);
static_assert(std::is_convertible_v<const char*, cstring_ref>);
static_assert(std::is_convertible_v<cstring_ref, string_ref>);
// Only what ends in a NUL may become a cstring_ref.
static_assert(!std::is_convertible_v<string_ref, cstring_ref>);
static_assert(!std::is_constructible_v<cstring_ref, const char*, std::size_t>);

// Hosts read both as a pointer and a length, in this order.
template <class View>
class views : public testing::Test {};
using both = testing::Types<string_ref, cstring_ref>;
TYPED_TEST_SUITE(views, both);

TYPED_TEST(views, lie_in_memory_as_a_pointer_and_then_a_length) {
  struct {
    const char* data;
    std::size_t size;
  } raw;
  static_assert(sizeof(TypeParam) == sizeof raw && std::is_trivially_copyable_v<TypeParam>);
  const std::string text = "text";
  const TypeParam view(text);
  std::memcpy(&raw, static_cast<const void*>(&view), sizeof raw);
  EXPECT_EQ(raw.data, text.data());
  EXPECT_EQ(raw.size, 4u);
}

TYPED_TEST(views, of_a_string_have_its_data_and_size) {
  const std::string text("a\0b", 3);
  const TypeParam view = text;
  EXPECT_EQ(view.data(), text.data());
  EXPECT_EQ(view.size(), 3u);
  EXPECT_EQ(std::string(view.begin(), view.end()), text);
}

TYPED_TEST(views, of_a_c_string_end_before_its_nul) {
  const char* text = "ab\0c";
  const TypeParam view = text;
  EXPECT_EQ(view.data(), text);
  EXPECT_EQ(view.size(), 2u);
}

TYPED_TEST(views, of_nothing_are_empty) {
  const TypeParam view = "";
  EXPECT_EQ(view.size(), 0u);
  EXPECT_EQ(view.begin(), view.end());
}

TEST(string_ref, need_not_end_in_a_nul) {
  const char text[3] = {'a', 'b', 'c'};
  const string_ref view(text, 2);
  EXPECT_EQ(std::string(view.begin(), view.end()), "ab");
}

TEST(cstring_ref, ends_in_a_nul) {
  const std::string text = "path";
  const cstring_ref view = text;
  EXPECT_EQ(view.data()[view.size()], '\0');
}

TEST(cstring_ref, is_also_a_string_ref) {
  const string_ref view = cstring_ref("path");
  EXPECT_EQ(std::string(view.begin(), view.end()), "path");
}

}  // namespace
