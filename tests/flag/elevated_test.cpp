// The elevated store: what it asks of the system, call by call, and what the tool's side applies.
// The system's functions are replaced by ones that record their calls.
#include "flag/elevated.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <thread>
#include <vector>

#include "flag/authorization.h"
#include "mirt/sys/files.h"
#include "tests/support/access_recorder.h"
#include "tests/support/error_of.h"
#include "tests/support/private_etc.h"
#include "tests/support/scratch_dir.h"
#include "xstd/config.h"

namespace {

/// The functions that were called, in order, and what they are to answer.
std::vector<std::string> g_calls;
OSStatus g_create_status, g_copy_rights_status, g_execute_status;
int g_system_status;
FILE* g_pipe;
int g_pipe_number = -1;

int g_reference;
const AuthorizationRef g_authorization = reinterpret_cast<AuthorizationRef>(&g_reference);

}  // namespace

OSStatus AuthorizationCreate(const AuthorizationRights* rights,
                             const AuthorizationEnvironment* environment, AuthorizationFlags flags,
                             AuthorizationRef* authorization) {
  g_calls.push_back("create");
  EXPECT_EQ(nullptr, rights);
  EXPECT_EQ(nullptr, environment);
  EXPECT_EQ(1u, flags);
  if (g_create_status == 0) *authorization = g_authorization;
  return g_create_status;
}

OSStatus AuthorizationCopyRights(AuthorizationRef authorization, const AuthorizationRights* rights,
                                 const AuthorizationEnvironment* environment,
                                 AuthorizationFlags flags, AuthorizationRights** granted) {
  g_calls.push_back("copy_rights");
  EXPECT_EQ(g_authorization, authorization);
  EXPECT_EQ(1u, rights->count);
  EXPECT_STREQ("system.privilege.admin", rights->items->name);
  EXPECT_EQ(0u, rights->items->valueLength);
  EXPECT_EQ(nullptr, rights->items->value);
  EXPECT_EQ(0u, rights->items->flags);
  EXPECT_EQ(nullptr, environment);
  EXPECT_EQ(19u, flags);
  EXPECT_EQ(nullptr, granted);
  return g_copy_rights_status;
}

OSStatus AuthorizationExecuteWithPrivileges(AuthorizationRef authorization, const char* path,
                                            AuthorizationFlags options, char* const* arguments,
                                            FILE** pipe) {
  EXPECT_EQ(g_authorization, authorization);
  EXPECT_EQ(0u, options);
  EXPECT_EQ(nullptr, arguments[1]);
  g_calls.push_back(std::string("execute ") + path + " " + arguments[0]);
  *pipe = g_pipe;
  return g_execute_status;
}

OSStatus AuthorizationFree(AuthorizationRef authorization, AuthorizationFlags flags) {
  g_calls.push_back("free");
  if (g_pipe_number != -1) {
    EXPECT_EQ(-1, ::fcntl(g_pipe_number, F_GETFD)) << "still open";
  }
  EXPECT_EQ(g_authorization, authorization);
  EXPECT_EQ(8u, flags);
  return 0;
}

int system(const char* command) {
  g_calls.push_back(std::string("system ") + command);
  return g_system_status;
}

namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;
using tests::error_of;
using tests::in_private_etc;
using string_map = std::map<std::string, std::string>;

constexpr OSStatus refused = -60005;
constexpr OSStatus cancelled = -60006;

/// A pipe that stands for the started tool's output: the store gets one end as a stream, the test
/// keeps a second descriptor of that end to see what was left.
class output {
 public:
  output() {
    EXPECT_EQ(0, ::pipe(ends_));
    left_ = ::dup(ends_[0]);
    g_pipe = ::fdopen(ends_[0], "r");
    g_pipe_number = ends_[0];
  }
  ~output() {
    ::close(left_);
    g_pipe = nullptr;
    g_pipe_number = -1;
  }

  void write(const std::string& text) {
    EXPECT_EQ(static_cast<ssize_t>(text.size()), ::write(ends_[1], text.data(), text.size()));
  }
  void end() { ::close(ends_[1]); }

  bool is_closed() const { return ::fcntl(ends_[0], F_GETFD) == -1; }

  /// What was not read; only after `end`.
  std::string left() const {
    std::string text;
    char block[4096];
    for (ssize_t size; (size = ::read(left_, block, sizeof block)) > 0;) {
      text.append(block, static_cast<std::size_t>(size));
    }
    return text;
  }

 private:
  int ends_[2];
  int left_;
};

class elevated_save : public testing::Test {
 protected:
  elevated_save() {
    g_calls.clear();
    g_create_status = g_copy_rights_status = g_execute_status = 0;
    g_system_status = 0;
    g_pipe = nullptr;
  }

  void put(const std::string& key, const std::string& code) {
    // The registry of a CGI store turns the string into a `put` of the elevated one.
    flag::create_cgi()->load(flag::create_api(store_), key + "=" + code);
  }

  const std::string directory_ = fs::path(mirt::get_exe_path()).parent_path();
  const std::string tool_ = directory_ + "/store_product_flags";
  flag::item_storage_ex_api* const store_ = flag::create_elevate();
};

TEST_F(elevated_save, nothing_pending_asks_nobody) {
  EXPECT_EQ("", store_->save());
  EXPECT_THAT(g_calls, IsEmpty());
}

TEST_F(elevated_save, a_key_that_folds_to_nothing_asks_nobody) {
  put("__", "CT");
  EXPECT_EQ("", store_->save());
  EXPECT_THAT(g_calls, IsEmpty());
}

TEST_F(elevated_save, asks_makes_the_tool_executable_starts_it_and_gives_the_rights_back) {
  put("y", "DF");
  put("x", "CT");
  EXPECT_EQ("x=CT&y=DF", store_->save());
  EXPECT_THAT(g_calls, ElementsAre("create", "copy_rights", "system chmod 0700 '" + tool_ + "'",
                                   "execute " + tool_ + " x=CT&y=DF", "free"));
}

TEST_F(elevated_save, settings_are_forgotten_after_success) {
  put("x", "CT");
  EXPECT_EQ("x=CT", store_->save());
  g_calls.clear();
  EXPECT_EQ("", store_->save());
  EXPECT_THAT(g_calls, IsEmpty());
}

TEST_F(elevated_save, each_save_carries_only_what_came_since_the_last) {
  put("x", "CT");
  store_->save();
  put("y", "CF");
  EXPECT_EQ("y=CF", store_->save());
  EXPECT_EQ(10u, g_calls.size());
}

TEST_F(elevated_save, without_an_authorisation_there_is_nothing_to_free) {
  for (const OSStatus status : {refused, cancelled, 1}) {
    g_create_status = status;
    g_calls.clear();
    put("x", "CT");
    EXPECT_EQ(":Error in 'save'", error_of([&] { store_->save(); }));
    EXPECT_THAT(g_calls, ElementsAre("create"));
  }
}

TEST_F(elevated_save, a_refusal_starts_nothing_and_frees) {
  for (const OSStatus status : {refused, cancelled, 1}) {
    g_copy_rights_status = status;
    g_calls.clear();
    put("x", "CT");
    EXPECT_EQ(":Error in 'save'", error_of([&] { store_->save(); }));
    EXPECT_THAT(g_calls, ElementsAre("create", "copy_rights", "free"));
  }
}

TEST_F(elevated_save, a_failed_start_frees_and_throws) {
  for (const OSStatus status : {refused, cancelled, 1}) {
    g_execute_status = status;
    g_calls.clear();
    put("x", "CT");
    EXPECT_EQ(":Error in 'save'", error_of([&] { store_->save(); }));
    EXPECT_EQ(5u, g_calls.size());
    EXPECT_EQ("free", g_calls.back());
  }
}

TEST_F(elevated_save, settings_are_forgotten_after_each_failure_too) {
  for (OSStatus* const status : {&g_create_status, &g_copy_rights_status, &g_execute_status}) {
    *status = refused;
    put("x", "CT");
    EXPECT_EQ(":Error in 'save'", error_of([&] { store_->save(); }));
    *status = 0;
    g_calls.clear();
    EXPECT_EQ("", store_->save());
    EXPECT_THAT(g_calls, IsEmpty());
  }
}

TEST_F(elevated_save, a_failed_chmod_is_ignored) {
  for (const int status : {-1, 1, 256}) {
    g_system_status = status;
    g_calls.clear();
    put("x", "CT");
    EXPECT_EQ("x=CT", store_->save());
    EXPECT_EQ(5u, g_calls.size());
  }
}

TEST_F(elevated_save, the_tools_output_is_read_to_its_end_and_closed) {
  for (const std::size_t size : {0u, 1u, 8191u, 8192u, 8193u, 60000u}) {
    output pipe;
    pipe.write(std::string(size, 'x'));
    pipe.end();
    put("x", "CT");
    EXPECT_EQ("x=CT", store_->save());
    EXPECT_TRUE(pipe.is_closed());
    EXPECT_EQ("", pipe.left());
  }
}

TEST_F(elevated_save, it_waits_until_the_tool_closes_its_output) {
  ::signal(SIGPIPE, SIG_IGN);
  output pipe;
  std::atomic<bool> ended = false;
  // More than a pipe holds: it is all taken only by someone who reads until the end.
  std::thread tool([&] {
    for (int i = 0; i < 100; ++i) pipe.write(std::string(10000, 'x'));
    ended = true;
    pipe.end();
  });
  put("x", "CT");
  EXPECT_EQ("x=CT", store_->save());
  EXPECT_TRUE(ended);
  tool.join();
  EXPECT_TRUE(pipe.is_closed());
}

TEST_F(elevated_save, the_pipe_of_a_failed_start_is_closed_unread) {
  g_execute_status = refused;
  output pipe;
  pipe.write("unread");
  pipe.end();
  put("x", "CT");
  EXPECT_EQ(":Error in 'save'", error_of([&] { store_->save(); }));
  EXPECT_TRUE(pipe.is_closed());
  EXPECT_EQ("unread", pipe.left());
}

/// Runs a program and gives its exit status.
int run(const std::vector<std::string>& command) {
  std::vector<char*> arguments;
  for (const std::string& word : command) arguments.push_back(const_cast<char*>(word.c_str()));
  arguments.push_back(nullptr);
  const pid_t child = ::fork();
  if (child == 0) {
    ::execv(arguments[0], arguments.data());
    ::_exit(127);
  }
  int status = -1;
  EXPECT_EQ(child, ::waitpid(child, &status, 0));
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

/// Names that a directory may have and a shell would stumble over. Only a backslash is not for an
/// application's path: `dirname` takes it for a separator.
std::vector<std::string> awkward_names() {
  std::string every_byte;
  for (int byte = 1; byte < 256; ++byte) {
    if (byte != '/' && byte != '\\') every_byte += static_cast<char>(byte);
  }
  return {"it's \"$HOME\" & `x`;", "-rf ~ *", "''", every_byte};
}

// The running executable decides the path, so the test runs itself again from an awkward place.
TEST_F(elevated_save, the_path_is_quoted_for_the_shell_and_handed_on_as_it_is) {
  const std::vector<std::string> names = awkward_names();
  if (std::find(names.begin(), names.end(), fs::path(directory_).filename()) == names.end()) {
    const auto* const info = testing::UnitTest::GetInstance()->current_test_info();
    const std::string self = std::string(info->test_suite_name()) + "." + info->name();
    for (const std::string& name : names) {
      const tests::scratch_dir scratch;
      fs::create_directory(scratch / name);
      const std::string copy = scratch / name + "/elevated_test";
      fs::copy_file(mirt::get_exe_path(), copy);
      EXPECT_EQ(0, run({copy, "--gtest_filter=" + self})) << name;
    }
    return;
  }
  tests::make_file(tool_, "");
  ASSERT_EQ(0, ::chmod(tool_.c_str(), 0644));
  put("x", "CT");
  store_->save();
  ASSERT_EQ(5u, g_calls.size());
  EXPECT_EQ("execute " + tool_ + " x=CT", g_calls[3]);
  ASSERT_EQ("system chmod ", g_calls[2].substr(0, 13));
  EXPECT_EQ(0, run({"/bin/sh", "-c", g_calls[2].substr(7)}));
  struct stat status;
  ASSERT_EQ(0, ::stat(tool_.c_str(), &status));
  EXPECT_EQ(0700u, status.st_mode & 07777);
}

TEST_F(elevated_save, settings_of_100_kb_are_one_argument) {
  std::string settings;
  for (int i = 10000; i < 20000; ++i) settings += "&f" + std::to_string(i) + "=CT";
  settings.erase(0, 1);
  flag::create_cgi()->load(flag::create_api(store_), settings);
  EXPECT_EQ(settings, store_->save());
  EXPECT_EQ("execute " + tool_ + " " + settings, g_calls.at(3));
}

// The rest of the store is the CGI store within.

TEST_F(elevated_save, pending_settings_can_be_read_back) {
  put("on", "CT");
  put("off", "CF");
  put("unset", "DT");
  EXPECT_EQ(1, store_->get("on"));
  EXPECT_EQ(-1, store_->get("off"));
  EXPECT_EQ(0, store_->get("unset"));
  EXPECT_EQ(0, store_->get("never"));
}

TEST_F(elevated_save, a_string_is_loaded_into_the_given_registry) {
  flag::item_storage_ex_api* const other = flag::create_cgi();
  store_->load(flag::create_api(other), "x=CT&y=DF");
  EXPECT_EQ("x=CT&y=DF", other->save());
  EXPECT_EQ(":Error in 'load'",
            error_of([&] { store_->load(flag::create_api(other), "x=CT&Y=DF"); }));
  EXPECT_EQ("", other->save());
  EXPECT_EQ("", store_->save());
}

// The tool's side.

const std::string g_flags = "/etc/tarnwick/Quorvex/flags";

string_map flags() {
  return tests::tree(g_flags);
}

TEST(store_elevated, sets_and_removes_the_named_flags_only) {
  in_private_etc([] {
    xstd::init_storage();
    fs::create_directories(g_flags);
    tests::make_file(g_flags + "/other", "kept");
    flag::store_elevated("example_flag=CT&third_flag=CF");
    EXPECT_EQ((string_map{{"example_flag", "true"}, {"other", "kept"}, {"third_flag", "false"}}),
              flags());
    flag::store_elevated("example_flag=DF&third_flag=CT");
    EXPECT_EQ((string_map{{"other", "kept"}, {"third_flag", "true"}}), flags());
    EXPECT_THAT(g_calls, IsEmpty());
  });
}

TEST(store_elevated, the_empty_string_reads_the_store_and_changes_nothing) {
  in_private_etc([] {
    xstd::init_storage();
    const tests::access_recorder recorder;
    flag::store_elevated("");
    EXPECT_THAT(recorder.seen(), ElementsAre(tests::access_recorder::access(2, g_flags)));
    EXPECT_THAT(tests::tree("/etc"), IsEmpty());
  });
}

TEST(store_elevated, a_malformed_string_applies_nothing) {
  in_private_etc([] {
    xstd::init_storage();
    fs::create_directories(g_flags);
    tests::make_file(g_flags + "/a", "true");
    for (const char* malformed : {"a=CF&B=CT", "a=DT&b=CTT", "a=DT&b", "a=CF&%=CT"}) {
      EXPECT_EQ(":Error in 'load'", error_of([&] { flag::store_elevated(malformed); }))
          << malformed;
      EXPECT_EQ((string_map{{"a", "true"}}), flags()) << malformed;
    }
  });
}

}  // namespace
