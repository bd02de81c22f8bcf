// Message templates: the first bytes choose the arguments, the rest is the template; the text is
// the one that a naive formatter makes.
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "fuzz/check.h"
#include "mirt/diag/fmt.h"
#include "tests/support/naive_fmt.h"

namespace {

/// Takes the first byte off the input; 0 once there is none.
std::size_t take_byte(std::string& input) {
  if (input.empty()) return 0;
  const auto byte = static_cast<unsigned char>(input.front());
  input.erase(0, 1);
  return byte;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string input(data, data + size);
  std::vector<std::string> arguments(take_byte(input) % 13);
  for (std::string& argument : arguments) {
    const std::size_t length = take_byte(input) % 8;
    argument = input.substr(0, length);
    input.erase(0, argument.size());
  }

  mirt::fmt message(input);
  for (const std::string& argument : arguments) {
    message.str();  // reading in between changes nothing
    message.add(argument);
  }
  const std::string result = message.str();
  const std::optional<std::string> expected = tests::naive_fmt(input, arguments);
  if (expected) fuzz::check_same(result, *expected, "two formatters agree");
  return 0;
}
