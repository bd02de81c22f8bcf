// A private /etc through a mount namespace; without root, inside a user namespace.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>

#include "tests/support/private_etc.h"

namespace tests {
namespace {

enum ending { passed, failed, skipped, not_private };

bool write_proc(const char* path, const std::string& text) {
  const int fd = ::open(path, O_WRONLY | O_CLOEXEC);
  if (fd < 0) return false;
  const bool written = ::write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
  return ::close(fd) == 0 && written;
}

bool enter_namespaces() {
  if (::unshare(CLONE_NEWNS) == 0) return true;
  const std::string uid = std::to_string(::geteuid());
  const std::string gid = std::to_string(::getegid());
  return ::unshare(CLONE_NEWUSER | CLONE_NEWNS) == 0 &&
         write_proc("/proc/self/setgroups", "deny") &&
         write_proc("/proc/self/uid_map", "0 " + uid + " 1") &&
         write_proc("/proc/self/gid_map", "0 " + gid + " 1");
}

bool hide_etc() {
  return enter_namespaces() && ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
         ::mount("tmpfs", "/etc", "tmpfs", 0, "mode=0755") == 0;
}

[[noreturn]] void run(const std::function<void()>& body, int reason) {
  if (!hide_etc()) {
    const char* text = std::strerror(errno);
    const ssize_t ignored = ::write(reason, text, std::strlen(text));
    ::_exit(ignored < 0 ? failed : not_private);
  }
  try {
    body();
  } catch (const std::exception& e) {
    ADD_FAILURE() << e.what();
  }
  std::fflush(nullptr);
  ::_exit(testing::Test::HasFailure() ? failed : testing::Test::IsSkipped() ? skipped : passed);
}

}  // namespace

void in_private_etc(const std::function<void()>& body) {
  int reason[2];
  ASSERT_EQ(0, ::pipe(reason));
  std::fflush(nullptr);
  const pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) run(body, reason[1]);
  ::close(reason[1]);
  int status = 0;
  ASSERT_EQ(child, ::waitpid(child, &status, 0));
  char text[256] = {};
  const ssize_t size = ::read(reason[0], text, sizeof text - 1);
  ::close(reason[0]);
  ASSERT_GE(size, 0);
  ASSERT_TRUE(WIFEXITED(status)) << "ended by signal " << WTERMSIG(status);
  if (WEXITSTATUS(status) == not_private) GTEST_SKIP() << "no private /etc to be had: " << text;
  if (WEXITSTATUS(status) == skipped) GTEST_SKIP() << "skipped for the reason above";
  EXPECT_EQ(passed, WEXITSTATUS(status)) << "failed in its private /etc, see above";
}

void mount_tmpfs(const std::string& directory, const std::string& options) {
  ASSERT_EQ(0, ::mount("tmpfs", directory.c_str(), "tmpfs", 0, options.c_str()))
      << std::strerror(errno);
}

void make_read_only(const std::string& directory) {
  ASSERT_EQ(0, ::mount("tmpfs", directory.c_str(), "tmpfs", MS_REMOUNT | MS_RDONLY, nullptr))
      << std::strerror(errno);
}

}  // namespace tests
