// The path of a named value: no name leads out of its root, and the path tells the name.
#include <algorithm>
#include <cctype>
#include <cstddef>
#include <cstdint>
#include <string>

#include "fuzz/check.h"
#include "tests/support/naive_cgi.h"
#include "xstd/config.h"

namespace {

bool is_harmless(unsigned char c) {
  return std::isalnum(c) || c == '_' || c == '%' || c == '+' || c == '/';
}

/// The name with one "/" between its components, "_" if it has none.
std::string plain_name(const std::string& name) {
  std::string result;
  for (const char c : name) {
    if (c != '/' && c != '\\') {
      result += c;
    } else if (!result.empty() && result.back() != '/') {
      result += '/';
    }
  }
  if (!result.empty() && result.back() == '/') result.pop_back();
  return result.empty() ? "_" : result;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string name(data, data + size);
  for (const int number : {0, 1, 77}) {
    const auto location = static_cast<xstd::StorageLocation>(number);
    const std::string root = xstd::get_config_dir_ex(location);
    const std::string full = xstd::get_config_dir_ex(location, name);
    fuzz::check(full.compare(0, root.size(), root) == 0, "a path starts with its root", full);

    const std::string path = full.substr(root.size());
    fuzz::check(std::all_of(path.begin(), path.end(), is_harmless),
                "a path has nothing but letters, digits and _ % + /", path);
    fuzz::check(path.find("..") == std::string::npos, "a path never climbs", path);
    fuzz::check(path.find("//") == std::string::npos, "a path has no empty level", path);
    fuzz::check(!path.empty() && path.front() != '/' && path.back() != '/',
                "a path starts and ends with a component", path);
    fuzz::check_same(tests::naive_decode(path, true), plain_name(name), "a path tells its name");
  }
  return 0;
}
