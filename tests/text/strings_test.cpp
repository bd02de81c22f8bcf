// text/strings.h: literal cases, and all short strings against loops that take one character at a
// time.
#include "text/strings.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <new>

#include "tests/support/all_strings.h"
#include "tests/support/allocations.h"

namespace {

using testing::ElementsAre;
using tokens = std::vector<std::string>;

tokens split(const std::string& s, char separator) {
  tokens result;
  get_tokens(&result, s, separator);
  return result;
}

tokens split(const std::string& s, const std::string& separators) {
  tokens result;
  get_tokens(&result, s, separators);
  return result;
}

TEST(replace_all, replaces_every_occurrence_and_tells_whether_there_was_one) {
  const struct {
    std::string s, from, to, result;
    bool replaced;
  } rows[] = {
      {"aaa", "aa", "b", "ba", true},  // matches do not overlap
      {"aaaa", "aa", "a", "aa", true},
      {"a", "a", "aa", "aa", true},  // what was put in is not searched again
      {"aab", "ab", "b", "ab", true},
      {"a//b", "//", "/", "a/b", true},
      {"xaxax", "x", "", "aa", true},
      {"abc", "abc", "", "", true},
      {"abc", "c", "cd", "abcd", true},
      {"abc", "a", "a", "abc", true},  // replaced by itself is replaced
      {"abc", "x", "y", "abc", false},
      {"abc", "abcd", "y", "abc", false},
      {"", "a", "b", "", false},
      {"a\\b\\", "\\", "/", "a/b/", true},
      {std::string("a\0b", 3), std::string("\0", 1), "-", "a-b", true},
      {"\xff\x80", "\x80", "x", "\xffx", true},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.s + ": " + row.from + " -> " + row.to);
    std::string s = row.s;
    EXPECT_EQ(replace_all(s, row.from, row.to), row.replaced);
    EXPECT_EQ(s, row.result);
  }
}

TEST(replace_all, agrees_with_a_walk_for_all_short_strings) {
  const tokens patterns = {"a", "ab", "aa", "aba", "bb"};
  const tokens replacements = {"", "a", "b", "xyz"};
  tests::for_all_strings("ab", 7, [&](const std::string& s) {
    for (const std::string& from : patterns) {
      for (const std::string& to : replacements) {
        std::string expected;
        for (std::size_t i = 0; i < s.size();) {
          const bool match = s.compare(i, from.size(), from) == 0;
          expected += match ? to : s.substr(i, 1);
          i += match ? from.size() : 1;
        }
        std::string result = s;
        const bool replaced = replace_all(result, from, to);
        ASSERT_EQ(result, expected) << s << ": " << from << " -> " << to;
        ASSERT_EQ(replaced, s.find(from) != std::string::npos);
      }
    }
  });
}

TEST(replace_all, may_be_given_the_string_itself_as_pattern_or_replacement) {
  std::string s = "ab";
  EXPECT_TRUE(replace_all(s, "a", s));
  EXPECT_EQ(s, "abb");
  EXPECT_TRUE(replace_all(s, s, "x"));
  EXPECT_EQ(s, "x");
}

TEST(replace_all, has_no_guard_against_an_empty_pattern) {
  std::string s = "abc";
  const std::string to(1000, 'x');
  const tests::failing_allocations failing(0, 1 << 20);
  EXPECT_THROW(replace_all(s, "", to), std::bad_alloc);
}

TEST(get_tokens, drops_empty_pieces) {
  EXPECT_THAT(split("a,,b,", ','), ElementsAre("a", "b"));
  EXPECT_THAT(split(",,x,,y,,", ','), ElementsAre("x", "y"));
  EXPECT_THAT(split("x", ','), ElementsAre("x"));
  EXPECT_THAT(split("", ','), ElementsAre());
  EXPECT_THAT(split(",,,", ','), ElementsAre());
}

TEST(get_tokens, adds_to_what_is_there) {
  tokens out = {"old", ""};
  get_tokens(&out, "a,b", ',');
  get_tokens(&out, "c;d", ",;");
  EXPECT_THAT(out, ElementsAre("old", "", "a", "b", "c", "d"));
}

TEST(get_tokens, takes_one_separator_as_a_string_too) {
  EXPECT_THAT(split("a,,b,", ","), ElementsAre("a", "b"));
  EXPECT_THAT(split(",", ","), ElementsAre());
}

TEST(get_tokens, splits_at_any_of_several_separators) {
  EXPECT_THAT(split("a, b,c", ", "), ElementsAre("a", "b", "c"));
  EXPECT_THAT(split(" ,a b,", ", "), ElementsAre("a", "b"));
  EXPECT_THAT(split(", ,", ", "), ElementsAre());
  EXPECT_THAT(split("a,b", ",,"), ElementsAre("a", "b"));
}

TEST(get_tokens, splits_nothing_without_separators) {
  EXPECT_THAT(split("a, b", ""), ElementsAre("a, b"));
  EXPECT_THAT(split("", ""), ElementsAre());
}

TEST(get_tokens, takes_every_byte_as_a_separator) {
  for (int byte = 0; byte < 256; ++byte) {
    const char separator = static_cast<char>(byte), other = static_cast<char>(byte ^ 0x80);
    const std::string left(1, other), s = left + separator + left;
    EXPECT_THAT(split(s, separator), ElementsAre(left, left)) << byte;
    EXPECT_THAT(split(s, std::string(2, separator)), ElementsAre(left, left)) << byte;
  }
}

TEST(get_tokens, agrees_with_a_walk_for_all_short_strings) {
  for (const std::string separators : {"", ",", ", ", ",; "}) {
    tests::for_all_strings("a,; ", 6, [&](const std::string& s) {
      tokens expected(1);
      for (const char c : s) {
        if (separators.find(c) == std::string::npos) {
          expected.back() += c;
        } else if (!expected.back().empty()) {
          expected.emplace_back();
        }
      }
      if (expected.back().empty()) expected.pop_back();
      ASSERT_EQ(split(s, separators), expected) << s << " at " << separators;
      if (separators.size() != 1) return;
      ASSERT_EQ(split(s, separators[0]), expected) << s;
    });
  }
}

TEST(join_tokens, puts_the_separator_between_all) {
  EXPECT_EQ(join_tokens("&", {}), "");
  EXPECT_EQ(join_tokens("&", {"a"}), "a");
  EXPECT_EQ(join_tokens("&", {"a", "b", "c"}), "a&b&c");
  EXPECT_EQ(join_tokens(" and ", {"a", "b"}), "a and b");
  EXPECT_EQ(join_tokens("", {"a", "b"}), "ab");
}

TEST(join_tokens, keeps_empty_tokens) {
  EXPECT_EQ(join_tokens("&", {"", "a", "", "b", ""}), "&a&&b&");
  EXPECT_EQ(join_tokens("&", {""}), "");
}

TEST(join_ntokens, joins_a_range_that_is_cut_at_the_end) {
  const tokens abcd = {"a", "b", "c", "d"};
  const struct {
    unsigned long first, count;
    const char* result;
  } rows[] = {
      {1, 2, "b,c"},
      {0, 0, ""},
      {0, 1, "a"},
      {0, 3, "a,b,c"},
      {0, 4, "a,b,c,d"},
      {0, 5, "a,b,c,d"},
      {3, 1, "d"},
      {3, 2, "d"},
      {4, 1, ""},
      {5, 1, ""},
      {0, ULONG_MAX, "a,b,c,d"},
      {2, ULONG_MAX, "c,d"},
      {4, ULONG_MAX, ""},
      // A range whose end is beyond all numbers is cut like any other.
      {1, ULONG_MAX - 1, "b,c,d"},
      {2, ULONG_MAX - 1, "c,d"},
      {3, ULONG_MAX - 1, "d"},
      {ULONG_MAX, 1, ""},
      {ULONG_MAX, ULONG_MAX - 1, ""},
      {ULONG_MAX, ULONG_MAX, ""},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(join_ntokens(",", abcd, row.first, row.count), row.result)
        << row.first << " " << row.count;
  }
}

TEST(join_ntokens, keeps_empty_tokens) {
  EXPECT_EQ(join_ntokens(",", {"x", "", "", "y"}, 1, 2), ",");
  EXPECT_EQ(join_ntokens(",", {}, 0, 1), "");
}

TEST(starts_with, compares_the_first_bytes) {
  EXPECT_TRUE(starts_with("", ""));
  EXPECT_TRUE(starts_with("abc", ""));
  EXPECT_TRUE(starts_with("abc", "ab"));
  EXPECT_TRUE(starts_with("abc", "abc"));
  EXPECT_FALSE(starts_with("ab", "abc"));
  EXPECT_FALSE(starts_with("abc", "b"));
  EXPECT_FALSE(starts_with("", "a"));
  EXPECT_TRUE(starts_with(std::string("a\0b", 3), std::string("a\0", 2)));
  EXPECT_FALSE(starts_with(std::string("a\0b", 3), std::string("a\0c", 3)));
}

TEST(ends_with, compares_the_last_bytes) {
  EXPECT_TRUE(ends_with("", ""));
  EXPECT_TRUE(ends_with("abc", ""));
  EXPECT_TRUE(ends_with("abc", "bc"));
  EXPECT_TRUE(ends_with("abc", "abc"));
  EXPECT_FALSE(ends_with("bc", "abc"));
  EXPECT_FALSE(ends_with("abc", "b"));
  EXPECT_FALSE(ends_with("", "a"));
  EXPECT_TRUE(ends_with(std::string("a\0b", 3), std::string("\0b", 2)));
  EXPECT_FALSE(ends_with(std::string("a\0b", 3), std::string("c\0b", 3)));
}

}  // namespace
