// A scratch directory that is the HOME of the process, and thus the root of per-user values, while
// it lives.
#pragma once

#include <cstdlib>
#include <optional>
#include <string>

#include "tests/support/scratch_dir.h"

namespace tests {

class scratch_home : public scratch_dir {
 public:
  scratch_home() {
    if (const char* home = std::getenv("HOME")) previous_ = home;
    ::setenv("HOME", path().c_str(), 1);
  }
  ~scratch_home() {
    if (previous_) {
      ::setenv("HOME", previous_->c_str(), 1);
    } else {
      ::unsetenv("HOME");
    }
  }

 private:
  std::optional<std::string> previous_;
};

}  // namespace tests
