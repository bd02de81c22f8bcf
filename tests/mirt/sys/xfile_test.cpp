// One stdio stream: how it is opened, read, written and closed.
#include "mirt/sys/xfile.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <limits>
#include <memory>
#include <type_traits>

#include "tests/support/access_recorder.h"
#include "tests/support/allocations.h"
#include "tests/support/error_of.h"
#include "tests/support/scratch_dir.h"

namespace {

using mirt::xfile;
using ::testing::ElementsAre;
using ::testing::Pair;
using tests::error_of;

static_assert(xfile::mode_read == 0 && xfile::mode_write == 1 && xfile::mode_append == 2 &&
              xfile::mode_update == 3 && xfile::mode_update_create == 4);
static_assert(std::is_same_v<std::underlying_type_t<xfile::mode>, int>);
static_assert(!std::is_copy_constructible_v<xfile> && !std::is_copy_assignable_v<xfile>);
static_assert(std::is_convertible_v<const xfile&, FILE*>);

mode_t permissions(const std::string& path) {
  struct stat status = {};
  EXPECT_EQ(::stat(path.c_str(), &status), 0) << path;
  return status.st_mode & 07777;
}

/// The lowest descriptor that is free.
int free_descriptor() {
  const int descriptor = ::open("/dev/null", O_RDONLY);
  ::close(descriptor);
  return descriptor;
}

std::string read_once(xfile& file) {
  std::string out;
  file.read(out);
  return out;
}

TEST(xfile_get_mode, knows_the_modes_0_to_4) {
  const struct {
    int mode;
    const char* stdio_mode;
  } rows[] = {{0, "rb"},
              {1, "wb"},
              {2, "ab"},
              {3, "r+b"},
              {4, "r+b"},
              {5, ""},
              {6, ""},
              {77, ""},
              {-1, ""},
              {std::numeric_limits<int>::max(), ""},
              {std::numeric_limits<int>::min(), ""}};
  for (const auto& row : rows) {
    for (const int unread : {0, 1, -1}) {
      SCOPED_TRACE(row.mode);
      std::string stdio_mode = "from before";
      int extra = 77;
      xfile::get_mode(static_cast<xfile::mode>(row.mode), unread, stdio_mode, extra);
      EXPECT_EQ(stdio_mode, row.stdio_mode);
      EXPECT_EQ(extra, 0);
    }
  }
}

TEST(xfile_open, in_each_mode_makes_empties_reads_and_writes_what_it_should) {
  // "new": what a missing file holds after writing "new"; "old": the same for a file "0123456789".
  const struct {
    xfile::mode mode;
    bool opens_missing;
    const char* missing_after;
    const char* reads;
    const char* existing_after;
  } rows[] = {{xfile::mode_read, false, "", "0123456789", "0123456789"},
              {xfile::mode_write, true, "new", "", "new"},
              {xfile::mode_append, true, "new", "", "0123456789new"},
              {xfile::mode_update, false, "", "0123456789", "new3456789"},
              {xfile::mode_update_create, true, "new", "0123456789", "new3456789"}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.mode);
    const tests::scratch_dir dir;
    {
      xfile file(dir / "missing", row.mode, false, 0);
      EXPECT_EQ(static_cast<bool>(file), row.opens_missing);
      file.write("new", 3);
    }
    EXPECT_EQ(std::filesystem::exists(dir / "missing"), row.opens_missing);
    if (row.opens_missing) {
      EXPECT_EQ(tests::content(dir / "missing"), row.missing_after);
    }

    tests::make_file(dir / "existing", "0123456789");
    {
      xfile file(dir / "existing", row.mode, false, 0);
      EXPECT_EQ(read_once(file), row.reads);
      std::rewind(file);
      file.write("new", 3);
    }
    EXPECT_EQ(tests::content(dir / "existing"), row.existing_after);
  }
}

TEST(xfile_open, makes_files_that_follow_the_umask) {
  const struct {
    mode_t umask;
    mode_t permissions;
  } rows[] = {{0, 0666}, {022, 0644}, {027, 0640}, {077, 0600}};
  for (const auto& row : rows) {
    for (const xfile::mode mode :
         {xfile::mode_write, xfile::mode_append, xfile::mode_update_create}) {
      SCOPED_TRACE(::testing::Message() << "mode " << mode << " umask " << row.umask);
      const tests::scratch_dir dir;
      const mode_t before = ::umask(row.umask);
      { xfile file(dir / "f", mode, true, 0); }
      ::umask(before);
      EXPECT_EQ(permissions(dir / "f"), row.permissions);
    }
  }
}

TEST(xfile_open, leaves_the_permissions_of_an_existing_file) {
  const tests::scratch_dir dir;
  tests::make_file(dir / "f", "");
  ::chmod((dir / "f").c_str(), 0604);
  for (const xfile::mode mode :
       {xfile::mode_write, xfile::mode_append, xfile::mode_update, xfile::mode_update_create}) {
    { xfile file(dir / "f", mode, true, 0); }
    EXPECT_EQ(permissions(dir / "f"), 0604U) << mode;
  }
}

TEST(xfile_open, says_errno_its_text_the_call_and_the_file) {
  const tests::scratch_dir dir;
  tests::make_file(dir / "file", "");
  ::symlink("loop", (dir / "loop").c_str());
  ::symlink("nowhere/at/all", (dir / "dangling").c_str());
  const struct {
    std::string path;
    int mode;
    std::string reason;
  } rows[] = {
      {dir / "missing", 0, "2 (No such file or directory)"},
      {dir / "missing", 3, "2 (No such file or directory)"},
      {dir / "missing/f", 1, "2 (No such file or directory)"},
      {dir / "missing/f", 2, "2 (No such file or directory)"},
      {dir / "missing/f", 4, "2 (No such file or directory)"},
      {dir / "dangling", 4, "2 (No such file or directory)"},
      {dir / "loop", 0, std::to_string(ELOOP) + " (" + std::strerror(ELOOP) + ")"},
      {"", 0, "2 (No such file or directory)"},
      {dir / "file/f", 0, "20 (Not a directory)"},
      {dir / "file/f", 4, "20 (Not a directory)"},
      {dir.path(), 1, "21 (Is a directory)"},
      {dir.path(), 2, "21 (Is a directory)"},
      {dir.path(), 3, "21 (Is a directory)"},
      {dir.path(), 4, "21 (Is a directory)"},
  };
  for (const auto& row : rows) {
    const auto mode = static_cast<xfile::mode>(row.mode);
    EXPECT_EQ(error_of([&] { xfile file(row.path, mode, true, 0); }),
              row.reason + " function=fopen file=" + row.path)
        << "mode " << mode;
    EXPECT_EQ(error_of([&] { EXPECT_FALSE(xfile(row.path, mode, false, 0)); }), "no exception")
        << "mode " << mode << " of " << row.path;
  }
}

TEST(xfile_open, rejects_other_modes_without_touching_the_file) {
  const tests::scratch_dir dir;
  tests::make_file(dir / "f", "kept");
  for (const int mode : {5, 6, -1, std::numeric_limits<int>::max()}) {
    const auto invalid = static_cast<xfile::mode>(mode);
    const auto open = [&](const std::string& path, bool throw_on_error) {
      return error_of([&] {
        errno = ENOTTY;
        EXPECT_FALSE(xfile(path, invalid, throw_on_error, 0));
      });
    };
    const std::string text = "25 (Inappropriate ioctl for device) function=invalid_mode file=";
    EXPECT_EQ(open(dir / "f", true), text + (dir / "f"));
    EXPECT_EQ(open(dir / "missing", true), text + (dir / "missing"));
    EXPECT_EQ(open(dir / "f", false), "no exception");
    EXPECT_EQ(open(dir / "missing", false), "no exception");
  }
  EXPECT_EQ(tests::tree(dir.path()), (std::map<std::string, std::string>{{"f", "kept"}}));
}

TEST(xfile_open, is_reported_first_by_mode_or_as_kind_4_where_the_flag_is_set) {
  const tests::scratch_dir dir;
  const struct {
    int mode;
    int kind;
  } rows[] = {{0, 0}, {1, 1}, {2, 1}, {3, 1}, {4, 1}, {5, 1}, {77, 1}, {-1, 1}};
  for (const auto& row : rows) {
    for (const int flags : {0, 1, 2, 3, 4, 5, 6, 7, 8, 12, -1, -5}) {
      SCOPED_TRACE(::testing::Message() << "mode " << row.mode << " flags " << flags);
      const bool flagged =
          flags == 4 || flags == 5 || flags == 6 || flags == 7 || flags == 12 || flags == -1;
      const tests::access_recorder recorder;
      xfile file(dir / "f", static_cast<xfile::mode>(row.mode), false, flags);
      EXPECT_THAT(recorder.seen(), ElementsAre(Pair(flagged ? 4 : row.kind, dir / "f")));
    }
  }
}

TEST(xfile_open, of_a_missing_file_is_reported_once_in_every_mode) {
  for (const int mode : {0, 1, 2, 3, 4, 5}) {
    const tests::scratch_dir dir;
    const tests::access_recorder recorder;
    xfile file(dir / "f", static_cast<xfile::mode>(mode), false, 0);
    EXPECT_EQ(recorder.seen().size(), 1U) << mode;
  }
}

TEST(xfile_open, keeps_its_own_copy_of_the_path) {
  const tests::scratch_dir dir;
  std::string path = dir / "first";
  xfile file(path, xfile::mode_write, true, 0);
  path = "changed";
  EXPECT_EQ(error_of([&] {
              errno = EIO;
              file.fail("test");
            }),
            "5 (Input/output error) function=test file=" + (dir / "first"));
}

TEST(xfile_open, holds_one_descriptor_until_it_is_closed_or_destroyed) {
  const tests::scratch_dir dir;
  const int before = free_descriptor();
  for (const xfile::mode mode : {xfile::mode_update_create, xfile::mode_read}) {
    xfile closed(dir / "f", mode, true, 0);
    EXPECT_EQ(::fileno(closed), before);
    closed.close();
    EXPECT_EQ(free_descriptor(), before);
    { xfile destroyed(dir / "f", mode, true, 0); }
    EXPECT_EQ(free_descriptor(), before);
  }
}

TEST(xfile_fail, tells_errno_and_the_file) {
  const tests::scratch_dir dir;
  xfile file(dir / "f", xfile::mode_write, true, 0);
  EXPECT_EQ(error_of([&] {
              errno = EIO;
              file.fail("test");
            }),
            "5 (Input/output error) function=test file=" + (dir / "f"));
}

TEST(xfile_fail, returns_when_the_file_does_not_throw) {
  xfile missing("/nowhere", xfile::mode_read, false, 0);
  EXPECT_EQ(error_of([&] { missing.fail("test"); }), "no exception");
}

TEST(xfile_write, writes_every_byte) {
  const tests::scratch_dir dir;
  std::string data(200000, 'x');
  data[1] = '\0';
  data[2] = '\n';
  data[3] = '\r';
  {
    xfile file(dir / "f", xfile::mode_write, true, 0);
    file.write(data.data(), data.size());
    file.write("", 0);
    file.write("end", 3);
  }
  EXPECT_EQ(tests::content(dir / "f"), data + "end");
}

TEST(xfile_write, to_a_file_opened_for_reading_fails_in_fwrite) {
  const tests::scratch_dir dir;
  tests::make_file(dir / "f", "kept");
  const auto write = [&](bool throw_on_error) {
    return error_of([&] { xfile(dir / "f", xfile::mode_read, throw_on_error, 0).write("x", 1); });
  };
  EXPECT_EQ(write(true), "9 (Bad file descriptor) function=fwrite file=" + (dir / "f"));
  EXPECT_EQ(write(false), "no exception");
  EXPECT_EQ(tests::content(dir / "f"), "kept");
}

TEST(xfile_write, to_a_closed_file_fails_in_fwrite_even_for_no_bytes) {
  const tests::scratch_dir dir;
  for (const std::size_t size : {0U, 1U}) {
    for (const bool throw_on_error : {true, false}) {
      xfile file(dir / "f", xfile::mode_write, throw_on_error, 0);
      file.close();
      EXPECT_EQ(error_of([&] {
                  errno = EPERM;
                  file.write("x", size);
                }),
                throw_on_error ? "1 (Operation not permitted) function=fwrite file=" + (dir / "f")
                               : "no exception");
    }
  }
}

/// A disk that is always full, where the system has one.
class xfile_on_a_full_disk : public ::testing::Test {
 protected:
  void SetUp() override {
    if (::access("/dev/full", W_OK) != 0) GTEST_SKIP() << "no /dev/full on this system";
  }

  const std::string large_ = std::string(1 << 20, 'x');
};

TEST_F(xfile_on_a_full_disk, what_does_not_fit_the_buffer_fails_in_fwrite) {
  EXPECT_EQ(error_of([&] {
              xfile file("/dev/full", xfile::mode_write, true, 0);
              file.write(large_.data(), large_.size());
            }),
            "28 (No space left on device) function=fwrite file=/dev/full");
}

TEST_F(xfile_on_a_full_disk, what_fits_the_buffer_fails_in_fclose) {
  xfile file("/dev/full", xfile::mode_write, true, 0);
  EXPECT_EQ(error_of([&] { file.write("x", 1); }), "no exception");
  EXPECT_EQ(error_of([&] { file.close(); }),
            "28 (No space left on device) function=fclose file=/dev/full");
  EXPECT_FALSE(file);
  EXPECT_EQ(error_of([&] { file.close(); }), "no exception");
}

TEST_F(xfile_on_a_full_disk, the_destructor_says_nothing) {
  EXPECT_EQ(error_of([] { xfile("/dev/full", xfile::mode_write, true, 0).write("x", 1); }),
            "no exception");
}

TEST_F(xfile_on_a_full_disk, a_file_that_does_not_throw_says_nothing) {
  EXPECT_EQ(error_of([&] {
              xfile file("/dev/full", xfile::mode_write, false, 0);
              file.write(large_.data(), large_.size());
              file.write("x", 1);
              file.close();
              EXPECT_FALSE(file);
            }),
            "no exception");
}

TEST(xfile_read, appends_65536_bytes_at_a_time) {
  const tests::scratch_dir dir;
  tests::make_file(dir / "f", std::string(65537, 'a') + "\0\n");
  xfile file(dir / "f", xfile::mode_read, true, 0);
  std::string out = "before";
  EXPECT_TRUE(file.read(out));
  EXPECT_EQ(out, "before" + std::string(65536, 'a'));
  EXPECT_TRUE(file.read(out));
  EXPECT_EQ(out.size(), 6U + 65537U);
  EXPECT_FALSE(file.read(out));
  EXPECT_EQ(out.size(), 6U + 65537U);
}

TEST(xfile_read, of_nothing_or_with_an_error_is_false_and_never_loud) {
  const tests::scratch_dir dir;
  tests::make_file(dir / "empty", "");
  xfile empty(dir / "empty", xfile::mode_read, true, 0);
  xfile directory(dir.path(), xfile::mode_read, true, 0);
  xfile for_writing(dir / "w", xfile::mode_write, true, 0);
  xfile closed(dir / "empty", xfile::mode_read, true, 0);
  closed.close();
  for (xfile* file : {&empty, &directory, &for_writing, &closed}) {
    std::string out = "before";
    EXPECT_FALSE(file->read(out));
    EXPECT_EQ(out, "before");
  }
}

TEST(xfile_close, leaves_a_file_that_converts_to_null_and_false) {
  const tests::scratch_dir dir;
  xfile file(dir / "f", xfile::mode_write, true, 0);
  EXPECT_TRUE(file);
  EXPECT_NE(static_cast<FILE*>(file), nullptr);
  file.close();
  EXPECT_FALSE(file);
  EXPECT_EQ(static_cast<FILE*>(file), nullptr);
  EXPECT_EQ(error_of([&] { file.close(); }), "no exception");
}

TEST(xfile_truncate, sets_the_size) {
  const tests::scratch_dir dir;
  tests::make_file(dir / "f", "0123456789");
  xfile file(dir / "f", xfile::mode_update, true, 0);
  EXPECT_EQ(file.truncate(4), 0);
  EXPECT_EQ(tests::content(dir / "f"), "0123");
  EXPECT_EQ(file.truncate(5000000000), 0);
  EXPECT_EQ(std::filesystem::file_size(dir / "f"), 5000000000U);
  EXPECT_EQ(file.truncate(0), 0);
  EXPECT_EQ(tests::content(dir / "f"), "");
}

TEST(xfile_truncate, returns_a_failure_as_it_is) {
  const tests::scratch_dir dir;
  tests::make_file(dir / "f", "kept");
  xfile file(dir / "f", xfile::mode_read, true, 0);
  EXPECT_EQ(file.truncate(0), -1);
  file.close();
  EXPECT_EQ(file.truncate(0), -1);
  EXPECT_EQ(tests::content(dir / "f"), "kept");
}

/// The remainder of byte * x^32 in long division by x^32 + 0x04C11DB7.
std::uint32_t remainder_of(std::uint64_t byte) {
  std::uint64_t dividend = byte << 32;
  for (int bit = 39; bit >= 32; --bit) {
    if ((dividend >> bit & 1) != 0) dividend ^= 0x104C11DB7ULL << (bit - 32);
  }
  return static_cast<std::uint32_t>(dividend);
}

TEST(xfile_init, fills_the_crc32_table) {
  xfile::init();
  for (std::uint32_t byte = 0; byte < 256; ++byte) {
    EXPECT_EQ(mirt::crc32_table[byte], remainder_of(byte)) << byte;
  }
  EXPECT_EQ(mirt::crc32_table[1], 0x04C11DB7U);
  EXPECT_EQ(mirt::crc32_table[255], 0xB1F740B4U);
}

TEST(xfile_init, makes_a_table_that_gives_the_known_check_value) {
  xfile::init();
  std::uint32_t crc = 0xFFFFFFFF;
  for (const unsigned char c : std::string("123456789")) {
    crc = (crc << 8) ^ mirt::crc32_table[(crc >> 24) ^ c];
  }
  EXPECT_EQ(crc, 0x0376E6E7U);
}

TEST_F(xfile_on_a_full_disk, stays_unsaid_at_the_end_also_where_memory_is_out) {
  auto full = std::make_unique<xfile>("/dev/full", xfile::mode_write, true, 0);
  full->write("x", 1);  // stays in the stream, which then cannot be stored
  const tests::failing_allocations failing(0);
  full.reset();
}

}  // namespace
