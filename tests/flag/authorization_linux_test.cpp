// Administrator rights on Linux, with scripts in the places of pkcheck, pkexec and sudo.
#include "flag/authorization_linux.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "flag/authorization.h"
#include "tests/support/new_process.h"
#include "tests/support/scratch_dir.h"

namespace {
uid_t g_user;
}

// Whoever runs the tests, the code sees the user that a test wants.
extern "C" uid_t geteuid() noexcept {
  return g_user;
}

namespace {

namespace fs = std::filesystem;
namespace programs = flag::authorization_programs;
using testing::MatchesRegex;

constexpr AuthorizationFlags may_ask = 19;
constexpr AuthorizationFlags may_not_ask = 18;

/// How many descriptors this process has open, that of the count included.
std::size_t open_descriptors() {
  const fs::directory_iterator all("/proc/self/fd");
  return static_cast<std::size_t>(std::distance(begin(all), end(all)));
}

bool has_children() {
  return ::waitpid(-1, nullptr, WNOHANG) != -1 || errno != ECHILD;
}

std::string read_all(FILE* stream) {
  std::string text;
  char block[4096];
  for (std::size_t size; (size = ::fread(block, 1, sizeof block, stream)) != 0;) {
    text.append(block, size);
  }
  ::fclose(stream);
  return text;
}

class authorization_linux : public testing::Test {
 protected:
  authorization_linux() {
    g_user = 1000;
    programs::pkcheck = pkcheck_.c_str();
    programs::pkexec = pkexec_.c_str();
    programs::sudo = sudo_.c_str();
    ::unsetenv("SUDO_ASKPASS");
    ::signal(SIGCHLD, SIG_DFL);
    EXPECT_EQ(0, ::AuthorizationCreate(nullptr, nullptr, 1, &reference_));
  }
  ~authorization_linux() override {
    EXPECT_EQ(0, ::AuthorizationFree(reference_, 8));
    EXPECT_FALSE(has_children());
    EXPECT_EQ(descriptors_, open_descriptors());
  }

  void script(const std::string& path, const std::string& body) {
    tests::make_file(path, "#!/bin/sh\n" + body + "\n");
    ASSERT_EQ(0, ::chmod(path.c_str(), 0755));
  }

  /// A script that writes its name and arguments, one line per call, into `calls` first.
  void recording(const std::string& path, const std::string& body) {
    script(path, "echo \"${0##*/} $*\" >>'" + scratch_ / "calls" + "'\n" + body);
  }

  /// The calls of all scripts since the last question, without the scratch directory.
  std::string calls() {
    const std::string path = scratch_ / "calls";
    if (!fs::exists(path)) return "";
    std::string text = tests::content(path);
    fs::remove(path);
    for (std::size_t at; (at = text.find(scratch_.path())) != std::string::npos;) {
      text.erase(at, scratch_.path().size());
    }
    return text;
  }

  void polkit(const std::string& pkcheck_body) {
    recording(pkcheck_, pkcheck_body);
    recording(pkexec_, "shift; exec \"$@\"");
  }

  OSStatus ask(AuthorizationFlags flags = may_ask) {
    char name[] = "system.privilege.admin";
    AuthorizationItem item = {name, 0, nullptr, 0};
    const AuthorizationRights rights = {1, &item};
    return ::AuthorizationCopyRights(reference_, &rights, nullptr, flags, nullptr);
  }

  OSStatus execute(const std::string& path, std::string argument, FILE*& stream) {
    char* const arguments[] = {argument.data(), nullptr};
    stream = stdin;  // must not stay
    return ::AuthorizationExecuteWithPrivileges(reference_, path.c_str(), 0, arguments, &stream);
  }

  /// What the tool prints.
  std::string output_of(const std::string& path, const std::string& argument) {
    FILE* stream = nullptr;
    const OSStatus status = execute(path, argument, stream);
    EXPECT_EQ(0, status);
    return status == 0 ? read_all(stream) : "not started";
  }

  const tests::scratch_dir scratch_;
  const std::string pkcheck_ = scratch_ / "pkcheck";
  const std::string pkexec_ = scratch_ / "pkexec";
  const std::string sudo_ = scratch_ / "sudo";
  const std::string tool_ = scratch_ / "tool";
  const std::size_t descriptors_ = open_descriptors();
  AuthorizationRef reference_ = nullptr;
};

// The questions.

void no_matter(int) {}

/// What a host may do with SIGCHLD.
struct sigchld {
  const char* name;
  void (*handler)(int);
  int flags;
};
const sigchld g_sigchld[] = {{"default", SIG_DFL, 0},
                             {"ignored", SIG_IGN, 0},
                             {"handled", no_matter, SA_RESTART},
                             {"no restart", no_matter, 0},
                             {"no zombies", SIG_DFL, SA_NOCLDWAIT}};

void apply(const sigchld& how) {
  struct sigaction action = {};
  action.sa_handler = how.handler;
  action.sa_flags = how.flags;
  ASSERT_EQ(0, ::sigaction(SIGCHLD, &action, nullptr));
}

void expect_still(const sigchld& how) {
  struct sigaction action = {};
  ASSERT_EQ(0, ::sigaction(SIGCHLD, nullptr, &action));
  EXPECT_EQ(how.handler, action.sa_handler);
  EXPECT_EQ(how.flags, action.sa_flags & (SA_RESTART | SA_NOCLDWAIT));
}

TEST_F(authorization_linux, pkchecks_answer_becomes_a_status_whatever_becomes_of_sigchld) {
  const struct {
    const char* answer;
    OSStatus status;
  } rows[] = {{"exit 0", 0},        {"exit 1", -60005},   {"exit 2", -60007},
              {"exit 3", -60006},   {"exit 4", -60008},   {"exit 126", -60008},
              {"exit 127", -60008}, {"exit 255", -60008}, {"kill -KILL $$", -60008}};
  for (const sigchld& how : g_sigchld) {
    apply(how);
    for (const auto& row : rows) {
      SCOPED_TRACE(std::string(how.name) + ", " + row.answer);
      polkit(row.answer);
      EXPECT_EQ(row.status, ask());
      EXPECT_FALSE(has_children());
      EXPECT_EQ(descriptors_, open_descriptors());
      expect_still(how);
    }
  }
}

TEST_F(authorization_linux, pkcheck_is_asked_about_this_very_process) {
  polkit("exit 0");
  std::ifstream stat("/proc/self/stat");
  std::string since;
  for (int i = 0; i < 22; ++i) stat >> since;
  const std::string question = "pkcheck --action-id org.quorvex.store-product-flags --process " +
                               std::to_string(::getpid()) + "," + since + "," +
                               std::to_string(::getuid());
  stat.close();
  EXPECT_EQ(0, ask());
  EXPECT_EQ(question + " --allow-user-interaction\n", calls());
  EXPECT_EQ(0, ask(may_not_ask));
  EXPECT_EQ(question + "\n", calls());
}

TEST_F(authorization_linux, a_pkcheck_that_cannot_start_is_no_service) {
  for (const sigchld& how : g_sigchld) {
    apply(how);
    polkit("exit 0");
    tests::make_file(pkcheck_, "#!/no/such/interpreter\n");
    EXPECT_EQ(-60008, ask()) << how.name;
  }
}

TEST_F(authorization_linux, root_asks_nobody) {
  g_user = 0;
  polkit("exit 1");
  EXPECT_EQ(0, ask());
  EXPECT_EQ("", calls());
}

TEST_F(authorization_linux, without_polkit_sudo_is_asked) {
  const struct {
    const char* missing;
    const char* askpass;  // null: not in the environment
    AuthorizationFlags flags;
    const char* sudo;
    OSStatus status;
    const char* calls;
  } rows[] = {
      {"pkcheck", nullptr, may_ask, "exit 0", 0, "sudo -n -v\n"},
      {"pkexec", nullptr, may_ask, "exit 0", 0, "sudo -n -v\n"},
      {"pkexec", nullptr, may_ask, "exit 1", -60007, "sudo -n -v\n"},
      {"pkexec", "", may_ask, "exit 1", -60007, "sudo -n -v\n"},
      {"pkexec", "/bin/askpass", may_not_ask, "exit 1", -60007, "sudo -n -v\n"},
      {"pkexec", "/bin/askpass", may_ask, "exit 0", 0, "sudo -n -v\n"},
      {"pkexec", "/bin/askpass", may_ask, "exit 1", -60005, "sudo -n -v\nsudo -A -v\n"},
      {"pkexec", "/bin/askpass", may_ask, "[ $1$SUDO_ASKPASS = -A/bin/askpass ]", 0,
       "sudo -n -v\nsudo -A -v\n"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(std::string(row.missing) + ", " + row.sudo);
    polkit("exit 0");
    fs::remove(scratch_ / row.missing);
    if (row.askpass != nullptr) ::setenv("SUDO_ASKPASS", row.askpass, 1);
    recording(sudo_, row.sudo);
    EXPECT_EQ(row.status, ask(row.flags));
    EXPECT_EQ(row.calls, calls());
  }
}

TEST_F(authorization_linux, with_neither_there_is_no_service) {
  EXPECT_EQ(-60008, ask());
  tests::make_file(sudo_, "not executable");
  EXPECT_EQ(-60008, ask());
}

TEST_F(authorization_linux, only_the_administrators_right_is_given) {
  polkit("exit 0");
  char name[] = "system.privilege.admin.", admin[] = "system.privilege.admin";
  AuthorizationItem items[] = {{name, 0, nullptr, 0}, {admin, 0, nullptr, 0}};
  AuthorizationRights* granted = reinterpret_cast<AuthorizationRights*>(this);
  const AuthorizationRights other = {1, items}, none = {0, items}, two = {2, items};
  EXPECT_EQ(-60005, ::AuthorizationCopyRights(reference_, &other, nullptr, 19, &granted));
  EXPECT_EQ(nullptr, granted);
  EXPECT_EQ(-60001, ::AuthorizationCopyRights(reference_, &none, nullptr, 19, nullptr));
  EXPECT_EQ(-60001, ::AuthorizationCopyRights(reference_, &two, nullptr, 19, nullptr));
  EXPECT_EQ(-60001, ::AuthorizationCopyRights(reference_, nullptr, nullptr, 19, nullptr));
  EXPECT_EQ("", calls());
}

TEST(authorization_linux_create, wrong_pointers_are_refused) {
  AuthorizationRef reference = nullptr;
  const AuthorizationRights rights = {0, nullptr};
  EXPECT_EQ(-60004, ::AuthorizationCreate(nullptr, nullptr, 1, nullptr));
  EXPECT_EQ(-60001, ::AuthorizationCreate(&rights, nullptr, 1, &reference));
  EXPECT_EQ(-60002, ::AuthorizationFree(nullptr, 8));
  EXPECT_EQ(-60002, ::AuthorizationCopyRights(nullptr, &rights, nullptr, 19, nullptr));
  FILE* stream = nullptr;
  EXPECT_EQ(-60002, ::AuthorizationExecuteWithPrivileges(nullptr, "/x", 0, nullptr, &stream));
}

// The start.

// Tells all that a program can see of its start. Of the signals, those that a host can be careless
// with: the C library keeps some of the higher ones for itself.
const char* const g_curious = R"(
echo "[$#] $1"
ls /proc/self/fd | tr '\n' ' '; echo
cat; env | grep -v ^PWD= | grep -v ^_= | sort
grep -E 'Sig(Blk|Ign)' /proc/self/status | sed 's/:.*\(.......\)$/ \1/')";

const char* const g_plain = R"([1] a=CT&b='$HOME`x`"
0 1 2 3 
PATH=/usr/sbin:/usr/bin:/sbin:/bin
SigBlk 0000000
SigIgn 0000000
)";

/// Leaves a descriptor open, ignores a signal and blocks another.
class careless_host {
 public:
  careless_host() {
    ::dup2(STDERR_FILENO, 50);
    ::signal(SIGUSR1, SIG_IGN);
    ::sigset_t signals;
    ::sigemptyset(&signals);
    ::sigaddset(&signals, SIGUSR2);
    ::sigprocmask(SIG_BLOCK, &signals, &before_);
  }
  ~careless_host() {
    ::sigprocmask(SIG_SETMASK, &before_, nullptr);
    ::signal(SIGUSR1, SIG_DFL);
    ::close(50);
  }

 private:
  sigset_t before_;
};

TEST_F(authorization_linux, root_starts_the_tool_itself_with_nothing_of_the_hosts) {
  g_user = 0;
  script(tool_, g_curious);
  EXPECT_EQ(0, ask());
  const careless_host host;
  EXPECT_EQ(g_plain, output_of(tool_, "a=CT&b='$HOME`x`\""));
}

TEST_F(authorization_linux, pkexec_starts_it_with_nothing_of_the_hosts) {
  polkit("exit 0");
  script(tool_, g_curious);
  EXPECT_EQ(0, ask());
  calls();
  const careless_host host;
  EXPECT_EQ(g_plain, output_of(tool_, "a=CT&b='$HOME`x`\""));
  EXPECT_EQ("pkexec --disable-internal-agent /tool a=CT&b='$HOME`x`\"\n", calls());
}

TEST_F(authorization_linux, pkcheck_too_gets_nothing_of_the_hosts) {
  for (const sigchld& how : g_sigchld) {
    apply(how);
    polkit(std::string("{\n") + g_curious + "\n} >'" + scratch_ / "seen" + "'");
    const careless_host host;
    EXPECT_EQ(0, ask());
    const std::string seen = tests::content(scratch_ / "seen");
    EXPECT_EQ(std::string(g_plain).substr(std::string(g_plain).find('\n')),
              seen.substr(seen.find('\n')));
  }
}

TEST_F(authorization_linux, sudo_starts_it_with_the_users_environment) {
  recording(sudo_, "[ $2 = -v ] || { echo $MIRT_TEST; shift 2; exec \"$@\"; }");
  script(tool_, "echo \"$@\"");
  ::setenv("MIRT_TEST", "kept", 1);
  EXPECT_EQ(0, ask());
  EXPECT_EQ("kept\nx=CT\n", output_of(tool_, "x=CT"));
  EXPECT_EQ("sudo -n -v\nsudo -n -- /tool x=CT\n", calls());
}

TEST_F(authorization_linux, pkexec_is_a_child_of_this_process) {
  polkit("exit 0");
  script(tool_, "echo $PPID");
  for (const sigchld& how : g_sigchld) {
    apply(how);
    EXPECT_EQ(0, ask());
    EXPECT_EQ(std::to_string(::getpid()) + "\n", output_of(tool_, ""));
  }
}

TEST_F(authorization_linux, nothing_is_started_without_the_right) {
  polkit("exit 1");
  script(tool_, "");
  FILE* stream = nullptr;
  EXPECT_EQ(-60005, execute(tool_, "x=CT", stream));
  EXPECT_EQ(nullptr, stream);
  EXPECT_EQ("", calls());
  EXPECT_EQ(-60005, ask());
  EXPECT_EQ(-60005, execute(tool_, "x=CT", stream));
}

TEST_F(authorization_linux, a_later_refusal_takes_the_right_back) {
  polkit("exit 0");
  script(tool_, "");
  EXPECT_EQ(0, ask());
  polkit("exit 3");
  EXPECT_EQ(-60006, ask());
  FILE* stream = nullptr;
  EXPECT_EQ(-60005, execute(tool_, "x=CT", stream));
}

TEST_F(authorization_linux, what_is_no_program_is_not_started) {
  polkit("exit 0");
  script(scratch_ / "plain", "");
  ASSERT_EQ(0, ::chmod((scratch_ / "plain").c_str(), 0666));
  for (const uid_t user : {0, 1000}) {
    g_user = user;
    EXPECT_EQ(0, ask());
    calls();
    for (const std::string& path : {scratch_ / "missing", scratch_ / "plain", scratch_.path(),
                                    std::string("tool"), std::string(), scratch_ / "plain/below"}) {
      FILE* stream = nullptr;
      EXPECT_EQ(-60031, execute(path, "x=CT", stream)) << path;
      EXPECT_EQ(nullptr, stream) << path;
    }
    EXPECT_EQ("", calls());
  }
}

TEST_F(authorization_linux, what_the_system_cannot_start_leaves_nothing_behind) {
  g_user = 0;
  EXPECT_EQ(0, ask());
  script(tool_, "");
  tests::make_file(tool_, "#!/no/such/interpreter\n");
  FILE* stream = nullptr;
  EXPECT_EQ(-60031, execute(tool_, "x=CT", stream));
  EXPECT_EQ(nullptr, stream);
  script(tool_, "");
  EXPECT_EQ(-60031, execute(tool_, std::string(128 * 1024, 'x'), stream));
  EXPECT_EQ(nullptr, stream);
}

TEST_F(authorization_linux, an_argument_of_100_kb_and_megabytes_of_output_go_through) {
  polkit("exit 0");
  script(tool_, "echo ${#1}; head -c 5000000 /dev/zero");
  EXPECT_EQ(0, ask());
  EXPECT_EQ("100000\n" + std::string(5000000, '\0'), output_of(tool_, std::string(100000, 'x')));
}

TEST_F(authorization_linux, a_path_of_every_byte_is_handed_on_as_it_is) {
  std::string name = "tool";
  for (int byte = 1; byte < 256; ++byte) {
    if (byte != '/') name += static_cast<char>(byte);
  }
  name.resize(250);
  polkit("exit 0");
  script(scratch_ / name, "echo \"$1\"");
  EXPECT_EQ(0, ask());
  EXPECT_EQ("x=CT\n", output_of(scratch_ / name, "x=CT"));
}

TEST_F(authorization_linux, the_stream_is_not_inherited) {
  g_user = 0;
  script(tool_, "");
  EXPECT_EQ(0, ask());
  FILE* stream = nullptr;
  ASSERT_EQ(0, execute(tool_, "", stream));
  EXPECT_EQ(FD_CLOEXEC, ::fcntl(::fileno(stream), F_GETFD));
  EXPECT_EQ("", read_all(stream));
}

TEST_F(authorization_linux, a_host_without_standard_streams_is_served_too) {
  g_user = 0;
  script(tool_, g_curious);
  for (int missing = 1; missing < 8; ++missing) {
    tests::in_new_process([&] {
      for (int descriptor = 0; descriptor < 3; ++descriptor) {
        if ((missing >> descriptor & 1) != 0) ::close(descriptor);
      }
      const bool right = ask() == 0 && output_of(tool_, "a=CT&b='$HOME`x`\"") == g_plain;
      ::AuthorizationFree(reference_, 8);
      ::_exit(right ? 0 : 1);
    });
  }
}

TEST_F(authorization_linux, giving_the_reference_back_waits_for_the_tools_end) {
  for (const sigchld& how : g_sigchld) {
    apply(how);
    polkit("exit 0");
    const std::string fifo = scratch_ / "fifo", mark = scratch_ / "mark";
    ASSERT_EQ(0, ::mkfifo(fifo.c_str(), 0600));
    script(tool_, "exec >&-\nread line <'" + fifo + "'\necho $line >'" + mark + "'");
    EXPECT_EQ(0, ask());
    EXPECT_EQ("", output_of(tool_, ""));  // closed, and not yet ended
    EXPECT_FALSE(fs::exists(mark));
    std::thread writer([&] { tests::make_file(fifo, "end\n"); });
    EXPECT_EQ(0, ::AuthorizationFree(reference_, 8));
    EXPECT_EQ("end\n", tests::content(mark));
    writer.join();
    expect_still(how);
    fs::remove(fifo);
    fs::remove(mark);
    EXPECT_EQ(0, ::AuthorizationCreate(nullptr, nullptr, 1, &reference_));
  }
}

TEST_F(authorization_linux, a_tool_may_run_twice_and_without_a_stream) {
  polkit("exit 0");
  recording(tool_, "echo $1");
  EXPECT_EQ(0, ask());
  calls();
  EXPECT_EQ("a\n", output_of(tool_, "a"));
  EXPECT_EQ("b\n", output_of(tool_, "b"));
  EXPECT_EQ(0,
            ::AuthorizationExecuteWithPrivileges(reference_, tool_.c_str(), 0, nullptr, nullptr));
  EXPECT_EQ(0, ::AuthorizationFree(reference_, 8));
  EXPECT_THAT(calls(), MatchesRegex("pkexec .*a\ntool a\npkexec .*b\ntool b\n"
                                    "pkexec [^\n]*/tool\ntool \n"));
  EXPECT_EQ(0, ::AuthorizationCreate(nullptr, nullptr, 1, &reference_));
}

}  // namespace
