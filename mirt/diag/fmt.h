// Message texts: numbered placeholders, and plain concatenation.
//
// Ownership: builders and results own their text.
// Threads: one builder belongs to one thread at a time; `stringify` may be called from any thread.
// Numbers look the same whatever the locale of the process is.
#pragma once

#include <charconv>
#include <cstddef>
#include <locale>
#include <sstream>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace mirt {

/// Fills a template in which "%1%" stands for the first argument, "%2%" for the second, and so on.
///
///   "%2% then %1%"  "A" "B"   gives "B then A"
///   "a%1%b%1%"      "X"       gives "aXbX"       a number may stand more than once
///   "count: %1%"              gives "count: "    what was not added stays empty, so does "%0%"
///   "100%% %x %12x %1"        gives "100% %x %12x %1"
///
/// Arguments that the template does not mention are ignored.
class fmt {
 public:
  explicit fmt(const std::string& format) : format_(format) {}
  explicit fmt(std::string&& format) : format_(std::move(format)) {}

  /// Adds the next argument.
  void add(const std::string& value);

  /// Adds the next argument as `operator<<` writes it, filled up on the left with `fill` (0: a
  /// space) to at least `width` characters (0: no filling).
  template <class T>
  void _add_arg(const T& value, char fill, unsigned char width);

  /// The text with the arguments that were added so far.
  std::string str() const;

 private:
  void add_padded(const char* value, std::size_t size, char fill, unsigned char width);

  std::string format_;
  std::string values_;             // all arguments, one behind the other
  std::vector<std::size_t> ends_;  // where each of them ends in values_
};

/// All arguments as `operator<<` writes them, with nothing in between.
template <class... Args>
std::string stringify(const Args&... args) {
  std::ostringstream out;
  out.imbue(std::locale::classic());
  ((out << args), ...);
  return out.str();
}

template <class T>
void fmt::_add_arg(const T& value, char fill, unsigned char width) {
  if constexpr (std::is_same_v<T, std::string>) {
    add_padded(value.data(), value.size(), fill, width);
  } else if constexpr (std::is_same_v<T, int>) {
    char digits[16];
    const char* const end = std::to_chars(digits, digits + sizeof digits, value).ptr;
    add_padded(digits, static_cast<std::size_t>(end - digits), fill, width);
  } else {
    std::ostringstream out;
    out.imbue(std::locale::classic());
    if (fill != 0) out.fill(fill);
    if (width != 0) out.width(width);
    out << value;
    add(out.str());
  }
}

}  // namespace mirt
