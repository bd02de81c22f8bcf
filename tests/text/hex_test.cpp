// text/hex.h: all bytes in both directions.
#include "text/hex.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

namespace {

TEST(mirt_hex, points_at_the_sixteen_lowercase_digits) {
  EXPECT_STREQ(mirt_hex__, "0123456789abcdef");
}

TEST(dehex, reads_digits_of_both_cases) {
  const std::string lower = "0123456789abcdef", upper = "0123456789ABCDEF";
  for (int value = 0; value < 16; ++value) {
    EXPECT_EQ(xstd::dehex(lower[static_cast<std::size_t>(value)]), value);
    EXPECT_EQ(xstd::dehex(upper[static_cast<std::size_t>(value)]), value);
  }
}

TEST(dehex, counts_every_other_byte_as_zero) {
  const std::string digits = "0123456789abcdefABCDEF";
  for (int byte = 0; byte < 256; ++byte) {
    const char c = static_cast<char>(byte);
    if (digits.find(c) == std::string::npos) {
      EXPECT_EQ(xstd::dehex(c), 0) << byte;
    }
  }
}

TEST(push_hexchar, gives_every_byte_as_two_lowercase_digits_high_first) {
  for (int byte = 0; byte < 256; ++byte) {
    char expected[3];
    std::snprintf(expected, sizeof expected, "%02x", static_cast<unsigned>(byte));
    std::string out;
    xstd::push_hexchar(out, static_cast<char>(byte));
    EXPECT_EQ(out, expected);
  }
}

TEST(push_hexchar, appends) {
  std::string out = "%";
  xstd::push_hexchar(out, '\xe9');
  xstd::push_hexchar(out, '/');
  EXPECT_EQ(out, "%e92f");
}

}  // namespace
