// mirt/diag/log_text.h: stamps, escaping, and the parts of a pre-formatted line.
#include "mirt/diag/log_text.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <limits>
#include <vector>

#include "tests/support/hostile_locale.h"

namespace {

std::string escaped(std::string line) {
  mirt::escape_line(line);
  return line;
}

TEST(escape_line, replaces_control_bytes_and_the_backtick) {
  const struct {
    std::string line, result;
  } rows[] = {
      {"", ""},
      {"plain", "plain"},
      {"a\nb", "a`0ab"},
      {"`", "`60"},
      {"``", "`60`60"},
      {"`60", "`6060"},
      {std::string(1, '\0'), "`00"},
      {"\r\n\t\x1b[0m", "`0d`0a`09`1b[0m"},
      {"\n", "`0a"},
      {"at the end\n", "at the end`0a"},
      {"\nat the beginning", "`0aat the beginning"},
  };
  for (const auto& row : rows) EXPECT_EQ(escaped(row.line), row.result);
}

TEST(escape_line, leaves_every_other_byte) {
  const char* const digits = "0123456789abcdef";
  for (int byte = 0; byte < 256; ++byte) {
    const std::string line(1, static_cast<char>(byte));
    const bool is_escaped = byte < 0x20 || byte == 0x60;
    EXPECT_EQ(escaped(line),
              is_escaped ? std::string("`") + digits[byte / 16] + digits[byte % 16] : line)
        << byte;
    EXPECT_EQ(escaped("ab" + line + "yz"), "ab" + escaped(line) + "yz") << byte;
  }
}

TEST(escape_line, works_alike_in_any_locale) {
  const tests::hostile_locale hostile;
  EXPECT_EQ(escaped("\x1f \x7f\x80\xff"), "`1f \x7f\x80\xff");
}

TEST(timestamp_of, is_a_time_in_utc) {
  EXPECT_EQ(mirt::timestamp_of(0), "1970-01-01T00:00:00Z");
  EXPECT_EQ(mirt::timestamp_of(-1), "1969-12-31T23:59:59Z");
  EXPECT_EQ(mirt::timestamp_of(1709647629), "2024-03-05T14:07:09Z");
  EXPECT_EQ(mirt::timestamp_of(253402300799), "9999-12-31T23:59:59Z");
}

TEST(timestamp_of, a_time_that_no_calendar_has_is_n) {
  for (const long long seconds :
       {253402300800LL, 9999999999999999LL, 67768036191676799LL, 67768036191676800LL,
        -67768040609740800LL, LLONG_MAX, LLONG_MIN, LLONG_MIN + 1}) {
    EXPECT_EQ(mirt::timestamp_of(seconds), "N") << seconds;
  }
}

std::string behind_header(const std::string& line, std::size_t header_length) {
  const std::vector<char> unterminated(line.begin(), line.end());
  const mirt::string_ref text =
      mirt::text_behind_header(unterminated.data(), unterminated.size(), header_length);
  return {text.data(), text.size()};
}

TEST(text_behind_header, is_what_follows_the_space) {
  const struct {
    const char* line;
    std::size_t header_length;
    const char* text;
  } rows[] = {
      {"HDR payload\n", 3, "payload\n"},
      {" payload", 0, "payload"},
      {"abcd", 2, "d"},     // one byte is left
      {"abcd", 3, "abcd"},  // none would be: the whole line
      {"abcd", 4, "abcd"},
      {"abcd", 5, "abcd"},
      {"abcd", std::numeric_limits<std::size_t>::max(), "abcd"},
      {"", 0, ""},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(behind_header(row.line, row.header_length), row.text)
        << row.line << " " << row.header_length;
  }
}

TEST(without_line_breaks, drops_them_at_the_end_alone) {
  const struct {
    const char *text, *result;
  } rows[] = {{"a\n", "a"},       {"a\r\n", "a"}, {"a\n\r\n\r", "a"}, {"\na\n", "\na"},
              {"a\nb\n", "a\nb"}, {"a \n", "a "}, {"\r\n", ""},       {"", ""}};
  for (const auto& row : rows) {
    const mirt::string_ref text = mirt::without_line_breaks(row.text);
    EXPECT_EQ(std::string(text.data(), text.size()), row.result);
  }
}

}  // namespace
