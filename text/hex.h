// Hexadecimal digits, to and from bytes.
//
// Ownership: nothing is kept.
// Threads: free functions without state; callable from any thread.
#pragma once

#include <array>
#include <string>

/// The sixteen lowercase digits, "0123456789abcdef".
extern const char* const mirt_hex__;

namespace xstd {

namespace detail {

/// The value of each character as a hexadecimal digit; 0 for those that are none.
inline constexpr std::array<unsigned char, 256> digit_values = [] {
  std::array<unsigned char, 256> values{};
  for (unsigned char i = 0; i < 10; ++i) values['0' + i] = i;
  for (unsigned char i = 10; i < 16; ++i) values['a' + i - 10] = values['A' + i - 10] = i;
  return values;
}();

}  // namespace detail

/// The value of one hexadecimal digit of either case. Every other character counts as 0; there is
/// no error.
inline int dehex(char digit) {
  return detail::digit_values[static_cast<unsigned char>(digit)];
}

/// Appends the byte as two lowercase digits, high digit first.
void push_hexchar(std::string& out, char byte);

}  // namespace xstd
