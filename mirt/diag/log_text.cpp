#include "mirt/diag/log_text.h"

#include <time.h>

#include <cstdio>

#include "text/hex.h"

namespace mirt {
namespace {

bool needs_escape(char c) {
  return static_cast<unsigned char>(c) < 0x20 || c == '`';
}

/// Looks at every byte, without an early end: so the compiler can take many at once.
bool has_to_escape(const std::string& line) {
  unsigned char found = 0;
  for (const unsigned char c : line) {
    found = static_cast<unsigned char>(found | (c < 0x20) | (c == '`'));
  }
  return found != 0;
}

}  // namespace

std::string timestamp_of(long long seconds) {
  const auto time = static_cast<time_t>(seconds);
  tm utc;
  if (::gmtime_r(&time, &utc) == nullptr) return "N";
  char text[80];
  const int length =
      std::snprintf(text, sizeof text, "%lld-%02d-%02dT%02d:%02d:%02dZ", utc.tm_year + 1900LL,
                    utc.tm_mon + 1, utc.tm_mday, utc.tm_hour, utc.tm_min, utc.tm_sec);
  return length == 20 ? text : "N";
}

void escape_line(std::string& line) {
  if (!has_to_escape(line)) return;
  std::string escaped;
  for (const char c : line) {
    if (needs_escape(c)) {
      escaped.push_back('`');
      xstd::push_hexchar(escaped, c);
    } else {
      escaped.push_back(c);
    }
  }
  line.swap(escaped);
}

string_ref text_behind_header(const char* line, std::size_t length, std::size_t header_length) {
  const std::size_t skip = header_length + 1;
  return skip < length ? string_ref(line + skip, length - skip) : string_ref(line, length);
}

string_ref without_line_breaks(string_ref text) {
  std::size_t length = text.size();
  while (length != 0 && (text.data()[length - 1] == '\n' || text.data()[length - 1] == '\r')) {
    --length;
  }
  return {text.data(), length};
}

}  // namespace mirt
