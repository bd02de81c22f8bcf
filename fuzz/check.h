// What a target does at the first input that breaks a promise: show both sides, and abort.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <string>

namespace fuzz {

/// The text with every byte outside printable ASCII as "\xNN".
inline std::string shown(const std::string& text) {
  std::string result;
  for (const unsigned char c : text) {
    char escape[5];
    std::snprintf(escape, sizeof escape, "\\x%02x", c);
    result += c >= ' ' && c <= '~' && c != '\\' ? std::string(1, static_cast<char>(c)) : escape;
  }
  return result;
}

inline void check(bool kept, const char* promise, const std::string& text) {
  if (kept) return;
  std::fprintf(stderr, "broken: %s\n  by: \"%s\"\n", promise, shown(text).c_str());
  std::abort();
}

inline void check_same(const std::string& result, const std::string& expected,
                       const char* promise) {
  if (result == expected) return;
  std::fprintf(stderr, "expected: \"%s\"\n", shown(expected).c_str());
  check(false, promise, result);
}

}  // namespace fuzz
