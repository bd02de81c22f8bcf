// text/cgi.h: literal cases, all short strings against a naive codec, all bytes, random round
// trips, the end of the view and of memory.
#include "text/cgi.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>
#include <type_traits>

#include "tests/support/all_strings.h"
#include "tests/support/allocations.h"
#include "tests/support/naive_cgi.h"
#include "tests/support/unreadable_page.h"

namespace {

using params = std::map<std::string, std::string>;

static_assert(urlencode_strict == 0 && urlencode_unreserved == 1);
static_assert(std::is_same_v<std::underlying_type_t<urlencode_mode>, int>);

const char some_bytes[] = "a _%2+&=\0\x80\xff";  // structure, a space, a NUL and high bytes

params parse(const std::string& text) {
  return cgi_parse_param(text, '&', '=');
}

/// A reproducible text of any bytes.
std::string random_text(std::mt19937& random, std::size_t shortest, std::size_t longest) {
  std::string result(shortest + random() % (longest - shortest + 1), '\0');
  for (char& c : result) {
    c = random() % 2 ? some_bytes[random() % (sizeof some_bytes - 1)] : static_cast<char>(random());
  }
  return result;
}

params random_params(std::mt19937& random) {
  params result;
  for (auto n = random() % 10; n > 0; --n) {
    result[random_text(random, 1, 200)] = random_text(random, 0, 200);
  }
  return result;
}

TEST(cgi_parse_param, splits_pairs_and_decodes_them) {
  const struct {
    std::string text;
    params result;
  } rows[] = {
      {"a=1&b=2", {{"a", "1"}, {"b", "2"}}},
      {"a&b=", {{"a", ""}, {"b", ""}}},  // without a value: empty
      {"=x&&y=1", {{"y", "1"}}},         // without a key: dropped
      {"&a=1&", {{"a", "1"}}},
      {"a=b=c", {{"a", "b=c"}}},  // only the first key separator counts
      {"a==", {{"a", "="}}},
      {"==a", {}},
      {"", {}},
      {"&", {}},
      {"=", {}},
      {"k=v%26w", {{"k", "v&w"}}},  // an escaped separator is data
      {"k%3D1=2", {{"k=1", "2"}}},
      {"k%26=2", {{"k&", "2"}}},
      {"a+b=c+d", {{"a b", "c d"}}},
      {"a%2bb=c%2Bd", {{"a+b", "c+d"}}},
      {"a=x%4", {{"a", "x"}}},  // a cut escape ends the text
      {"a=%", {{"a", ""}}},
      {"a%=1", {{"a", "1"}}},
      {"a%4=1", {{"a", "1"}}},
      {"%=CT", {{"", "CT"}}},  // the raw key is not empty, the decoded one is
      {"%7g=CT", {{"p", "CT"}}},
      {std::string("a\0b=\0", 5), {{std::string("a\0b", 3), std::string("\0", 1)}}},
      {"\xff=\x80", {{"\xff", "\x80"}}},
  };
  for (const auto& row : rows) EXPECT_EQ(parse(row.text), row.result) << row.text;
}

TEST(cgi_parse_param, a_repeated_key_keeps_its_last_value) {
  EXPECT_EQ(parse("a=1&a=2"), (params{{"a", "2"}}));
  EXPECT_EQ(parse("a=1&b=3&%61=2"), (params{{"a", "2"}, {"b", "3"}}));
  EXPECT_EQ(parse("a=1&a"), (params{{"a", ""}}));
}

TEST(cgi_parse_param, takes_other_separators) {
  EXPECT_EQ(cgi_parse_param("a:1;b:2&=", ';', ':'), (params{{"a", "1"}, {"b", "2&="}}));
  EXPECT_EQ(cgi_parse_param("a+1%b+2", '%', '+'), (params{{"a", "1"}, {"b", "2"}}));
  EXPECT_EQ(cgi_parse_param(std::string("a\xff 1\0b", 6), '\0', '\xff'),
            (params{{"a", " 1"}, {"b", ""}}));
}

TEST(cgi_parse_param, one_character_for_both_separates_pairs) {
  EXPECT_EQ(cgi_parse_param("a&b&&c", '&', '&'), (params{{"a", ""}, {"b", ""}, {"c", ""}}));
  EXPECT_EQ(cgi_parse_param("a=b", '=', '='), (params{{"a", ""}, {"b", ""}}));
}

TEST(cgi_parse_param, keeps_keys_and_values_around_the_inline_capacities) {
  for (const std::size_t size : {127, 128, 129, 200, 1023, 1024, 1025, 5000}) {
    const std::string plain(size, 'k'), escaped = urlencode(std::string(size, '/'), {}, true);
    EXPECT_EQ(parse(plain + "=" + plain), (params{{plain, plain}})) << size;
    EXPECT_EQ(parse(escaped + "=" + escaped + "&z"),
              (params{{std::string(size, '/'), std::string(size, '/')}, {"z", ""}}))
        << size;
  }
}

TEST(cgi_parse_param, forgets_a_long_pair_before_the_next_one) {
  const std::string plain(129, 'k');
  EXPECT_EQ(parse(plain + "=" + plain + "&a=b&" + plain + "2=c&d"),
            (params{{plain, plain}, {"a", "b"}, {plain + "2", "c"}, {"d", ""}}));
}

TEST(cgi_parse_param, agrees_with_a_naive_parser_for_all_short_strings) {
  tests::for_all_strings("a_%2+&=", 6, [](const std::string& text) {
    ASSERT_EQ(parse(text), tests::naive_parse(text)) << text;
  });
}

TEST(cgi_parse_param, agrees_with_a_naive_parser_for_random_texts) {
  std::mt19937 random(1);
  for (int i = 0; i < 3000; ++i) {
    const std::string text = random_text(random, 0, 400);
    ASSERT_EQ(parse(text), tests::naive_parse(text)) << testing::PrintToString(text);
  }
}

TEST(cgi_parse_param, short_pairs_allocate_only_their_map_nodes_and_results) {
  for (const std::size_t size : {15, 16, 127, 128}) {
    const std::string key(size, 'k'), value(size, 'v');
    std::string text = "a" + key + "=" + value + "&b" + key.substr(1) + "=" + value;
    text.erase(0, 1);
    const long strings = size > 15 ? 4 : 0;
    const tests::allocation_count count;
    const params result = cgi_parse_param(std::move(text), '&', '=');
    EXPECT_LE(count.made(), 2 + strings) << size;
    EXPECT_EQ(result.size(), 2u);
  }
}

TEST(cgi_parse_param, leaves_nothing_behind_when_memory_runs_out) {
  const std::string text = std::string(200, 'k') + "=" + std::string(2000, 'v') + "&" +
                           std::string(100, 'k') + "=" + std::string(100, 'v') + "&a=b";
  EXPECT_GT(tests::exhaust([&] { cgi_parse_param(text, '&', '='); }), 5);
}

TEST(cgi_get_param, joins_encoded_pairs_in_key_order) {
  EXPECT_EQ(cgi_get_param({}, urlencode_strict), "");
  EXPECT_EQ(cgi_get_param({{"b", "2"}, {"a", "1"}, {"B", ""}}, urlencode_strict), "B=&a=1&b=2");
  EXPECT_EQ(cgi_get_param({{"a", ""}}, urlencode_strict), "a=");
  EXPECT_EQ(cgi_get_param({{"a&b", "c=d+e"}}, urlencode_strict), "a%26b=c%3dd%2be");
}

TEST(cgi_get_param, leaves_empty_keys_out) {
  EXPECT_EQ(cgi_get_param({{"a b", "x/y"}, {"", "z"}}, urlencode_strict), "a+b=x%2fy");
  EXPECT_EQ(cgi_get_param({{"", "z"}}, urlencode_strict), "");
}

TEST(cgi_get_param, encodes_keys_and_values_in_the_given_mode) {
  const params map = {{"-.~", "~.-"}};
  EXPECT_EQ(cgi_get_param(map, urlencode_strict), "%2d%2e%7e=%7e%2e%2d");
  EXPECT_EQ(cgi_get_param(map, urlencode_unreserved), "-.~=~.-");
  EXPECT_EQ(cgi_get_param(map, static_cast<urlencode_mode>(5)), "%2d%2e%7e=%7e%2e%2d");
}

TEST(cgi_get_param, is_undone_by_parsing) {
  std::mt19937 random(2);
  for (int i = 0; i < 1000; ++i) {
    const params map = random_params(random);
    ASSERT_EQ(parse(cgi_get_param(map, urlencode_strict)), map) << i;
    ASSERT_EQ(parse(cgi_get_param(map, urlencode_unreserved)), map) << i;
  }
}

TEST(cgi_get_param, leaves_nothing_behind_when_memory_runs_out) {
  const params map = {{std::string(200, '/'), std::string(200, '/')}, {"a", std::string(50, 'b')}};
  EXPECT_GT(tests::exhaust([&] { cgi_get_param(map, urlencode_strict); }), 0);
}

TEST(urldecode, decodes_escapes_and_drops_a_cut_one_with_all_that_follows) {
  const struct {
    std::string text, result;
  } rows[] = {
      {"", ""},
      {"abc", "abc"},
      {"a%20b", "a b"},
      {"%2f%2F%e9%E9", "//\xe9\xe9"},
      {"%", ""},
      {"x%", "x"},
      {"x%4", "x"},
      {"x%41", "xA"},
      {"x%41%4", "xA"},
      {"%zz", std::string(1, '\0')},  // what is no digit counts as 0
      {"%4z%z4", "@\x04"},
      {"%%41",
       "\x04"
       "1"},
      {"%%%", std::string(1, '\0')},
      {"%%%%", std::string(1, '\0')},
      {"%00x", std::string("\0x", 2)},
      {"%2541", "%41"},  // decoded once
      {std::string("a\0b", 3), std::string("a\0b", 3)},
      {"\x80\xff", "\x80\xff"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(urldecode(row.text, true), row.result) << row.text;
    EXPECT_EQ(urldecode(row.text, false), row.result) << row.text;
  }
}

TEST(urldecode, plus_is_a_space_only_where_asked_for) {
  EXPECT_EQ(urldecode("a+b", false), "a+b");
  EXPECT_EQ(urldecode("a+b", true), "a b");
  EXPECT_EQ(urldecode("%2b+", true), "+ ");
  EXPECT_EQ(urldecode("%+1+", true), std::string("\x01 ", 2));  // in an escape it is a digit of 0
}

TEST(urldecode, takes_a_string_a_c_string_and_a_view) {
  const std::string text = "a%20b";
  EXPECT_EQ(urldecode(text, true), "a b");
  EXPECT_EQ(urldecode(text.c_str(), true), "a b");
  EXPECT_EQ(urldecode(mirt::string_ref(text.data(), 3), true), "a");
  EXPECT_EQ(urldecode(mirt::cstring_ref(text), true), "a b");
}

TEST(urldecode, turns_every_pair_of_bytes_after_the_percent_sign_into_one) {
  for (int high = 0; high < 256; ++high) {
    for (int low = 0; low < 256; ++low) {
      const std::string text = {'%', static_cast<char>(high), static_cast<char>(low)};
      ASSERT_EQ(urldecode(text, true), tests::naive_decode(text, true)) << high << " " << low;
    }
  }
}

TEST(urldecode, reads_no_byte_beyond_the_view) {
  tests::unreadable_page page;
  tests::for_all_strings("a_%2+&=", 6, [&](const std::string& text) {
    ASSERT_EQ(urldecode(page.put(text), true), tests::naive_decode(text, true)) << text;
    ASSERT_EQ(urldecode(page.put(text), false), tests::naive_decode(text, false)) << text;
  });
  std::mt19937 random(3);
  for (int i = 0; i < 1000; ++i) {
    const std::string text = random_text(random, 0, 200);
    ASSERT_EQ(urldecode(page.put(text), true), tests::naive_decode(text, true))
        << testing::PrintToString(text);
  }
}

TEST(urldecode, keeps_texts_around_the_inline_capacity) {
  for (const std::size_t size : {1023, 1024, 1025, 4096}) {
    EXPECT_EQ(urldecode(std::string(size, 'a'), true), std::string(size, 'a')) << size;
    EXPECT_EQ(urldecode(urlencode(std::string(size, '%'), urlencode_strict, true), true),
              std::string(size, '%'))
        << size;
  }
}

TEST(urldecode, allocates_only_its_result_up_to_the_inline_capacity) {
  for (const std::size_t size : {1, 15, 16, 127, 128, 129, 1023, 1024}) {
    const std::string plain(size, 'a'), escaped = urlencode(std::string(size, '/'), {}, true);
    const tests::allocation_count plain_count;
    const std::string from_plain = urldecode(plain, true);
    EXPECT_EQ(plain_count.made(), size > 15 ? 1 : 0) << size;
    const tests::allocation_count escaped_count;
    const std::string from_escaped = urldecode(escaped, true);
    EXPECT_EQ(escaped_count.made(), size > 15 ? 1 : 0) << size;
    EXPECT_EQ(from_plain.size(), from_escaped.size());
  }
}

TEST(urldecode, leaves_nothing_behind_when_memory_runs_out) {
  const std::string text(5000, 'a');
  EXPECT_GT(tests::exhaust([&] { urldecode(text, true); }), 0);
}

TEST(urlencode, leaves_the_bytes_of_its_mode_and_escapes_all_others) {
  const std::string strict = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_";
  const struct {
    int mode;
    std::string kept;
  } rows[] = {{0, strict}, {1, strict + "-.~"}, {2, strict}, {-1, strict}};
  for (const auto& row : rows) {
    for (int byte = 0; byte < 256; ++byte) {
      SCOPED_TRACE(testing::Message() << "mode " << row.mode << ", byte " << byte);
      const std::string text(1, static_cast<char>(byte));
      char escape[4];
      std::snprintf(escape, sizeof escape, "%%%02x", static_cast<unsigned>(byte));
      const std::string expected = row.kept.find(text) != std::string::npos ? text : escape;
      const auto mode = static_cast<urlencode_mode>(row.mode);
      EXPECT_EQ(urlencode(text, mode, false), expected);
      EXPECT_EQ(urlencode(text, mode, true), text == " " ? "+" : expected);
    }
  }
}

TEST(urlencode, encodes_whole_texts) {
  EXPECT_EQ(urlencode("", urlencode_strict, true), "");
  EXPECT_EQ(urlencode("-._~", urlencode_strict, true), "%2d%2e_%7e");
  EXPECT_EQ(urlencode("-._~", urlencode_unreserved, true), "-._~");
  EXPECT_EQ(urlencode("a b", urlencode_strict, true), "a+b");
  EXPECT_EQ(urlencode("a b", urlencode_strict, false), "a%20b");
  EXPECT_EQ(urlencode("+", urlencode_strict, true), "%2b");
  EXPECT_EQ(urlencode("caf\xe9/", urlencode_strict, true), "caf%e9%2f");
  EXPECT_EQ(urlencode(std::string("a\0b", 3), urlencode_strict, true), "a%00b");
}

TEST(urlencode, is_undone_by_decoding) {
  std::mt19937 random(4);
  for (int i = 0; i < 2000; ++i) {
    const std::string text = random_text(random, 0, 2000);
    for (const urlencode_mode mode : {urlencode_strict, urlencode_unreserved}) {
      ASSERT_EQ(urldecode(urlencode(text, mode, true), true), text) << i;
      ASSERT_EQ(urldecode(urlencode(text, mode, false), false), text) << i;
    }
  }
}

TEST(urlencode, leaves_nothing_behind_when_memory_runs_out) {
  const std::string text(5000, '/');
  EXPECT_GT(tests::exhaust([&] { urlencode(text, urlencode_strict, true); }), 0);
}

}  // namespace
