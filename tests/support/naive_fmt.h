// A second template formatter, state by state, that the real one must agree with.
#pragma once

#include <climits>
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace tests {

/// Nothing if a placeholder's number does not fit in an int: what such a one means is open.
inline std::optional<std::string> naive_fmt(const std::string& format,
                                            const std::vector<std::string>& arguments) {
  enum { plain, percent, number } state = plain;
  std::string result, digits;
  for (const char c : format) {
    const bool is_digit = c >= '0' && c <= '9';
    if (state == plain && c == '%') {
      state = percent;
    } else if (state == plain) {
      result += c;
    } else if (is_digit) {
      digits += c;
      state = number;
    } else if (state == percent) {
      result += c == '%' ? "%" : std::string("%") + c;
      state = plain;
    } else if (c == '%') {
      digits.erase(0, digits.find_first_not_of('0'));
      const unsigned long long n = digits.empty() ? 0 : std::stoull(digits.substr(0, 11));
      if (n > INT_MAX) return std::nullopt;
      if (n >= 1 && n <= arguments.size()) result += arguments[n - 1];
      digits.clear();
      state = plain;
    } else {
      result += "%" + digits + c;
      digits.clear();
      state = plain;
    }
  }
  if (state != plain) result += "%" + digits;
  return result;
}

}  // namespace tests
