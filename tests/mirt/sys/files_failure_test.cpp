// What file functions do when the system fails them, and what they ask of it.
#include <dirent.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include "mirt/sys/files.h"
#include "tests/support/access_recorder.h"
#include "tests/support/c_function.h"
#include "tests/support/error_of.h"
#include "tests/support/scratch_dir.h"

using ::testing::ElementsAre;
using ::testing::Pair;
using tests::error_of;
using tests::failing;

namespace {

size_t g_getcwd_size = 0;
int g_closedir_calls = 0;

}  // namespace

extern "C" {

char* getcwd(char* buffer, size_t size) noexcept {
  g_getcwd_size = size;
  if (failing::now("getcwd")) return nullptr;
  return tests::next<char*(char*, size_t)>("getcwd")(buffer, size);
}

char* realpath(const char* path, char* resolved) noexcept {
  if (failing::now("realpath")) return nullptr;
  return tests::next<char*(const char*, char*)>("realpath")(path, resolved);
}

ssize_t readlink(const char* path, char* buffer, size_t size) noexcept {
  if (failing::now("readlink")) return -1;
  return tests::next<ssize_t(const char*, char*, size_t)>("readlink")(path, buffer, size);
}

int rename(const char* from, const char* to) noexcept {
  if (failing::now("rename")) return -1;
  return tests::next<int(const char*, const char*)>("rename")(from, to);
}

int closedir(DIR* stream) {
  ++g_closedir_calls;
  return tests::next<int(DIR*)>("closedir")(stream);
}

}  // extern "C"

namespace {

TEST(expand_filename, throws_when_not_even_the_root_can_be_resolved) {
  const tests::access_recorder recorder;
  EXPECT_EQ(error_of([] {
              failing resolve("realpath", EIO);
              mirt::expand_filename("/x/y");
            }),
            ":Error in 'expand_filename'");
  EXPECT_THAT(recorder.seen(), ElementsAre(Pair(2, "/x/y"), Pair(2, "/x"), Pair(2, "/")));
}

TEST(expand_filename, of_a_relative_path_throws_when_the_working_directory_cannot_be_resolved) {
  EXPECT_EQ(error_of([] {
              failing resolve("realpath", EIO);
              mirt::expand_filename("x");
            }),
            ":Error in 'expand_filename'");
}

TEST(get_current_dir, asks_for_16383_bytes) {
  mirt::get_current_dir();
  EXPECT_EQ(g_getcwd_size, 16383U);
}

TEST(get_current_dir, throws_when_the_system_does_not_tell) {
  EXPECT_EQ(error_of([] {
              failing current("getcwd", ERANGE);
              mirt::get_current_dir();
            }),
            ":Error in 'get_current_dir'");
}

TEST(get_exe_path, throws_when_the_system_does_not_tell) {
  EXPECT_EQ(error_of([] {
              failing link("readlink", EACCES);
              mirt::get_exe_path();
            }),
            ":Error in 'get_exe_path'");
}

TEST(move_file, throws_when_the_system_does_not_rename) {
  const tests::scratch_dir dir;
  tests::make_file(dir / "from", "kept");
  EXPECT_EQ(error_of([&] {
              failing move("rename", EXDEV);
              mirt::move_file(dir / "from", dir / "to");
            }),
            ":Error in 'move_file'");
  EXPECT_EQ(tests::content(dir / "from"), "kept");
}

TEST(read_dir, closes_its_stream_once) {
  const tests::scratch_dir dir;
  g_closedir_calls = 0;
  {
    mirt::read_dir to_the_end(dir.path());
    to_the_end.next();
    to_the_end.next();
  }
  EXPECT_EQ(g_closedir_calls, 1);
  { mirt::read_dir at_once(dir.path()); }
  EXPECT_EQ(g_closedir_calls, 2);
  { mirt::read_dir missing(dir / "missing"); }
  EXPECT_EQ(g_closedir_calls, 2);
}

TEST(file_exists, also_for_a_file_without_a_type) {
  const int descriptor = ::eventfd(0, 0);
  const std::string path = "/proc/self/fd/" + std::to_string(descriptor);
  EXPECT_TRUE(mirt::file_exists(path));
  EXPECT_FALSE(mirt::is_directory(path));
  EXPECT_FALSE(mirt::is_file(path));
  ::close(descriptor);
}

}  // namespace
