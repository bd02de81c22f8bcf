// mirt/diag/fmt.h: literal templates, all short templates against a naive formatter, padding, and
// numbers under a hostile locale.
#include "mirt/diag/fmt.h"

#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <vector>

#include "tests/support/all_strings.h"
#include "tests/support/hostile_locale.h"
#include "tests/support/naive_fmt.h"

namespace {

using mirt::stringify;
using arguments = std::vector<std::string>;

std::string filled(const std::string& format, const arguments& values) {
  mirt::fmt message(format);
  for (const std::string& value : values) message.add(value);
  return message.str();
}

template <class T>
std::string padded(const T& value, char fill, unsigned char width) {
  mirt::fmt message("%1%");
  message._add_arg(value, fill, width);
  return message.str();
}

TEST(fmt, fills_numbered_placeholders) {
  const struct {
    const char* format;
    arguments values;
    const char* result;
  } rows[] = {
      {"a%1%b%1%c", {"X"}, "aXbXc"},  // a number may stand more than once
      {"%2% then %1%", {"A", "B"}, "B then A"},
      {"%1%%2%", {"A", "B"}, "AB"},
      {"%1%%1%", {"A"}, "AA"},
      {"%1%%%", {"A"}, "A%"},
      {"%7% %2%", {"1", "2", "3", "4", "5", "6", "7"}, "7 2"},  // numbers may leave gaps
      {"%01% %002%", {"A", "B"}, "A B"},
      {"%010%", {"1", "2", "3", "4", "5", "6", "7", "8", "9", "ten"}, "ten"},
      {"%12%", {"1", "2"}, ""},
      {"%1%", {""}, ""},
  };
  for (const auto& row : rows) EXPECT_EQ(filled(row.format, row.values), row.result) << row.format;
}

TEST(fmt, keeps_what_is_no_placeholder) {
  const struct {
    const char *format, *result;
  } rows[] = {
      {"", ""},           {"plain", "plain"},   {"100%% sure", "100% sure"},
      {"%%", "%"},        {"%%%%", "%%"},       {"%%1%", "%1%"},  // the escape comes first
      {"%%%1%", "%A"},    {"%", "%"},           {"a%", "a%"},
      {"%%%", "%%"},      {"%x", "%x"},         {"%x%1%", "%xA"},
      {"% 1%", "% 1%"},   {"%-1%", "%-1%"},     {"%1", "%1"},  // the template ends in a placeholder
      {"%12", "%12"},     {"a%012", "a%012"},   {"%1x%", "%1x%"},
      {"%12x%", "%12x%"}, {"%12x%1%", "%12xA"}, {"%1x%1%", "%1xA"},
      {"%x%1", "%x%1"},   {"%1 %1%", "%1 A"},
  };
  for (const auto& row : rows) EXPECT_EQ(filled(row.format, {"A"}), row.result) << row.format;
}

TEST(fmt, agrees_with_a_naive_formatter_for_all_short_templates) {
  const std::vector<arguments> all_values = {{}, {"A"}, {"A", "%1%"}};
  tests::for_all_strings("%012x", 6, [&](const std::string& format) {
    for (const arguments& values : all_values) {
      ASSERT_EQ(filled(format, values), tests::naive_fmt(format, values)) << format;
    }
  });
}

TEST(fmt, leaves_slots_without_an_argument_empty) {
  EXPECT_EQ(filled("count: %1%", {}), "count: ");
  EXPECT_EQ(filled("%1%-%2%-%3%", {"A"}), "A--");
}

TEST(fmt, can_never_fill_number_zero) {
  EXPECT_EQ(filled("<%0%>", {"A", "B"}), "<>");
  EXPECT_EQ(filled("<%00%>", {"A", "B"}), "<>");
}

TEST(fmt, ignores_arguments_that_the_template_does_not_mention) {
  EXPECT_EQ(filled("%1%", {"A", "B", "C"}), "A");
  EXPECT_EQ(filled("%3%", {"A", "B", "C", "D"}), "C");
  EXPECT_EQ(filled("", {"A", "B"}), "");
  EXPECT_EQ(filled("plain", {"A"}), "plain");
}

TEST(fmt, reaches_the_greatest_number) {
  EXPECT_EQ(filled("<%2147483647%>", {"A"}), "<>");
  EXPECT_EQ(filled("<%0000000000000000000001%>", {"A"}), "<A>");
}

TEST(fmt, survives_numbers_that_are_none) {
  for (const char* digits : {"2147483648", "4294967297", "18446744073709551617",
                             "99999999999999999999999999999999999999"}) {
    const std::string result = filled(std::string("<%") + digits + "%|%1%>", {"A"});
    EXPECT_EQ(result.substr(0, 1), "<");
    EXPECT_EQ(result.substr(result.size() - 3), "|A>") << digits;
  }
}

TEST(fmt, does_not_look_into_arguments) {
  EXPECT_EQ(filled("%1%%2%", {"%2%", "%%"}), "%2%%%");
}

TEST(fmt, keeps_every_byte) {
  const std::string nul(1, '\0');
  EXPECT_EQ(filled("a" + nul + "%1%\xff", {nul + "\x80"}), "a" + nul + nul + "\x80\xff");
  EXPECT_EQ(filled("%" + nul + "%1" + nul, {}), "%" + nul + "%1" + nul);
}

TEST(fmt, may_be_read_and_added_to_in_turns) {
  mirt::fmt message("%1%-%2%");
  EXPECT_EQ(message.str(), "-");
  message.add("A");
  EXPECT_EQ(message.str(), "A-");
  EXPECT_EQ(message.str(), "A-");
  message.add("B");
  EXPECT_EQ(message.str(), "A-B");
  message.add("C");
  EXPECT_EQ(message.str(), "A-B");
}

TEST(fmt, keeps_a_copy_of_template_and_arguments) {
  std::string format = "<%1%>", value = "a value that does not fit inline";
  mirt::fmt message(format);
  message.add(value);
  const mirt::fmt copy = message;
  format = "x";
  value = "y";
  message.add("z");
  EXPECT_EQ(message.str(), "<a value that does not fit inline>");
  EXPECT_EQ(copy.str(), message.str());
}

TEST(fmt_add_arg, fills_up_on_the_left) {
  EXPECT_EQ(padded(7, '0', 3), "007");
  EXPECT_EQ(padded(std::string("ab"), ' ', 5), "   ab");
  EXPECT_EQ(padded(std::string("ab"), '*', 3), "*ab");
  EXPECT_EQ(padded(-5, 0, 0), "-5");
  EXPECT_EQ(padded(-5, '0', 4), "00-5");  // also before the sign
  EXPECT_EQ(padded('c', '.', 3), "..c");
}

TEST(fmt_add_arg, fills_with_spaces_by_default) {
  EXPECT_EQ(padded(7, 0, 3), "  7");
  EXPECT_EQ(padded(std::string("ab"), 0, 3), " ab");
}

TEST(fmt_add_arg, does_not_fill_without_a_width) {
  EXPECT_EQ(padded(7, '0', 0), "7");
  EXPECT_EQ(padded(std::string("ab"), '*', 0), "ab");
}

TEST(fmt_add_arg, a_width_never_shortens) {
  EXPECT_EQ(padded(12345, '0', 3), "12345");
  EXPECT_EQ(padded(123, '0', 2), "123");
  EXPECT_EQ(padded(123, '0', 3), "123");
  EXPECT_EQ(padded(123, '0', 4), "0123");
  EXPECT_EQ(padded(std::string("abc"), '*', 2), "abc");
}

TEST(fmt_add_arg, takes_widths_up_to_255) {
  EXPECT_EQ(padded(1, '0', 255), std::string(254, '0') + "1");
  EXPECT_EQ(padded(std::string("a"), ' ', 255), std::string(254, ' ') + "a");
  EXPECT_EQ(padded(std::string(), '*', 128), std::string(128, '*'));
}

TEST(fmt_add_arg, writes_every_int) {
  EXPECT_EQ(padded(0, 0, 0), "0");
  EXPECT_EQ(padded(INT_MAX, 0, 0), "2147483647");
  EXPECT_EQ(padded(INT_MIN, 0, 0), "-2147483648");
}

TEST(fmt_add_arg, keeps_every_byte_of_a_string) {
  const std::string text("a\0b", 3);
  EXPECT_EQ(padded(text, 0, 0), text);
  EXPECT_EQ(padded(text, '*', 4), "*" + text);
}

TEST(fmt_add_arg, adds_one_argument_each) {
  mirt::fmt message("%1% %2% %3%");
  message._add_arg(1, 0, 0);
  message.add("two");
  message._add_arg(std::string("three"), 0, 0);
  EXPECT_EQ(message.str(), "1 two three");
}

TEST(fmt_add_arg, writes_numbers_plainly_in_any_locale) {
  const tests::hostile_locale hostile;
  EXPECT_EQ(padded(1234567, 0, 0), "1234567");
  EXPECT_EQ(padded(-1234567, '0', 10), "00-1234567");
  EXPECT_EQ(padded(1234567ul, 0, 0), "1234567");
  EXPECT_EQ(padded(1234567ull, '0', 8), "01234567");
}

TEST(fmt, reads_placeholders_alike_in_any_locale) {
  const tests::hostile_locale hostile;
  EXPECT_EQ(filled("%x% %1x% %1%", {"A"}), "%x% %1x% A");
  EXPECT_EQ(filled("%12%", {"1", "2", "3", "4", "5", "6", "7", "8", "9", "10", "11", "twelve"}),
            "twelve");
}

TEST(stringify, writes_its_arguments_with_nothing_in_between) {
  EXPECT_EQ(stringify(std::string("log"), '.', 3), "log.3");
  EXPECT_EQ(stringify(std::string("name"), "a text of 20 letters"), "namea text of 20 letters");
  EXPECT_EQ(stringify("elevenchars", std::string("!")), "elevenchars!");
  EXPECT_EQ(stringify(-42), "-42");
}

TEST(stringify, formats_as_a_stream_does_by_default) {
  EXPECT_EQ(stringify(true, ' ', 1.5, ' ', 0.1f, ' ', 1e10), "1 1.5 0.1 1e+10");
  EXPECT_EQ(stringify(std::string("a\0b", 3), '\0'), std::string("a\0b\0", 4));
}

TEST(stringify, writes_numbers_plainly_in_any_locale) {
  const tests::hostile_locale hostile;
  EXPECT_EQ(stringify(std::string("log"), '.', 1234567), "log.1234567");
  EXPECT_EQ(stringify(-1234567), "-1234567");
  EXPECT_EQ(stringify(18446744073709551615ull, ' ', 1234.5), "18446744073709551615 1234.5");
}

TEST(hostile_locale, does_change_how_numbers_are_written) {
  const tests::hostile_locale hostile;
  std::ostringstream out;
  out << 1234567;
  EXPECT_EQ(out.str(), "1.2.3.4.5.6.7");
  EXPECT_TRUE(std::isdigit('x', std::locale()));
}

}  // namespace
