#include "text/hex.h"

#include <array>

const char* const mirt_hex__ = "0123456789abcdef";

namespace xstd {
namespace {

constexpr std::array<unsigned char, 256> digit_values() {
  std::array<unsigned char, 256> values{};
  for (unsigned char i = 0; i < 10; ++i) values['0' + i] = i;
  for (unsigned char i = 0; i < 6; ++i) {
    values['a' + i] = values['A' + i] = static_cast<unsigned char>(10 + i);
  }
  return values;
}

constexpr std::array<unsigned char, 256> g_digit_values = digit_values();

}  // namespace

int dehex(char digit) {
  return g_digit_values[static_cast<unsigned char>(digit)];
}

void push_hexchar(std::string& out, char byte) {
  const auto value = static_cast<unsigned char>(byte);
  out.push_back(mirt_hex__[value >> 4]);
  out.push_back(mirt_hex__[value & 15]);
}

}  // namespace xstd
