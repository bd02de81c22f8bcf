// What a file says when the system fails it, and what it asks of the system.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <functional>
#include <utility>

#include "mirt/sys/xfile.h"
#include "tests/support/c_function.h"
#include "tests/support/error_of.h"
#include "tests/support/scratch_dir.h"

using mirt::xfile;
using tests::error_of;
using tests::failing;

namespace {

int g_fopen_calls = 0;
int g_fclose_calls = 0;
std::function<void()> g_before_open;  // what another process does just then
struct {
  int calls;
  int flags;
  mode_t mode;
} g_open = {};

}  // namespace

extern "C" {

FILE* fopen(const char* path, const char* mode) {
  ++g_fopen_calls;
  if (failing::now("fopen")) return nullptr;
  return tests::next<FILE*(const char*, const char*)>("fopen")(path, mode);
}

int fclose(FILE* file) {
  ++g_fclose_calls;
  const int result = tests::next<int(FILE*)>("fclose")(file);
  return failing::now("fclose") ? EOF : result;
}

int open(const char* path, int flags, ...) {
  mode_t mode = 0;
  if ((flags & O_CREAT) != 0) {
    va_list arguments;
    va_start(arguments, flags);
    mode = va_arg(arguments, mode_t);
    va_end(arguments);
  }
  g_open = {g_open.calls + 1, flags, mode};
  if (const auto hook = std::exchange(g_before_open, nullptr)) hook();
  return tests::next<int(const char*, int, ...)>("open")(path, flags, mode);
}

size_t fwrite(const void* data, size_t size, size_t count, FILE* file) {
  using real = size_t(const void*, size_t, size_t, FILE*);
  // A failing one writes all but the last byte.
  const bool short_of_one = failing::now("fwrite") != 0;
  const size_t written = tests::next<real>("fwrite")(data, 1, size * count - short_of_one, file);
  if (short_of_one) errno = ENOSPC;
  return size == 0 ? 0 : written / size;
}

size_t fread(void* data, size_t size, size_t count, FILE* file) {
  if (failing::now("fread")) return 0;
  return tests::next<size_t(void*, size_t, size_t, FILE*)>("fread")(data, size, count, file);
}

}  // extern "C"

namespace {

class xfile_failure : public ::testing::Test {
 protected:
  void SetUp() override { forget(); }
  void TearDown() override { g_before_open = nullptr; }

  static void forget() {
    g_fopen_calls = 0;
    g_fclose_calls = 0;
    g_open = {};
  }

  const tests::scratch_dir dir_;
  const std::string path_ = dir_ / "f";
};

using xfile_update_create = xfile_failure;

TEST_F(xfile_failure, of_fopen_is_told_with_its_errno_in_every_mode) {
  for (const int mode : {0, 1, 2, 3, 4}) {
    EXPECT_EQ(error_of([&] {
                failing open("fopen", EMFILE);
                xfile file(path_, static_cast<xfile::mode>(mode), true, 0);
              }),
              "24 (Too many open files) function=fopen file=" + path_)
        << mode;
  }
}

TEST_F(xfile_failure, of_fopen_is_tried_again_in_mode_4_alone_and_only_once) {
  for (const int mode : {0, 1, 2, 3, 4, 5}) {
    forget();
    error_of([&] {
      failing open("fopen", EMFILE);
      xfile file(path_, static_cast<xfile::mode>(mode), false, 0);
    });
    EXPECT_EQ(g_fopen_calls, mode == 4 ? 2 : mode == 5 ? 0 : 1) << mode;
  }
}

TEST_F(xfile_failure, of_a_short_fwrite_is_told) {
  xfile file(path_, xfile::mode_write, true, 0);
  EXPECT_EQ(error_of([&] {
              failing write("fwrite", ENOSPC);
              file.write("ab", 2);
            }),
            "28 (No space left on device) function=fwrite file=" + path_);
}

TEST_F(xfile_failure, of_fclose_leaves_the_file_closed) {
  for (const bool throw_on_error : {true, false}) {
    xfile file(path_, xfile::mode_write, throw_on_error, 0);
    forget();
    EXPECT_EQ(
        error_of([&] {
          failing close("fclose", EIO);
          file.close();
        }),
        throw_on_error ? "5 (Input/output error) function=fclose file=" + path_ : "no exception");
    EXPECT_FALSE(file);
    file.close();
    EXPECT_EQ(g_fclose_calls, 1);
  }
}

TEST_F(xfile_failure, of_fclose_is_swallowed_by_the_destructor) {
  EXPECT_EQ(error_of([&] {
              failing close("fclose", EIO);
              xfile file(path_, xfile::mode_write, true, 0);
            }),
            "no exception");
  EXPECT_EQ(g_fclose_calls, 1);
}

TEST_F(xfile_failure, of_fclose_is_thrown_by_put_file) {
  EXPECT_EQ(error_of([&] {
              failing close("fclose", EIO);
              mirt::put_file(path_, "x");
            }),
            "5 (Input/output error) function=fclose file=" + path_);
}

TEST_F(xfile_failure, of_fread_reads_as_the_end) {
  tests::make_file(path_, "content");
  std::string out = "from before";
  EXPECT_EQ(error_of([&] {
              failing read("fread", EIO);
              mirt::get_file(out, path_);
            }),
            "no exception");
  EXPECT_EQ(out, "");
}

TEST_F(xfile_update_create, makes_a_missing_file_exclusively_with_mode_0666) {
  xfile file(path_, xfile::mode_update_create, true, 0);
  EXPECT_EQ(g_open.calls, 1);
  EXPECT_EQ(g_open.flags & (O_ACCMODE | O_CREAT | O_EXCL | O_TRUNC | O_APPEND),
            O_WRONLY | O_CREAT | O_EXCL);
  EXPECT_EQ(g_open.mode, 0666U);
  EXPECT_EQ(g_fopen_calls, 2);
}

TEST_F(xfile_update_create, makes_nothing_where_a_file_is) {
  tests::make_file(path_, "kept");
  forget();
  xfile file(path_, xfile::mode_update_create, true, 0);
  EXPECT_EQ(g_open.calls, 0);
  EXPECT_EQ(g_fopen_calls, 1);
}

TEST_F(xfile_update_create, opens_a_file_that_another_process_made_in_between) {
  g_before_open = [this] { tests::make_file(path_, "of another"); };
  xfile file(path_, xfile::mode_update_create, true, 0);
  std::string out;
  EXPECT_TRUE(file.read(out));
  EXPECT_EQ(out, "of another");
}

TEST_F(xfile_update_create, gives_up_on_a_file_that_is_gone_again) {
  EXPECT_EQ(error_of([&] {
              failing open("fopen", ENOENT);
              xfile file(path_, xfile::mode_update_create, true, 0);
            }),
            "2 (No such file or directory) function=fopen file=" + path_);
  EXPECT_EQ(g_fopen_calls, 2);
}

}  // namespace
