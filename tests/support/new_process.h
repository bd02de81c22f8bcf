// Runs a part of a test in a process of its own, for what happens once per process.
#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <exception>
#include <utility>

namespace tests {

/// Runs `body` in a child; what fails there, or ends the child, fails the test here.
template <class F>
void in_new_process(F&& body) {
  std::fflush(nullptr);
  const pid_t child = ::fork();
  ASSERT_NE(child, -1);
  if (child == 0) {
    try {
      std::forward<F>(body)();
    } catch (const std::exception& error) {
      ADD_FAILURE() << "thrown: " << error.what();
    }
    std::fflush(nullptr);
    ::_exit(::testing::Test::HasFailure() ? 1 : 0);
  }
  int status = -1;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status)) << "ended by signal " << WTERMSIG(status);
  EXPECT_EQ(WEXITSTATUS(status), 0) << "failed in its own process, see above";
}

}  // namespace tests
