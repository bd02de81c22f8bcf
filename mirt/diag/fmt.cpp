#include "mirt/diag/fmt.h"

#include <algorithm>

namespace mirt {
namespace {

bool is_digit(char c) {
  return c >= '0' && c <= '9';
}

/// The number of a placeholder, or a number beyond any argument's where it is too large.
std::size_t read_number(const char* p, const char* end) {
  constexpr std::size_t beyond = 1'000'000'000;
  std::size_t number = 0;
  for (; p != end; ++p) number = std::min(number * 10 + static_cast<std::size_t>(*p - '0'), beyond);
  return number;
}

}  // namespace

fmt::fmt(const std::string& format) : format_(format) {}

void fmt::add(const std::string& value) {
  args_.push_back(value);
}

void fmt::add_padded(std::string value, char fill, unsigned char width) {
  if (value.size() < width) value.insert(0, width - value.size(), fill != 0 ? fill : ' ');
  args_.push_back(std::move(value));
}

std::string fmt::str() const {
  std::size_t size = format_.size();
  for (const std::string& arg : args_) size += arg.size();
  std::string result;
  result.reserve(size);

  const char* const end = format_.data() + format_.size();
  for (const char* p = format_.data(); p != end;) {
    const char* const percent = std::find(p, end, '%');
    result.append(p, percent);
    if (percent == end) break;

    const char* const digits = percent + 1;
    p = std::find_if_not(digits, end, is_digit);
    if (p != end && *p == '%') {
      if (p == digits) {
        result.push_back('%');  // "%%"
      } else {
        const std::size_t number = read_number(digits, p);
        if (number >= 1 && number <= args_.size()) result.append(args_[number - 1]);
      }
      ++p;
    } else {
      // Not a placeholder: it stays, with the byte that showed it.
      if (p != end) ++p;
      result.append(percent, p);
    }
  }
  return result;
}

}  // namespace mirt
