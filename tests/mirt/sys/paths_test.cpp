// Paths and shell words as text, and what expand_filename makes of a path on disk.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>

#include "mirt/sys/files.h"
#include "tests/support/access_recorder.h"
#include "tests/support/error_of.h"
#include "tests/support/scratch_dir.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;
using tests::error_of;

TEST(dirname, cuts_the_last_component) {
  const struct {
    const char* path;
    const char* directory;
  } rows[] =
      {
          {"/x/y", "/x"},  {"a/b", "a"},   {"file", "."}, {"", "."},     {".", "."},
          {"..", "."},     {"../x", ".."}, {"/", "/"},    {"/usr", "/"}, {"/usr/", "/usr"},
          {"a/b/", "a/b"},  // deliberate: a trailing separator is cut like any other
          {"a/", "a"},     {"//", "/"},    {"//x", "/"},  {"///", "//"}, {"a//b", "a/"},
      };
  for (const auto& row : rows) EXPECT_EQ(mirt::dirname(row.path), row.directory) << row.path;
}

TEST(dirname, takes_a_backslash_for_a_separator_as_well) {
  const struct {
    const char* path;
    const char* directory;
  } rows[] = {
      {R"(a\b)", "a"},        {R"(a\b/c)", "a"},  // first at the slash, then at the backslash
      {R"(a/b\c)", "a"},                          // the backslash went with the slash
      {R"(a\b\c)", R"(a\b)"}, {R"(/a\b)", "/"},  {R"(/a\b/c)", "/a"},        {R"(/d/no\pe)", "/d"},
      {R"(\x)", ""},          {R"(\)", ""},      {R"(\\srv\x)", R"(\\srv)"},
  };
  for (const auto& row : rows) EXPECT_EQ(mirt::dirname(row.path), row.directory) << row.path;
}

TEST(dirname, keeps_the_root_of_a_drive) {
  const struct {
    const char* path;
    const char* directory;
  } rows[] = {
      {"C:", "."},
      {":", "."},
      {"C:x", "."},
      {R"(C:\)", R"(C:\)"},
      {R"(C:\x)", R"(C:\)"},
      {R"(C:\x\y)", R"(C:\x)"},
      {"C:/x", R"(C:\)"},
      {R"(C:/x\y)", R"(C:\)"},
      {R"(C:\x/y)", R"(C:\)"},
      {R"(a:b\c)", R"(a:b\)"},
      {R"(ab:\c)", "ab:"},  // no drive: the colon is not the second character
  };
  for (const auto& row : rows) EXPECT_EQ(mirt::dirname(row.path), row.directory) << row.path;
}

TEST(basename, is_what_follows_the_last_separator) {
  const struct {
    const char* path;
    const char* name;
  } rows[] = {
      {"/x/y.txt", "y.txt"},
      {"y", "y"},
      {"a/b/", ""},
      {"", ""},
      {"/", ""},
      {"/usr", "usr"},
      {".", "."},
      {"..", ".."},
      {R"(a\b)", "b"},
      {R"(a/b\c)", "c"},
      {R"(a\b/c)", "c"},
      {R"(/d/no\pe)", "pe"},
      {R"(a\)", ""},
      {R"(a\b/)", ""},
      {R"(C:\x)", "x"},
      {"C:x", "C:x"},
      {R"(a/b\c\d)", "d"},
      {R"(a\/b)", "b"},
      {R"(a/\b)", "b"},
  };
  for (const auto& row : rows) EXPECT_EQ(mirt::basename(row.path), row.name) << row.path;
}

TEST(paths_as_text, are_not_reported) {
  const tests::access_recorder recorder;
  mirt::dirname("/etc/x");
  mirt::basename("/etc/x");
  mirt::quote_cmdline_unix("/etc/x");
  mirt::read_dir::valid_file("/etc/x");
  mirt::get_current_dir();
  EXPECT_THAT(recorder.seen(), IsEmpty());
}

TEST(quote_cmdline_unix, quotes_once_and_escapes_quotes_alone) {
  const struct {
    std::string text;
    std::string quoted;
  } rows[] = {
      {"", "''"},
      {"plain", "'plain'"},
      {"it's", R"('it'\''s')"},
      {"'", R"(''\''')"},
      {"''", R"(''\'''\''')"},
      {R"(a b"$`\;&|<>()*?[]#~!{})", R"('a b"$`\;&|<>()*?[]#~!{}')"},
      {"a\nb\tc", "'a\nb\tc'"},
      {std::string("a\0b", 3), std::string("'a\0b'", 5)},
      {"\xff\x80", "'\xff\x80'"},
  };
  for (const auto& row : rows) EXPECT_EQ(mirt::quote_cmdline_unix(row.text), row.quoted);
}

TEST(quote_cmdline_unix, is_read_back_by_a_shell) {
  std::string text;
  for (int c = 1; c < 256; ++c) text.push_back(static_cast<char>(c));
  text += "'' $(exit 1) `exit 1` \\'x\\";
  FILE* const shell = ::popen(("printf %s " + mirt::quote_cmdline_unix(text)).c_str(), "r");
  ASSERT_NE(shell, nullptr);
  char read[1024];
  const std::size_t size = std::fread(read, 1, sizeof read, shell);
  EXPECT_EQ(::pclose(shell), 0);
  EXPECT_EQ(std::string(read, size), text);
}

/// A working directory of the test's own, reached through a link as well.
class expand_filename : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(::mkdir((dir_ / "real").c_str(), 0755), 0);
    ASSERT_EQ(::mkdir((dir_ / "real/sub").c_str(), 0755), 0);
    ASSERT_EQ(::symlink("real", (dir_ / "link").c_str()), 0);
    ASSERT_EQ(::symlink("nowhere", (dir_ / "dangling").c_str()), 0);
    ASSERT_EQ(::symlink("loop", (dir_ / "loop").c_str()), 0);
    tests::make_file(dir_ / "real/file", "");
    previous_ = std::filesystem::current_path();
    ASSERT_EQ(::chdir((dir_ / "real").c_str()), 0);
  }
  void TearDown() override { std::filesystem::current_path(previous_); }

  const tests::scratch_dir dir_;

 private:
  std::filesystem::path previous_;
};

using get_current_dir = expand_filename;

TEST_F(expand_filename, resolves_what_exists) {
  const struct {
    std::string path;
    std::string expanded;
  } rows[] = {{"/", "/"},
              {dir_.path(), dir_.path()},
              {dir_ / "real/./sub/..", dir_ / "real"},
              {dir_ / "link", dir_ / "real"},
              {dir_ / "link/", dir_ / "real"},
              {dir_ / "link/file", dir_ / "real/file"},
              {"//" + dir_.path(), dir_.path()},
              {".", dir_ / "real"},
              {"file", dir_ / "real/file"},
              {"sub/../file", dir_ / "real/file"},
              {"../link/sub", dir_ / "real/sub"}};
  for (const auto& row : rows) EXPECT_EQ(mirt::expand_filename(row.path), row.expanded);
}

TEST_F(expand_filename, keeps_what_is_missing_of_an_absolute_path_by_name) {
  const struct {
    std::string path;
    std::string expanded;
  } rows[] = {{dir_ / "new", dir_ / "new"},
              {dir_ / "link/new", dir_ / "real/new"},
              {dir_ / "link/new/er", dir_ / "real/new/er"},
              {dir_ / "link/new/", dir_ / "real/new/"},
              {dir_ / "link/../new", dir_ / "new"},
              {dir_ / "real/file/below", dir_ / "real/file/below"},
              {dir_ / "dangling", dir_ / "dangling"},
              {dir_ / "loop", dir_ / "loop"},
              {"/mirt-nowhere", "/mirt-nowhere"},
              {"/mirt-nowhere/dir/file", "/mirt-nowhere/dir/file"}};
  for (const auto& row : rows) EXPECT_EQ(mirt::expand_filename(row.path), row.expanded);
}

TEST_F(expand_filename, takes_a_path_of_more_levels_than_the_system_would) {
  std::string path = "/mirt-nowhere";
  for (int i = 0; i < 3000; ++i) path += "/a";
  EXPECT_EQ(mirt::expand_filename(path), path);
}

TEST_F(expand_filename, splits_what_is_missing_at_backslashes_as_well) {
  EXPECT_EQ(mirt::expand_filename(R"(/mirt-nowhere/no\pe)"), "/mirt-nowhere/pe");
  EXPECT_EQ(mirt::expand_filename(R"(/mirt-nowhere\no/pe)"), "/mirt-nowhere/pe");
  EXPECT_EQ(mirt::expand_filename(dir_ / R"(link\x/y)"), dir_ / "real/y");
  tests::make_file(dir_ / R"(is\there)", "");
  EXPECT_EQ(mirt::expand_filename(dir_ / R"(is\there)"), dir_ / R"(is\there)");
}

TEST_F(expand_filename, puts_a_missing_relative_path_behind_the_working_directory_as_it_is) {
  for (const char* path : {"../none", "none", "./none/../x", R"(no\ne)", "none/", ""}) {
    EXPECT_EQ(mirt::expand_filename(path), (dir_ / "real/") + path);
  }
  ASSERT_EQ(::chdir((dir_ / "link").c_str()), 0);
  EXPECT_EQ(mirt::expand_filename("none"), dir_ / "real/none");
}

TEST_F(expand_filename, puts_one_slash_behind_the_root) {
  ASSERT_EQ(::chdir("/"), 0);
  EXPECT_EQ(mirt::expand_filename("mirt-nowhere"), "/mirt-nowhere");
  EXPECT_EQ(mirt::expand_filename("../mirt-nowhere"), "/../mirt-nowhere");
}

TEST_F(expand_filename, reports_every_path_that_it_tries) {
  const tests::access_recorder recorder;
  mirt::expand_filename(dir_ / "link");
  mirt::expand_filename(dir_ / "link/new/er");
  mirt::expand_filename("../none");
  EXPECT_THAT(recorder.seen(), ElementsAre(Pair(2, dir_ / "link"),  //
                                           Pair(2, dir_ / "link/new/er"),
                                           Pair(2, dir_ / "link/new"), Pair(2, dir_ / "link"),  //
                                           Pair(2, "../none"), Pair(2, dir_ / "real")));
}

TEST_F(expand_filename, of_a_missing_relative_path_needs_a_working_directory) {
  ASSERT_EQ(::mkdir((dir_ / "gone").c_str(), 0755), 0);
  ASSERT_EQ(::chdir((dir_ / "gone").c_str()), 0);
  ASSERT_EQ(::rmdir((dir_ / "gone").c_str()), 0);
  EXPECT_EQ(error_of([] { mirt::expand_filename("none"); }), ":Error in 'get_current_dir'");
}

TEST_F(get_current_dir, is_the_working_directory_without_links) {
  EXPECT_EQ(mirt::get_current_dir(), dir_ / "real");
  ASSERT_EQ(::chdir((dir_ / "link/sub").c_str()), 0);
  EXPECT_EQ(mirt::get_current_dir(), dir_ / "real/sub");
}

TEST_F(get_current_dir, throws_when_it_is_gone) {
  ASSERT_EQ(::mkdir((dir_ / "gone").c_str(), 0755), 0);
  ASSERT_EQ(::chdir((dir_ / "gone").c_str()), 0);
  ASSERT_EQ(::rmdir((dir_ / "gone").c_str()), 0);
  EXPECT_EQ(error_of([] { mirt::get_current_dir(); }), ":Error in 'get_current_dir'");
}

}  // namespace
