// The platform room of macOS, run elsewhere: its system calls are the test's own here.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <mach-o/dyld.h>
#include <pthread.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "mirt/sys/files.h"
#include "mirt/sys/platform.h"
#include "tests/support/error_of.h"
#include "tests/support/scratch_dir.h"

using ::testing::ElementsAre;

namespace {

std::string g_path;                  // the executable's
bool g_refuse = false;               // fail where the buffer is large enough, too
std::vector<std::uint32_t> g_sizes;  // of the buffers that were offered

unsigned int g_thread_number = 0;
std::vector<pthread_t> g_asked_threads;

}  // namespace

extern "C" {

int _NSGetExecutablePath(char* buffer, std::uint32_t* size) {
  const std::size_t needed = g_path.size() + 1;
  g_sizes.push_back(*size);
  if (*size < needed) {
    *size = static_cast<std::uint32_t>(needed);
    return -1;
  }
  if (g_refuse) return -1;
  std::memcpy(buffer, g_path.c_str(), needed);
  return 0;
}

unsigned int pthread_mach_thread_np(pthread_t thread) {
  g_asked_threads.push_back(thread);
  return g_thread_number;
}

}  // extern "C"

namespace {

/// Each test starts with a system that has answered nothing yet.
class executable_path_on_macos : public ::testing::Test {
 protected:
  void SetUp() override {
    g_path = "/usr/bin/app";
    g_refuse = false;
    g_sizes.clear();
  }
};

using get_exe_path_on_macos = executable_path_on_macos;

TEST_F(executable_path_on_macos, asks_for_the_size_and_then_for_the_path) {
  g_path = "/Applications/An app.app/Contents/MacOS/app";
  std::string path = "from before";
  ASSERT_TRUE(mirt::platform::executable_path(path));
  EXPECT_EQ(path, "/Applications/An app.app/Contents/MacOS/app");
  EXPECT_THAT(g_sizes, ElementsAre(0, 44));  // one for the NUL, which is not part of the path
}

TEST_F(executable_path_on_macos, is_not_resolved) {
  g_path = "/usr/./bin/../bin/app";
  std::string path;
  ASSERT_TRUE(mirt::platform::executable_path(path));
  EXPECT_EQ(path, "/usr/./bin/../bin/app");
}

TEST_F(executable_path_on_macos, is_unknown_when_the_second_question_fails) {
  g_refuse = true;
  std::string path = "from before";
  EXPECT_FALSE(mirt::platform::executable_path(path));
  EXPECT_EQ(path, "from before");
  EXPECT_THAT(g_sizes, ElementsAre(0, 13));
}

TEST_F(executable_path_on_macos, has_room_for_16384_bytes_with_the_nul) {
  for (const std::size_t length : {16382U, 16383U}) {
    g_path = "/" + std::string(length - 1, 'x');
    std::string path;
    ASSERT_TRUE(mirt::platform::executable_path(path)) << length;
    EXPECT_EQ(path, g_path);
  }
}

TEST_F(executable_path_on_macos, is_not_asked_for_when_it_is_longer) {
  g_path = "/" + std::string(16383, 'x');
  std::string path = "from before";
  EXPECT_FALSE(mirt::platform::executable_path(path));
  EXPECT_EQ(path, "from before");
  EXPECT_THAT(g_sizes, ElementsAre(0));
}

TEST_F(get_exe_path_on_macos, resolves_what_the_system_tells) {
  const tests::scratch_dir dir;
  tests::make_file(dir / "app", "");
  ASSERT_EQ(::symlink(".", (dir / "link").c_str()), 0);
  g_path = dir / "link/./app";
  EXPECT_EQ(mirt::get_exe_path(), dir / "app");
}

TEST_F(get_exe_path_on_macos, throws_when_the_system_does_not_tell) {
  g_refuse = true;
  EXPECT_EQ(tests::error_of([] { mirt::get_exe_path(); }), ":Error in 'get_exe_path'");
}

TEST_F(get_exe_path_on_macos, throws_when_the_path_is_too_long) {
  g_path = "/" + std::string(16383, 'x');
  EXPECT_EQ(tests::error_of([] { mirt::get_exe_path(); }), ":Error in 'get_exe_path'");
}

TEST(monotonic_time_on_macos, is_not_offered) {
  timespec time = {1, 2};
  EXPECT_FALSE(mirt::platform::monotonic_time(time));
  EXPECT_EQ(time.tv_sec, 1);
  EXPECT_EQ(time.tv_nsec, 2);
}

TEST(thread_number_on_macos, is_the_port_of_the_calling_thread) {
  g_thread_number = 0xffffffff;  // a port's name has no sign
  std::uint64_t number = 0;
  pthread_t self = {};
  std::thread([&] {
    self = ::pthread_self();
    number = mirt::platform::thread_number();
  }).join();
  EXPECT_EQ(number, 4294967295U);
  EXPECT_THAT(g_asked_threads, ElementsAre(self));
}

}  // namespace
