// Every short string over an alphabet, for tests that leave nothing out.
#pragma once

#include <cstddef>
#include <string>

namespace tests {

/// Calls `action` with each string of 0 to `longest` characters of `alphabet`.
template <class Action>
void for_all_strings(const std::string& alphabet, std::size_t longest, Action action,
                     const std::string& prefix = "") {
  action(prefix);
  if (longest == 0) return;
  for (const char c : alphabet) for_all_strings(alphabet, longest - 1, action, prefix + c);
}

}  // namespace tests
