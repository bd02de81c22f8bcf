// Percent coding: any text decodes as a naive decoder does, and encoding is undone by decoding.
#include <algorithm>
#include <cctype>
#include <cstddef>
#include <cstdint>
#include <string>

#include "fuzz/check.h"
#include "tests/support/naive_cgi.h"
#include "text/cgi.h"

namespace {

/// Whether the text has nothing but what the encoder may write.
bool is_encoded(const std::string& text) {
  return std::all_of(text.begin(), text.end(), [](unsigned char c) {
    return std::isalnum(c) || std::string("_%+-.~").find(static_cast<char>(c)) != std::string::npos;
  });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(data, data + size);
  // The bytes themselves, so that a sanitizer sees a read beyond them.
  const mirt::string_ref view(reinterpret_cast<const char*>(data), size);
  for (const bool plus : {false, true}) {
    fuzz::check_same(urldecode(view, plus), tests::naive_decode(text, plus), "two decoders agree");
    for (const urlencode_mode mode : {urlencode_strict, urlencode_unreserved}) {
      const std::string encoded = urlencode(text, mode, plus);
      fuzz::check(is_encoded(encoded), "the encoder writes harmless bytes", encoded);
      fuzz::check_same(urldecode(encoded, plus), text, "decoding undoes encoding");
    }
  }
  return 0;
}
