// A global C++ locale under which nothing is as usual: numbers are grouped, the decimal point is a
// comma and 'x' counts as a digit.
#pragma once

#include <algorithm>
#include <locale>
#include <string>

namespace tests {

class hostile_locale {
 public:
  hostile_locale()
      : previous_(std::locale::global(
            std::locale(std::locale(std::locale::classic(), new grouped), new digit_x))) {}
  ~hostile_locale() { std::locale::global(previous_); }
  hostile_locale(const hostile_locale&) = delete;
  hostile_locale& operator=(const hostile_locale&) = delete;

 private:
  struct grouped : std::numpunct<char> {
    char do_thousands_sep() const override { return '.'; }
    char do_decimal_point() const override { return ','; }
    std::string do_grouping() const override { return "\1"; }
  };

  struct digit_x : std::ctype<char> {
    digit_x() : std::ctype<char>(table()) {}
    static const mask* table() {
      static mask masks[table_size];
      std::copy_n(classic_table(), table_size, masks);
      masks[static_cast<int>('x')] = digit;
      return masks;
    }
  };

  std::locale previous_;
};

}  // namespace tests
