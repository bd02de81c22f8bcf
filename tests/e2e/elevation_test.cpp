// An ordinary user's application changes machine-wide flags through a real polkit, or does not.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "flag/authorization.h"
#include "tests/e2e/private_system.h"
#include "tests/support/scratch_dir.h"

namespace {

namespace fs = std::filesystem;
using tests::as_user;
using tests::ended;
using tests::in_private_system;
using tests::private_system;
using tests::product;
using tests::run_as_user;
using string_map = std::map<std::string, std::string>;

const std::string g_flags = "/etc/tarnwick/Quorvex/flags";
const private_system allowing = {"YES"};
const private_system denying = {"NO"};
const private_system nobody_to_ask = {""};
const private_system without_bus = {"YES", false};

ended desktop_app(const std::vector<std::string>& wishes) {
  std::vector<std::string> command = {product + "/desktop_app"};
  command.insert(command.end(), wishes.begin(), wishes.end());
  return run_as_user(command);
}

string_map store() {
  return tests::tree("/etc/tarnwick");
}

/// The state letter of a process; 0 if there is none such.
char state_of(const fs::path& process) {
  std::ifstream file(process / "stat");
  const std::string text{std::istreambuf_iterator<char>(file), {}};
  const std::size_t bracket = text.rfind(')');
  return bracket == std::string::npos ? '\0' : text[bracket + 2];
}

TEST(elevation, an_allowed_user_changes_the_store) {
  in_private_system(allowing, [] {
    fs::create_directories(g_flags);
    tests::make_file(g_flags + "/old_flag", "true");
    const ended app = desktop_app({"Example flag=on", "other=off", "old_flag=default"});
    EXPECT_EQ(
        "handed over: example_flag=CT&old_flag=DF&other=CF\n"
        "example_flag is on\nother is off\nold_flag is default\n",
        app.output);
    EXPECT_EQ(0, app.status);
    EXPECT_EQ((string_map{{"example_flag", "true"}, {"other", "false"}}), tests::tree(g_flags));
    struct stat file;
    ASSERT_EQ(0, ::stat((g_flags + "/other").c_str(), &file));
    EXPECT_EQ(0u, file.st_uid);
  });
}

void changes_nothing(const private_system& system) {
  in_private_system(system, [] {
    const ended app = desktop_app({"example_flag=on"});
    EXPECT_EQ("not saved:Error in 'save'\n", app.output);
    EXPECT_EQ(1, app.status);
    EXPECT_THAT(store(), testing::IsEmpty());
  });
}

TEST(elevation, a_denied_user_changes_nothing) {
  changes_nothing(denying);
}

TEST(elevation, a_user_whom_nobody_can_ask_changes_nothing) {
  changes_nothing(nobody_to_ask);
}

TEST(elevation, without_the_service_nothing_is_changed) {
  changes_nothing(without_bus);
}

TEST(elevation, nothing_to_save_asks_nobody) {
  in_private_system(denying, [] {
    const ended app = desktop_app({});
    EXPECT_EQ("handed over: \n", app.output);
    EXPECT_EQ(0, app.status);
  });
}

TEST(elevation, settings_of_100_kb_are_stored) {
  in_private_system(allowing, [] {
    std::vector<std::string> wishes;
    for (int i = 10000; i < 20000; ++i) wishes.push_back("f" + std::to_string(i) + "=on");
    EXPECT_EQ(0, desktop_app(wishes).status);
    EXPECT_EQ(10000u, tests::tree(g_flags).size());
  });
}

TEST(elevation, a_missing_tool_or_one_that_is_no_program_is_a_failure) {
  in_private_system(allowing, [] {
    const std::string tool = product + "/store_product_flags";
    ASSERT_EQ(0, ::chmod(tool.c_str(), 0644));
    EXPECT_EQ("not saved:Error in 'save'\n", desktop_app({"x=on"}).output);
    fs::remove(tool);
    EXPECT_EQ("not saved:Error in 'save'\n", desktop_app({"x=on"}).output);
    EXPECT_THAT(store(), testing::IsEmpty());
  });
}

TEST(elevation, a_tool_that_only_its_owner_root_may_start_is_started) {
  in_private_system(allowing, [] {
    ASSERT_EQ(0, ::chmod((product + "/store_product_flags").c_str(), 0700));
    EXPECT_EQ(0, desktop_app({"x=on"}).status);
  });
}

TEST(elevation, consent_for_another_program_does_not_start_the_tool) {
  in_private_system(nobody_to_ask, [] {
    tests::make_file(
        "/etc/polkit-1/rules.d/00-test.rules",
        "polkit.addRule(function(action, subject) {"
        "  if (action.id == 'org.freedesktop.policykit.exec') return polkit.Result.YES;"
        "});\n");
    EXPECT_EQ("not saved:Error in 'save'\n", desktop_app({"x=on"}).output);
    EXPECT_THAT(store(), testing::IsEmpty());
  });
}

// The four functions themselves.

OSStatus ask(AuthorizationRef reference) {
  char name[] = "system.privilege.admin";
  AuthorizationItem item = {name, 0, nullptr, 0};
  const AuthorizationRights rights = {1, &item};
  return ::AuthorizationCopyRights(reference, &rights, nullptr, 19, nullptr);
}

std::size_t open_descriptors() {
  const fs::directory_iterator all("/proc/self/fd");
  return static_cast<std::size_t>(std::distance(begin(all), end(all)));
}

/// Asks, starts the tool if that was granted, and looks for what was left behind.
void ask_and_run(OSStatus expected) {
  const std::size_t before = open_descriptors();
  AuthorizationRef reference = nullptr;
  ASSERT_EQ(0, ::AuthorizationCreate(nullptr, nullptr, 1, &reference));
  EXPECT_EQ(expected, ask(reference));
  char setting[] = "x=CT";
  char* const arguments[] = {setting, nullptr};
  FILE* stream = nullptr;
  EXPECT_EQ(expected == 0 ? 0 : -60005,
            ::AuthorizationExecuteWithPrivileges(
                reference, (product + "/store_product_flags").c_str(), 0, arguments, &stream));
  if (stream != nullptr) {
    EXPECT_EQ(EOF, std::fgetc(stream));
    std::fclose(stream);
  }
  EXPECT_EQ(0, ::AuthorizationFree(reference, 8));
  EXPECT_EQ(-1, ::waitpid(-1, nullptr, WNOHANG));
  EXPECT_EQ(ECHILD, errno);
  EXPECT_EQ(before, open_descriptors());
}

TEST(elevation, each_answer_has_its_status_and_leaves_no_child_and_no_descriptor) {
  const struct {
    const char* name;
    private_system system;
    OSStatus status;
  } rows[] = {{"allowed", allowing, 0},
              {"denied", denying, -60005},
              {"nobody to ask", nobody_to_ask, -60007},
              {"no bus", without_bus, -60008}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    in_private_system(row.system, [&] {
      for (void (*const sigchld)(int) : {SIG_DFL, SIG_IGN}) {
        as_user([&] {
          ::signal(SIGCHLD, sigchld);
          ask_and_run(row.status);
        });
        EXPECT_EQ(row.status == 0, fs::exists(g_flags + "/x"));
      }
      for (const fs::directory_entry& entry : fs::directory_iterator("/proc")) {
        if (entry.path().filename().string().find_first_not_of("0123456789") == std::string::npos) {
          EXPECT_NE('Z', state_of(entry.path())) << entry.path();
        }
      }
    });
  }
}

TEST(elevation, an_unknown_action_is_no_service) {
  in_private_system(nobody_to_ask, [] {
    fs::remove("/usr/share/polkit-1/actions/org.quorvex.store-product-flags.policy");
    as_user([] { ask_and_run(-60008); });
  });
}

// With somebody to ask.

/// polkit's agent for terminals, on one of its own, for this process; gone at the latest with it.
class agent {
 public:
  agent() {
    int ready[2];
    EXPECT_EQ(0, ::pipe(ready));
    const std::string process = std::to_string(::getpid());
    const std::string number = std::to_string(ready[1]);
    process_ = ::forkpty(&terminal_, nullptr, nullptr, nullptr);
    if (process_ == 0) {
      ::execl("/usr/bin/pkttyagent", "pkttyagent", "--process", process.c_str(), "--notify-fd",
              number.c_str(), nullptr);
      ::_exit(127);
    }
    ::close(ready[1]);
    char none;
    EXPECT_EQ(0, ::read(ready[0], &none, 1));  // closed once it is registered
    ::close(ready[0]);
  }
  ~agent() {
    kill();
    ::close(terminal_);
    ::waitpid(process_, nullptr, 0);
  }
  agent(const agent&) = delete;
  agent& operator=(const agent&) = delete;

  void kill() { ::kill(process_, SIGKILL); }

  /// Types once the terminal hides what is typed: the agent throws away what came before that. No
  /// event tells of it, so the terminal is looked at again and again.
  void type_hidden(const std::string& keys) {
    termios settings;
    do {
      std::this_thread::yield();
      ASSERT_EQ(0, ::tcgetattr(terminal_, &settings));
    } while ((settings.c_lflag & ECHO) != 0);
    EXPECT_EQ(static_cast<ssize_t>(keys.size()), ::write(terminal_, keys.data(), keys.size()));
  }

  /// Reads the terminal until it shows this text; false if the agent ends before.
  bool shows(const std::string& text) {
    char next;
    for (std::string seen; seen.find(text) == std::string::npos; seen += next) {
      if (::read(terminal_, &next, 1) != 1) return false;
    }
    return true;
  }

 private:
  int terminal_ = -1;
  pid_t process_ = -1;
};

TEST(elevation, an_agent_that_is_killed_while_it_asks_is_a_refusal) {
  in_private_system(nobody_to_ask, [] {
    as_user([] {
      agent user;
      std::thread watcher([&] {
        EXPECT_TRUE(user.shows("assword"));
        user.kill();
      });
      AuthorizationRef reference = nullptr;
      ASSERT_EQ(0, ::AuthorizationCreate(nullptr, nullptr, 1, &reference));
      EXPECT_THAT(ask(reference), testing::AnyOf(-60005, -60006));
      EXPECT_EQ(0, ::AuthorizationFree(reference, 8));
      watcher.join();
    });
  });
}

TEST(elevation, the_administrators_password_is_asked_for_once) {
  in_private_system(nobody_to_ask, [] {
    ASSERT_EQ(0, std::system("echo root:secret | chpasswd"));
    as_user([] {
      agent user;
      std::thread watcher([&] {
        EXPECT_TRUE(user.shows("assword"));
        user.type_hidden("secret\n");
        EXPECT_TRUE(user.shows("COMPLETE"));
        EXPECT_FALSE(user.shows("assword"));
      });
      AuthorizationRef reference = nullptr;
      ASSERT_EQ(0, ::AuthorizationCreate(nullptr, nullptr, 1, &reference));
      EXPECT_EQ(0, ask(reference));
      char setting[] = "x=CT";
      char* const arguments[] = {setting, nullptr};
      FILE* stream = nullptr;
      const std::string tool = product + "/store_product_flags";
      EXPECT_EQ(
          0, ::AuthorizationExecuteWithPrivileges(reference, tool.c_str(), 0, arguments, &stream));
      if (stream != nullptr) {
        EXPECT_EQ(EOF, std::fgetc(stream));
        std::fclose(stream);
      }
      EXPECT_EQ(0, ::AuthorizationFree(reference, 8));
      user.kill();
      watcher.join();
    });
    EXPECT_EQ((string_map{{"x", "true"}}), tests::tree(g_flags));
  });
}

}  // namespace
