// macOS hides no directory from a single process: what needs a private /etc is skipped there.
#include <gtest/gtest.h>

#include "tests/support/private_etc.h"

namespace tests {

void in_private_etc(const std::function<void()>&) {
  GTEST_SKIP() << "no private /etc to be had: the system has no mount namespaces";
}

void mount_tmpfs(const std::string&, const std::string&) {
  FAIL() << "only in a private /etc";
}

void make_read_only(const std::string&) {
  FAIL() << "only in a private /etc";
}

}  // namespace tests
