// The tool's argument: parsed as a naive parser does, and the same again after it was built anew.
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>

#include "fuzz/check.h"
#include "tests/support/naive_cgi.h"
#include "text/cgi.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(data, data + size);
  std::map<std::string, std::string> params = cgi_parse_param(text, '&', '=');
  fuzz::check(params == tests::naive_parse(text), "two parsers agree", text);

  params.erase("");  // an empty key is never written
  for (const urlencode_mode mode : {urlencode_strict, urlencode_unreserved}) {
    const std::string built = cgi_get_param(params, mode);
    const std::map<std::string, std::string> again = cgi_parse_param(built, '&', '=');
    fuzz::check(again == params, "what was built is parsed to the same", built);
    fuzz::check_same(cgi_get_param(again, mode), built, "what was parsed is built to the same");
  }
  return 0;
}
