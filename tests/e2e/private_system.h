// Runs a test's body on a small system of its own: private processes, /run and /etc, with a real
// polkit on a real bus where that is wanted. The machine's own is never touched.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace tests {

struct private_system {
  std::string rule;     // what polkit answers for everything: YES, NO; empty: what its policy says
  bool has_bus = true;  // without it polkit cannot be reached
};

/// Runs `body` as root in there; what fails there fails the calling test. A system that cannot
/// give one skips the test, with the reason. The last statement of a test.
void in_private_system(const private_system& wanted, const std::function<void()>& body);

// What follows is for such a body alone.

/// The product's directory, with the tool, its policy installed, and the example application. Only
/// root can write it; its name needs quoting.
extern const std::string product;

struct ended {
  int status;
  std::string output;
};

/// Runs a program to its end as a user without any rights.
ended run_as_user(const std::vector<std::string>& command);

/// Runs `body` in a process of that user's; what fails there fails the calling test.
void as_user(const std::function<void()>& body);

}  // namespace tests
