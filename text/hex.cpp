#include "text/hex.h"

const char* const mirt_hex__ = "0123456789abcdef";

namespace xstd {

void push_hexchar(std::string& out, char byte) {
  const auto value = static_cast<unsigned char>(byte);
  out.push_back(mirt_hex__[value >> 4]);
  out.push_back(mirt_hex__[value & 15]);
}

}  // namespace xstd
