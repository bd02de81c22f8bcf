#include "text/cgi.h"

#include <algorithm>
#include <array>

#include "text/hex.h"
#include "text/mini_char.h"

namespace {

/// For each mode, which bytes stay as they are.
using byte_set = std::array<bool, 256>;

constexpr byte_set kept_bytes(const char* punctuation) {
  byte_set kept{};
  for (unsigned char c = '0'; c <= '9'; ++c) kept[c] = true;
  for (unsigned char c = 'A'; c <= 'Z'; ++c) kept[c] = kept[c + ('a' - 'A')] = true;
  for (; *punctuation != 0; ++punctuation) kept[static_cast<unsigned char>(*punctuation)] = true;
  return kept;
}

constexpr byte_set g_strict = kept_bytes("_");
constexpr byte_set g_unreserved = kept_bytes("_-.~");

/// Appends `text` to `out`, encoded, run by run of kept bytes.
void append_encoded(std::string& out, const std::string& text, urlencode_mode mode,
                    bool space_as_plus) {
  const byte_set& kept = mode == urlencode_unreserved ? g_unreserved : g_strict;
  const char* const end = text.data() + text.size();
  for (const char* p = text.data(); p != end; ++p) {
    const char* const run = p;
    while (p != end && kept[static_cast<unsigned char>(*p)]) ++p;
    out.append(run, p);
    if (p == end) return;
    if (*p == ' ' && space_as_plus) {
      out.push_back('+');
    } else {
      out.push_back('%');
      xstd::push_hexchar(out, *p);
    }
  }
}

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
    append_encoded(result, key, mode, true);
    result.push_back('=');
    append_encoded(result, value, mode, true);
  }
  return result;
}

std::string urldecode(const mirt::string_ref& text, bool plus_is_space) {
  mini_char<1024> result;
  const char* const end = text.end();
  for (const char* p = text.begin(); p != end;) {
    const char* const run = p;
    while (p != end && *p != '%' && *p != '+') ++p;
    result.append(run, static_cast<std::size_t>(p - run));
    if (p == end) break;
    if (*p == '+') {
      result.append(plus_is_space ? ' ' : '+');
      ++p;
    } else {
      if (end - p < 3) break;  // deliberate: a cut-off escape ends the text
      result.append(static_cast<char>(xstd::dehex(p[1]) * 16 + xstd::dehex(p[2])));
      p += 3;
    }
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
  append_encoded(result, text, mode, space_as_plus);
  return result;
}
