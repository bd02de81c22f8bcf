// Files and directories on disk, and what is reported of each access.
#include "mirt/sys/files.h"

#include <dirent.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <vector>

#include "tests/support/access_recorder.h"
#include "tests/support/error_of.h"
#include "tests/support/scratch_dir.h"

namespace {

using ::testing::ElementsAre;
using ::testing::Pair;
using ::testing::UnorderedElementsAre;
using tests::error_of;
using entries = std::map<std::string, std::string>;

static_assert(!std::is_copy_constructible_v<mirt::read_dir>);
static_assert(!std::is_copy_assignable_v<mirt::read_dir>);
static_assert(sizeof(mirt::read_dir) == sizeof(DIR*));

/// One entry of every kind that a test can make.
class files : public ::testing::Test {
 protected:
  void SetUp() override {
    tests::make_file(dir_ / "file", "content");
    ASSERT_EQ(::mkdir((dir_ / "dir").c_str(), 0755), 0);
    ASSERT_EQ(::mkfifo((dir_ / "fifo").c_str(), 0644), 0);
    ASSERT_EQ(::symlink("file", (dir_ / "to_file").c_str()), 0);
    ASSERT_EQ(::symlink("dir", (dir_ / "to_dir").c_str()), 0);
    ASSERT_EQ(::symlink("nowhere", (dir_ / "dangling").c_str()), 0);
  }

  const tests::scratch_dir dir_;
};

TEST_F(files, are_told_apart_by_what_the_path_leads_to) {
  const struct {
    const char* name;
    bool is_directory;
    bool is_file;
  } rows[] = {{"file", false, true}, {"to_file", false, true}, {"dir", true, false},
              {"dir/", true, false}, {"to_dir", true, false},  {"dir/..", true, false},
              {"fifo", false, false}};
  for (const auto& row : rows) {
    EXPECT_EQ(mirt::is_directory(dir_ / row.name), row.is_directory) << row.name;
    EXPECT_EQ(mirt::is_file(dir_ / row.name), row.is_file) << row.name;
    EXPECT_TRUE(mirt::file_exists(dir_ / row.name)) << row.name;
  }
}

TEST_F(files, that_a_path_does_not_lead_to_are_no_files) {
  for (const std::string& path :
       {dir_ / "missing", dir_ / "dangling", dir_ / "file/below", std::string()}) {
    EXPECT_EQ(error_of([&] { mirt::is_directory(path); }), ":Error in 'is_directory'") << path;
    EXPECT_EQ(error_of([&] { mirt::is_file(path); }), ":Error in 'is_file'") << path;
    EXPECT_FALSE(mirt::file_exists(path)) << path;
  }
}

TEST_F(files, that_are_looked_at_are_reported_as_kind_2_there_or_not) {
  const tests::access_recorder recorder;
  const std::string missing = dir_ / "missing";
  mirt::is_directory(dir_.path());
  mirt::is_file(dir_.path());
  mirt::file_exists(dir_.path());
  EXPECT_THAT(recorder.seen(),
              ElementsAre(Pair(2, dir_.path()), Pair(2, dir_.path()), Pair(2, dir_.path())));
  tests::access_recorder of_missing;
  error_of([&] { mirt::is_directory(missing); });
  error_of([&] { mirt::is_file(missing); });
  mirt::file_exists(missing);
  EXPECT_THAT(of_missing.seen(), ElementsAre(Pair(2, missing), Pair(2, missing), Pair(2, missing)));
}

class move_file : public files {};

TEST_F(move_file, renames_files_directories_and_links) {
  mirt::move_file(dir_ / "file", dir_ / "dir/file2");
  mirt::move_file(dir_ / "dir", dir_ / "dir2");
  mirt::move_file(dir_ / "dangling", dir_ / "dangling2");
  const entries tree = tests::tree(dir_ / "dir2");
  EXPECT_EQ(tree, (entries{{"file2", "content"}}));
  EXPECT_FALSE(mirt::file_exists(dir_ / "file"));
  EXPECT_FALSE(mirt::file_exists(dir_ / "dir"));
  EXPECT_EQ(::access((dir_ / "dangling2").c_str(), F_OK), -1);
  EXPECT_EQ(error_of([&] { mirt::delete_file(dir_ / "dangling2"); }), "no exception");
}

TEST_F(move_file, onto_anything_that_exists_fails_and_leaves_both) {
  tests::make_file(dir_ / "other", "kept");
  ASSERT_EQ(::unlink((dir_ / "fifo").c_str()), 0);
  const entries before = tests::tree(dir_.path());
  for (const char* to : {"other", "dir", "to_file", "file"}) {
    EXPECT_EQ(error_of([&] { mirt::move_file(dir_ / "file", dir_ / to); }), ":Error in 'move_file'")
        << to;
  }
  EXPECT_EQ(tests::tree(dir_.path()), before);
}

TEST_F(move_file, onto_a_dangling_link_replaces_the_link) {
  mirt::move_file(dir_ / "file", dir_ / "dangling");
  EXPECT_EQ(tests::content(dir_ / "dangling"), "content");
  EXPECT_FALSE(mirt::file_exists(dir_ / "nowhere"));
}

TEST_F(move_file, that_cannot_be_renamed_stays) {
  EXPECT_EQ(error_of([&] { mirt::move_file(dir_ / "missing", dir_ / "new"); }),
            ":Error in 'move_file'");
  EXPECT_EQ(error_of([&] { mirt::move_file(dir_ / "file", dir_ / "no/new"); }),
            ":Error in 'move_file'");
  EXPECT_EQ(tests::content(dir_ / "file"), "content");
}

TEST_F(move_file, reports_both_as_changed_before_it_looks_for_the_target) {
  const std::string from = dir_ / "file";
  const std::string to = dir_ / "to";
  const tests::access_recorder recorder;
  mirt::move_file(from, to);
  EXPECT_THAT(recorder.seen(), ElementsAre(Pair(1, from), Pair(1, to), Pair(2, to)));
}

class create_directory : public files {
 protected:
  static mode_t permissions(const std::string& path) {
    struct stat status = {};
    EXPECT_EQ(::stat(path.c_str(), &status), 0);
    return status.st_mode & 07777;
  }
};

TEST_F(create_directory, has_mode_0755_less_the_umask) {
  const struct {
    mode_t umask;
    mode_t permissions;
  } rows[] = {{0, 0755}, {022, 0755}, {027, 0750}, {077, 0700}};
  for (const auto& row : rows) {
    const std::string path = dir_ / ("new" + std::to_string(row.umask));
    const mode_t before = ::umask(row.umask);
    mirt::create_directory(path);
    ::umask(before);
    EXPECT_TRUE(mirt::is_directory(path));
    EXPECT_EQ(permissions(path), row.permissions);
  }
}

TEST_F(create_directory, is_content_with_anything_that_stands_there) {
  ASSERT_EQ(::unlink((dir_ / "fifo").c_str()), 0);
  const entries before = tests::tree(dir_.path());
  for (const char* name : {"dir", "dir/", "file", "to_file", "to_dir", "dangling"}) {
    EXPECT_EQ(error_of([&] { mirt::create_directory(dir_ / name); }), "no exception") << name;
  }
  EXPECT_EQ(tests::tree(dir_.path()), before);
}

TEST_F(create_directory, makes_one_level_only) {
  const char* const text = ":Error from 'mkdir' (called in 'create_directory'): ";
  EXPECT_EQ(error_of([&] { mirt::create_directory(dir_ / "no/new"); }),
            text + std::string("2, No such file or directory"));
  EXPECT_EQ(error_of([&] { mirt::create_directory(dir_ / "file/new"); }),
            text + std::string("20, Not a directory"));
  EXPECT_EQ(error_of([] { mirt::create_directory(""); }),
            text + std::string("2, No such file or directory"));
  EXPECT_FALSE(mirt::file_exists(dir_ / "no"));
}

TEST_F(create_directory, is_reported_as_kind_1_even_for_what_exists) {
  const tests::access_recorder recorder;
  mirt::create_directory(dir_ / "new");
  mirt::create_directory(dir_ / "new");
  error_of([&] { mirt::create_directory(dir_ / "no/new"); });
  EXPECT_THAT(recorder.seen(),
              ElementsAre(Pair(1, dir_ / "new"), Pair(1, dir_ / "new"), Pair(1, dir_ / "no/new")));
}

class delete_file : public files {};

TEST_F(delete_file, removes_files_and_links_themselves) {
  mirt::delete_file(dir_ / "to_file");
  mirt::delete_file(dir_ / "to_dir");
  mirt::delete_file(dir_ / "dangling", std::nothrow);
  mirt::delete_file(dir_ / "fifo", std::nothrow);
  EXPECT_EQ(tests::tree(dir_.path()), (entries{{"dir", "<dir>"}, {"file", "content"}}));
}

TEST_F(delete_file, tells_the_path_in_brackets) {
  const std::string missing = dir_ / "missing";
  EXPECT_EQ(error_of([&] { mirt::delete_file(missing); }),
            ":Error from 'unlink' (called in 'delete_file'): [" + missing +
                "] 2, No such file or directory");
  EXPECT_EQ(error_of([&] { mirt::delete_file(dir_ / "file/below"); }),
            ":Error from 'unlink' (called in 'delete_file'): [" + (dir_ / "file/below") +
                "] 20, Not a directory");
}

TEST_F(delete_file, removes_no_directory) {
  EXPECT_NE(error_of([&] { mirt::delete_file(dir_ / "dir"); }), "no exception");
  EXPECT_TRUE(mirt::is_directory(dir_ / "dir"));
}

TEST_F(delete_file, with_nothrow_says_nothing_of_a_failure) {
  EXPECT_EQ(error_of([&] { mirt::delete_file(dir_ / "missing", std::nothrow); }), "no exception");
  EXPECT_EQ(error_of([&] { mirt::delete_file(dir_ / "dir", std::nothrow); }), "no exception");
  EXPECT_TRUE(mirt::is_directory(dir_ / "dir"));
}

TEST_F(delete_file, is_reported_as_kind_1) {
  const std::string path = dir_ / "file";
  const tests::access_recorder recorder;
  mirt::delete_file(path);
  mirt::delete_file(path, std::nothrow);
  error_of([&] { mirt::delete_file(path); });
  EXPECT_THAT(recorder.seen(), ElementsAre(Pair(1, path), Pair(1, path), Pair(1, path)));
}

/// What a listing gives until its first empty name.
std::vector<std::string> names(mirt::read_dir& dir) {
  std::vector<std::string> result;
  for (std::string name = dir.next(); !name.empty(); name = dir.next()) result.push_back(name);
  return result;
}

class read_dir : public files {
 protected:
  static int free_descriptor() {
    const int descriptor = ::open("/dev/null", O_RDONLY);
    ::close(descriptor);
    return descriptor;
  }
};

TEST_F(read_dir, gives_every_entry_but_the_two_dots) {
  tests::make_file(dir_ / ".hidden", "");
  tests::make_file(dir_ / "...", "");
  tests::make_file(dir_ / "..a", "");
  mirt::read_dir dir(dir_.path());
  EXPECT_THAT(names(dir), UnorderedElementsAre("file", "dir", "fifo", "to_file", "to_dir",
                                               "dangling", ".hidden", "...", "..a"));
}

TEST_F(read_dir, keeps_the_order_of_the_file_system) {
  for (int i = 0; i < 50; ++i) tests::make_file(dir_ / std::to_string(i * 7919), "");
  std::vector<std::string> expected;
  DIR* const stream = ::opendir(dir_.path().c_str());
  while (const dirent* entry = ::readdir(stream)) {
    const std::string name = entry->d_name;
    if (name != "." && name != "..") expected.push_back(name);
  }
  ::closedir(stream);
  mirt::read_dir dir(dir_.path());
  EXPECT_EQ(names(dir), expected);
}

TEST_F(read_dir, stays_at_its_end) {
  mirt::read_dir empty(dir_ / "dir");
  for (int i = 0; i < 3; ++i) EXPECT_EQ(empty.next(), "");
  mirt::read_dir full(dir_.path());
  EXPECT_EQ(names(full).size(), 6U);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(full.next(), "");
}

TEST_F(read_dir, of_what_cannot_be_opened_is_empty) {
  for (const std::string& path :
       {dir_ / "missing", dir_ / "file", dir_ / "dangling", std::string()}) {
    mirt::read_dir dir(path);
    EXPECT_EQ(dir.next(), "") << path;
    EXPECT_EQ(dir.next(), "") << path;
  }
}

TEST_F(read_dir, closes_its_stream_at_the_end_or_when_destroyed) {
  const int before = free_descriptor();
  mirt::read_dir whole(dir_.path());
  EXPECT_NE(free_descriptor(), before);
  names(whole);
  EXPECT_EQ(free_descriptor(), before);
  {
    mirt::read_dir half(dir_.path());
    half.next();
    EXPECT_NE(free_descriptor(), before);
  }
  EXPECT_EQ(free_descriptor(), before);
}

TEST_F(read_dir, is_reported_as_kind_2_once) {
  const tests::access_recorder recorder;
  mirt::read_dir dir(dir_.path());
  names(dir);
  mirt::read_dir missing(dir_ / "missing");
  missing.next();
  EXPECT_THAT(recorder.seen(), ElementsAre(Pair(2, dir_.path()), Pair(2, dir_ / "missing")));
}

TEST(read_dir_valid_file, is_all_but_the_two_dots) {
  for (const char* name : {".", ".."}) EXPECT_FALSE(mirt::read_dir::valid_file(name)) << name;
  for (const char* name : {"", "...", ".a", "..a", "a", "a.", "./", " "}) {
    EXPECT_TRUE(mirt::read_dir::valid_file(name)) << name;
  }
}

TEST(get_exe_path, is_the_resolved_path_of_this_program) {
  const std::string path = mirt::get_exe_path();
  EXPECT_EQ(mirt::basename(path), "files_test");
  EXPECT_TRUE(mirt::is_file(path));
  EXPECT_EQ(mirt::expand_filename(path), path);
}

TEST(get_exe_path, is_reported_as_expanded) {
  const tests::access_recorder recorder;
  const std::string path = mirt::get_exe_path();
  ASSERT_EQ(recorder.seen().size(), 1U);
  EXPECT_EQ(recorder.seen()[0].first, 2);
  EXPECT_EQ(mirt::basename(recorder.seen()[0].second), mirt::basename(path));
}

TEST(init_util_fs, touches_no_file) {
  const tests::access_recorder recorder;
  mirt::init_util_fs();
  EXPECT_TRUE(recorder.seen().empty());
}

}  // namespace
