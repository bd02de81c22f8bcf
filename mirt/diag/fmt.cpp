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

void fmt::add(const std::string& value) {
  add_padded(value.data(), value.size(), 0, 0);
}

void fmt::add_padded(const char* value, std::size_t size, char fill, unsigned char width) {
  if (size < width) values_.append(width - size, fill != 0 ? fill : ' ');
  values_.append(value, size);
  ends_.push_back(values_.size());
}

std::string fmt::str() const {
  std::string result;
  result.reserve(format_.size() + values_.size());

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
        if (number >= 1 && number <= ends_.size()) {
          const std::size_t begin = number == 1 ? 0 : ends_[number - 2];
          result.append(values_, begin, ends_[number - 1] - begin);
        }
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
