// Namespaces for mounts and processes: all that was started ends with the body.
#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>

#include "tests/e2e/private_system.h"
#include "tests/support/new_process.h"
#include "tests/support/scratch_dir.h"

namespace tests {
namespace fs = std::filesystem;

const std::string product = "/run/the \"product's\" directory";

namespace {

constexpr int not_private = 77;
constexpr unsigned user = 65534;

/// What is missing for a real polkit; empty if nothing is.
std::string missing() {
  if (::geteuid() != 0) return "not root";
  for (const char* program : {"/usr/bin/pkcheck", "/usr/bin/pkexec", "/usr/bin/dbus-daemon",
                              "/usr/lib/polkit-1/polkitd"}) {
    if (!fs::exists(program)) return std::string("not installed: ") + program;
  }
  return "";
}

bool mount_tmpfs(const char* path) {
  return ::mount("tmpfs", path, "tmpfs", 0, "mode=0755") == 0;
}

bool make_private() {
  if (::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) return false;
  if (::mount("proc", "/proc", "proc", 0, nullptr) != 0 || !mount_tmpfs("/run")) return false;
  // What is written below /etc, mount points too, stays in memory.
  fs::create_directories("/run/etc");
  fs::create_directories("/run/work");
  return ::mount("overlay", "/etc", "overlay", 0,
                 "lowerdir=/etc,upperdir=/run/etc,workdir=/run/work") == 0 &&
         (fs::create_directories("/etc/tarnwick"), mount_tmpfs("/etc/tarnwick")) &&
         mount_tmpfs("/etc/polkit-1/rules.d") && mount_tmpfs("/usr/share/polkit-1/actions");
}

std::string replaced(std::string text, const std::string& old, const std::string& with) {
  const std::size_t at = text.find(old);
  EXPECT_NE(std::string::npos, at) << old;
  return text.replace(at, old.size(), with);
}

void install_product() {
  fs::create_directory(product);
  fs::copy_file(TOOL_PATH, product + "/store_product_flags");
  fs::copy_file(DESKTOP_APP_PATH, product + "/desktop_app");
  const std::string policy = content(POLICY_PATH);
  make_file("/usr/share/polkit-1/actions/org.quorvex.store-product-flags.policy",
            replaced(policy, "@MIRT_POLKIT_TOOL@", product + "/store_product_flags"));
}

/// Starts the bus, which starts polkit when it is first asked.
void start_bus() {
  fs::create_directory("/run/dbus");
  int ready[2];
  ASSERT_EQ(0, ::pipe(ready));
  if (::fork() == 0) {
    ::dup2(ready[1], 3);
    for (int i = 0; i < 3; ++i) ::dup2(::open("/dev/null", O_RDWR), i);
    ::close_range(4, ~0U, 0);
    ::execl("/usr/bin/dbus-daemon", "dbus-daemon", "--system", "--nofork", "--nopidfile",
            "--nosyslog", "--print-address=3", nullptr);
    ::_exit(127);
  }
  ::close(ready[1]);
  char first;
  EXPECT_EQ(1, ::read(ready[0], &first, 1)) << "the bus did not start";
  ::close(ready[0]);
}

[[noreturn]] void run(const private_system& wanted, const std::function<void()>& body) {
  if (!make_private()) {
    std::printf("no private system: %s\n", std::strerror(errno));
    std::fflush(nullptr);
    ::_exit(not_private);
  }
  try {
    install_product();
    if (!wanted.rule.empty()) {
      make_file("/etc/polkit-1/rules.d/00-test.rules",
                "polkit.addRule(function(action, subject) { return polkit.Result." + wanted.rule +
                    "; });\n");
    }
    if (wanted.has_bus) start_bus();
    body();
  } catch (const std::exception& error) {
    ADD_FAILURE() << error.what();
  }
  std::fflush(nullptr);
  ::_exit(testing::Test::HasFailure() ? 1 : 0);
}

void become_user() {
  if (::setgroups(0, nullptr) != 0 || ::setgid(user) != 0 || ::setuid(user) != 0) ::_exit(126);
}

}  // namespace

void in_private_system(const private_system& wanted, const std::function<void()>& body) {
  const std::string reason = missing();
  if (!reason.empty()) GTEST_SKIP() << reason;
  std::fflush(nullptr);
  const pid_t outer = ::fork();
  ASSERT_NE(-1, outer);
  if (outer == 0) {
    if (::unshare(CLONE_NEWNS | CLONE_NEWPID) != 0) ::_exit(not_private);
    const pid_t inner = ::fork();  // the first process in there: with it all others end
    if (inner == 0) run(wanted, body);
    int status = 0;
    ::waitpid(inner, &status, 0);
    ::_exit(WIFEXITED(status) ? WEXITSTATUS(status) : 1);
  }
  int status = 0;
  ASSERT_EQ(outer, ::waitpid(outer, &status, 0));
  ASSERT_TRUE(WIFEXITED(status));
  if (WEXITSTATUS(status) == not_private) GTEST_SKIP() << "no namespaces to be had, see above";
  EXPECT_EQ(0, WEXITSTATUS(status)) << "failed in its private system, see above";
}

ended run_as_user(const std::vector<std::string>& command) {
  std::vector<char*> arguments;
  for (const std::string& word : command) arguments.push_back(const_cast<char*>(word.c_str()));
  arguments.push_back(nullptr);
  int ends[2];
  EXPECT_EQ(0, ::pipe2(ends, O_CLOEXEC));
  const pid_t child = ::fork();
  if (child == 0) {
    ::dup2(ends[1], STDOUT_FILENO);
    become_user();
    ::alarm(60);
#ifdef KEPT_IS_NO_LEAK
    ::setenv("ASAN_OPTIONS", "detect_leaks=0", 1);
#endif
    ::execv(arguments[0], arguments.data());
    ::_exit(127);
  }
  ::close(ends[1]);
  ended result;
  char block[4096];
  for (ssize_t size; (size = ::read(ends[0], block, sizeof block)) > 0;) {
    result.output.append(block, static_cast<std::size_t>(size));
  }
  ::close(ends[0]);
  int status = -1;
  EXPECT_EQ(child, ::waitpid(child, &status, 0));
  result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return result;
}

void as_user(const std::function<void()>& body) {
  in_new_process([&] {
    become_user();
    ::alarm(60);
    body();
  });
}

}  // namespace tests
