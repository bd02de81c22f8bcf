#include "text/cgi.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>

#include "text/hex.h"
#include "text/mini_char.h"

namespace {

/// What a byte is encoded as: the first `size` characters of `text`.
struct code {
  char text[3];
  unsigned char size;
};
using code_table = std::array<code, 256>;

constexpr code_table make_codes(const char* kept_punctuation, bool space_as_plus) {
  constexpr char digits[] = "0123456789abcdef";
  code_table codes{};
  for (unsigned c = 0; c < 256; ++c) codes[c] = {{'%', digits[c >> 4], digits[c & 15]}, 3};
  const auto set = [&codes](char c, char as) { codes[static_cast<unsigned char>(c)] = {{as}, 1}; };
  for (char c = '0'; c <= '9'; ++c) set(c, c);
  for (char c = 'A'; c <= 'Z'; ++c) set(c, c);
  for (char c = 'a'; c <= 'z'; ++c) set(c, c);
  for (; *kept_punctuation != 0; ++kept_punctuation) set(*kept_punctuation, *kept_punctuation);
  if (space_as_plus) set(' ', '+');
  return codes;
}

/// By mode, then by whether a space becomes "+".
constexpr code_table g_codes[2][2] = {
    {make_codes("_", false), make_codes("_", true)},
    {make_codes("_-.~", false), make_codes("_-.~", true)},
};

}  // namespace

std::map<std::string, std::string> cgi_parse_param(std::string text, char pair_separator,
                                                   char key_separator) {
  std::map<std::string, std::string> params;
  const char* const end = text.data() + text.size();
  for (const char* p = text.data(); p < end;) {
    const char* const pair_end = std::find(p, end, pair_separator);
    const char* const key_end = std::find(p, pair_end, key_separator);
    if (key_end != p) {
      const char* const value = key_end == pair_end ? pair_end : key_end + 1;
      // A sorted string, as we write it ourselves, always goes to the end of the map.
      params.insert_or_assign(
          params.end(), urldecode(mirt::string_ref(p, static_cast<std::size_t>(key_end - p)), true),
          urldecode(mirt::string_ref(value, static_cast<std::size_t>(pair_end - value)), true));
    }
    p = pair_end + 1;
  }
  return params;
}

std::string cgi_get_param(const std::map<std::string, std::string>& params, urlencode_mode mode) {
  std::size_t size = 0;
  for (const auto& [key, value] : params) size += key.size() + value.size() + 2;
  std::string result;
  result.reserve(size);
  for (const auto& [key, value] : params) {
    if (key.empty()) continue;
    if (!result.empty()) result.push_back('&');
    append_urlencoded(result, key, mode, true);
    result.push_back('=');
    append_urlencoded(result, value, mode, true);
  }
  return result;
}

std::string urldecode(const mirt::string_ref& text, bool plus_is_space) {
  const char plus = plus_is_space ? ' ' : '+';
  const char* p = text.begin();
  const char* const end = text.end();
  if (std::find(p, end, '%') == end) {
    // Plain text, the rule, goes in one piece.
    std::string result(p, end);
    for (char& c : result) c = c == '+' ? plus : c;
    return result;
  }

  mini_char<1024> result;
  while (p != end) {
    char block[256];
    char* to = block;
    while (p != end && to != block + sizeof block) {
      if (*p != '%') {
        *to++ = *p == '+' ? plus : *p;
        ++p;
      } else if (end - p < 3) {
        p = end;  // deliberate: a cut-off escape ends the text
      } else {
        *to++ = static_cast<char>(xstd::dehex(p[1]) * 16 + xstd::dehex(p[2]));
        p += 3;
      }
    }
    result.append(block, static_cast<std::size_t>(to - block));
  }
  return result;
}

std::string urldecode(const std::string& text, bool plus_is_space) {
  return urldecode(mirt::string_ref(text), plus_is_space);
}

std::string urldecode(const char* text, bool plus_is_space) {
  return urldecode(mirt::string_ref(text), plus_is_space);
}

std::string urlencode(const std::string& text, urlencode_mode mode, bool space_as_plus) {
  std::string result;
  result.reserve(text.size());
  append_urlencoded(result, text, mode, space_as_plus);
  return result;
}

void append_urlencoded(std::string& out, const mirt::string_ref& text, urlencode_mode mode,
                       bool space_as_plus) {
  constexpr std::size_t block_size = 1024;
  const code_table& codes = g_codes[mode == urlencode_unreserved][space_as_plus];
  const char* const end = text.end();
  for (const char* p = text.begin(); p != end;) {
    char block[block_size * 3 + sizeof(code)];
    char* to = block;
    const char* const block_end = p + std::min<std::ptrdiff_t>(end - p, block_size);
    for (; p != block_end; ++p) {
      const code& c = codes[static_cast<unsigned char>(*p)];
      std::memcpy(to, &c, sizeof c);  // the whole entry: one store, whatever its size
      to += c.size;
    }
    out.append(block, to);
  }
}
