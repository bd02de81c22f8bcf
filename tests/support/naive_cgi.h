// A second CGI codec, as plain as can be, that the real one must agree with.
#pragma once

#include <cctype>
#include <map>
#include <string>

namespace tests {

inline int naive_digit(char c) {
  const std::string digits = "0123456789abcdef";
  const std::size_t value = digits.find(static_cast<char>(std::tolower(c & 0xff)));
  return value == std::string::npos ? 0 : static_cast<int>(value);
}

inline std::string naive_decode(const std::string& text, bool plus_is_space) {
  std::string result;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '%' && text.size() - i < 3) return result;
    if (text[i] == '%') {
      result += static_cast<char>(naive_digit(text[i + 1]) * 16 + naive_digit(text[i + 2]));
      i += 2;
    } else {
      result += text[i] == '+' && plus_is_space ? ' ' : text[i];
    }
  }
  return result;
}

inline std::map<std::string, std::string> naive_parse(std::string text) {
  std::map<std::string, std::string> result;
  text += '&';
  while (!text.empty()) {
    const std::string pair = text.substr(0, text.find('&'));
    text.erase(0, pair.size() + 1);
    const std::string key = pair.substr(0, pair.find('='));
    const std::string value = pair == key ? "" : pair.substr(key.size() + 1);
    if (!key.empty()) result[naive_decode(key, true)] = naive_decode(value, true);
  }
  return result;
}

}  // namespace tests
