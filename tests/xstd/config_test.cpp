// The configuration store on disk: paths, writes and removals, and what a host's hook sees of them.
#include "xstd/config.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <filesystem>

#include "tests/support/access_recorder.h"
#include "tests/support/private_etc.h"
#include "tests/support/scratch_dir.h"
#include "tests/support/scratch_home.h"
#include "tests/xstd/config_fixture.h"

namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using tests::content;
using tests::make_file;
using tests::relative;
using tests::set;
using tests::string_map;
using tests::tree;
using tests::umask_guard;
using xstd::get_config_dir_ex;
using xstd::get_config_string_ex;
using xstd::per_user;
using xstd::system_wide;
using config_write = tests::config;
using config_hook = tests::config;

static_assert(sizeof(xstd::StorageLocation) == 4);
static_assert(xstd::system_wide == 0 && xstd::per_user == 1);

unsigned mode(const std::string& path) {
  struct stat status;
  EXPECT_EQ(0, ::stat(path.c_str(), &status)) << path;
  return status.st_mode & 07777;
}

// Roots and names.

TEST(config_root, a_machine_wide_value_lies_below_etc) {
  EXPECT_EQ("/etc/tarnwick/", get_config_dir_ex(system_wide));
}

TEST(config_root, a_users_value_lies_below_home) {
  const tests::scratch_home restored;
  const struct {
    const char* home;
    const char* root;
  } rows[] = {
      {nullptr, "/tmp/.tarnwick/"},
      {"", "/.tarnwick/"},
      {"/", "/.tarnwick/"},
      {"/Users/x", "/Users/x/.tarnwick/"},
      {"/Users/x/", "/Users/x/.tarnwick/"},
      {"/Users/x//", "/Users/x//.tarnwick/"},
      {"here", "here/.tarnwick/"},
      {"C:\\", "C:\\/.tarnwick/"},
  };
  for (const auto& [home, root] : rows) {
    if (home) {
      ::setenv("HOME", home, 1);
    } else {
      ::unsetenv("HOME");
    }
    EXPECT_EQ(root, get_config_dir_ex(per_user)) << (home ? home : "(unset)");
  }
}

TEST(config_root, any_other_location_has_an_empty_root) {
  for (const int value : {2, 77, -1, INT_MAX, INT_MIN}) {
    const auto location = static_cast<xstd::StorageLocation>(value);
    EXPECT_EQ("", get_config_dir_ex(location)) << value;
    EXPECT_EQ("a/b", get_config_dir_ex(location, "a/b")) << value;
  }
}

TEST(config_root, every_root_is_followed_by_the_components) {
  const tests::scratch_home home;
  EXPECT_EQ("/etc/tarnwick/Quorvex/flags/my+flag",
            get_config_dir_ex(system_wide, "Quorvex\\flags/my flag"));
  EXPECT_EQ(home / ".tarnwick/Quorvex/flags", get_config_dir_ex(per_user, "Quorvex\\flags/"));
  EXPECT_EQ("/etc/tarnwick/_", get_config_dir_ex(system_wide, ""));
}

TEST(config_path, each_component_is_split_off_and_encoded) {
  const struct {
    std::string name;
    const char* path;
  } rows[] = {
      {"a", "a"},
      {"a/b", "a/b"},
      {"a\\b", "a/b"},
      {"A\\B//C/", "A/B/C"},
      {"/a", "a"},
      {"a/", "a"},
      {"\\\\a\\/\\b\\\\\\", "a/b"},
      {"a////b", "a/b"},
      {"", "_"},
      {"/", "_"},
      {"\\", "_"},
      {"//\\/\\\\", "_"},
      {"_", "_"},
      {"my flags/x", "my+flags/x"},
      {" ", "+"},
      {"a.b", "a%2eb"},
      {"..", "%2e%2e"},
      {"../../x", "%2e%2e/%2e%2e/x"},
      {"./a", "%2e/a"},
      {"a-b~c", "a%2db%7ec"},
      {"+", "%2b"},
      {"%41", "%2541"},
      {"\xc3\xa9", "%c3%a9"},
      {std::string("a\0b", 3), "a%00b"},
      {"a\nb", "a%0ab"},
      {"09AZaz_", "09AZaz_"},
  };
  for (const auto& [name, path] : rows) {
    EXPECT_EQ(path, get_config_dir_ex(relative, name)) << testing::PrintToString(name);
  }
}

// Writing and removing.

TEST_F(config_write, a_value_is_the_whole_content_of_its_file) {
  for (const std::string& value :
       {std::string("true"), std::string("a\nb\n"), std::string("\0x\0", 3),
        std::string(65536, 'x'), std::string(65537, 'y')}) {
    set(relative, "my flags\\x.y", value);
    EXPECT_EQ((string_map{{"my+flags", "<dir>"}, {"my+flags/x%2ey", value}}), tree("."));
    EXPECT_EQ(value, get_config_string_ex(relative, "my flags/x.y"));
  }
}

TEST_F(config_write, a_name_without_components_is_the_file_underscore) {
  set(relative, "\\/", "v");
  EXPECT_EQ((string_map{{"_", "v"}}), tree("."));
  EXPECT_EQ("v", get_config_string_ex(relative, ""));
}

TEST_F(config_write, a_shorter_value_leaves_nothing_of_a_longer_one) {
  set(relative, "x", "a long value");
  set(relative, "x", "v");
  EXPECT_EQ("v", content("x"));
}

TEST_F(config_write, an_empty_value_removes_the_file) {
  set(relative, "a/x", "v");
  set(relative, "a/y", "w");
  set(relative, "a/x", "");
  EXPECT_EQ((string_map{{"a", "<dir>"}, {"a/y", "w"}}), tree("."));
  EXPECT_EQ("", get_config_string_ex(relative, "a/x"));
}

TEST_F(config_write, the_levels_are_made_for_a_removal_too) {
  set(relative, "a/b/x", "");
  EXPECT_EQ((string_map{{"a", "<dir>"}, {"a/b", "<dir>"}}), tree("."));
}

TEST_F(config_write, a_level_is_made_with_mode_0755) {
  const umask_guard none(0);
  set(relative, "a/x", "v");
  EXPECT_EQ(0755u, mode("a"));
}

TEST_F(config_write, a_users_value_has_mode_0600_after_each_write) {
  const umask_guard none(0);
  set(per_user, "a/x", "v");
  EXPECT_EQ(0600u, mode(home_ / ".tarnwick/a/x"));
  ASSERT_EQ(0, ::chmod((home_ / ".tarnwick/a/x").c_str(), 0644));
  set(per_user, "a/x", "w");
  EXPECT_EQ(0600u, mode(home_ / ".tarnwick/a/x"));
  EXPECT_EQ(0755u, mode(home_ / ".tarnwick/a"));
  EXPECT_EQ((string_map{{".tarnwick", "<dir>"}, {".tarnwick/a", "<dir>"}, {".tarnwick/a/x", "w"}}),
            tree(home_.path()));
}

TEST_F(config_write, any_other_value_keeps_the_mode_it_was_made_with) {
  set(relative, "x", "v");
  EXPECT_EQ(0644u, mode("x"));
  tests::in_private_etc([] {
    set(system_wide, "x", "v");
    EXPECT_EQ(0644u, mode("/etc/tarnwick/x"));
  });
}

TEST_F(config_write, a_regular_file_in_the_place_of_a_level_is_replaced_by_a_directory) {
  make_file("a", "old");
  set(relative, "a/b", "file");
  set(relative, "a/b/x", "v");
  EXPECT_EQ((string_map{{"a", "<dir>"}, {"a/b", "<dir>"}, {"a/b/x", "v"}}), tree("."));
}

TEST_F(config_write, a_removal_replaces_such_a_file_too) {
  make_file("a", "old");
  set(relative, "a/x", "");
  EXPECT_EQ((string_map{{"a", "<dir>"}}), tree("."));
}

TEST_F(config_write, a_link_to_a_directory_serves_as_a_level) {
  fs::create_directory("real");
  fs::create_directory_symlink("real", "a");
  set(relative, "a/x", "v");
  EXPECT_EQ((string_map{{"a", "-> real"}, {"real", "<dir>"}, {"real/x", "v"}}), tree("."));
}

TEST_F(config_write, a_file_in_the_place_of_the_root_stays_and_the_value_is_lost) {
  make_file(home_ / ".tarnwick", "mine");
  set(per_user, "a/x", "v");
  EXPECT_EQ((string_map{{".tarnwick", "mine"}}), tree(home_.path()));
  EXPECT_EQ("", get_config_string_ex(per_user, "a/x"));
}

TEST_F(config_write, the_old_file_goes_before_the_new_one_comes) {
  set(relative, "x", "old");
  fs::create_hard_link("x", "kept");
  set(relative, "x", "new");
  EXPECT_EQ((string_map{{"x", "new"}, {"kept", "old"}}), tree("."));
}

TEST_F(config_write, a_link_in_the_place_of_a_value_is_replaced_and_its_target_stays) {
  make_file("target", "old");
  fs::create_symlink("target", "x");
  set(relative, "x", "new");
  EXPECT_EQ((string_map{{"x", "new"}, {"target", "old"}}), tree("."));
}

TEST_F(config_write, a_name_of_255_bytes_is_written_and_one_of_256_is_lost) {
  for (const std::size_t size : {254u, 255u, 256u}) {
    const std::string name(size, 'n');
    set(relative, name, "v");
    EXPECT_EQ(size <= 255, ::access(name.c_str(), F_OK) == 0) << size;
    EXPECT_EQ(size <= 255 ? "v" : "", get_config_string_ex(relative, name)) << size;
  }
}

TEST_F(config_write, a_value_that_cannot_be_written_is_lost_unless_machine_wide) {
  for (const auto location : {per_user, relative}) {
    const std::string path = get_config_dir_ex(location, "a/x");
    fs::create_directories(path);
    set(location, "a/x", "v");
    EXPECT_TRUE(fs::is_directory(path));
    fs::remove(path);
    EXPECT_EQ("", get_config_string_ex(location, "a/x"));
  }
}

TEST_F(config_write, a_missing_value_reads_as_empty) {
  EXPECT_EQ("", get_config_string_ex(relative, "a/x"));
  EXPECT_THAT(tree("."), IsEmpty());
}

// What the host's hook sees: 1 change, 2 inspect.

TEST_F(config_hook, each_level_is_examined_and_made_then_the_value_goes_and_comes) {
  const tests::access_recorder recorder;
  const std::string root = home_ / ".tarnwick/";
  set(per_user, "a\\b/x", "v");
  EXPECT_THAT(recorder.seen(),
              ElementsAre(Pair(2, root), Pair(1, root), Pair(2, root + "a"), Pair(1, root + "a"),
                          Pair(2, root + "a/b"), Pair(1, root + "a/b"), Pair(1, root + "a/b/x"),
                          Pair(1, root + "a/b/x")));
}

TEST_F(config_hook, a_level_that_exists_is_made_all_the_same) {
  set(per_user, "a/x", "v");
  const tests::access_recorder recorder;
  const std::string root = home_ / ".tarnwick/";
  set(per_user, "a/x", "w");
  EXPECT_THAT(recorder.seen(),
              ElementsAre(Pair(2, root), Pair(2, root), Pair(1, root), Pair(2, root + "a"),
                          Pair(2, root + "a"), Pair(1, root + "a"), Pair(1, root + "a/x"),
                          Pair(1, root + "a/x")));
}

TEST_F(config_hook, a_level_that_cannot_be_made_does_not_stop_the_next) {
  const tests::access_recorder recorder;
  set(relative, "a/x", "v");
  EXPECT_THAT(recorder.seen(), ElementsAre(Pair(2, ""), Pair(1, ""), Pair(2, "a"), Pair(1, "a"),
                                           Pair(1, "a/x"), Pair(1, "a/x")));
}

TEST_F(config_hook, a_file_in_the_place_of_a_level_is_deleted_between) {
  make_file("a", "old");
  const tests::access_recorder recorder;
  set(relative, "a/x", "v");
  EXPECT_THAT(recorder.seen(),
              ElementsAre(Pair(2, ""), Pair(1, ""), Pair(2, "a"), Pair(2, "a"), Pair(1, "a"),
                          Pair(1, "a"), Pair(1, "a/x"), Pair(1, "a/x")));
}

TEST_F(config_hook, a_removal_ends_with_the_deletion) {
  const tests::access_recorder recorder;
  set(relative, "x", "");
  EXPECT_THAT(recorder.seen(), ElementsAre(Pair(2, ""), Pair(1, ""), Pair(1, "x")));
}

// Helpers.

TEST(config_join, puts_the_separator_between_the_parts) {
  EXPECT_EQ("", xstd::join({}, "/"));
  EXPECT_EQ("a", xstd::join({"a"}, "/"));
  EXPECT_EQ("a, , b", xstd::join({"a", "", "b"}, std::string(", ")));
  EXPECT_EQ("a-b", xstd::join({"a", "b"}, mirt::string_ref("-+", 1)));
}

TEST(config_take, copies_the_value_and_leaves_the_map) {
  const string_map map = {{"a", "1"}};
  EXPECT_EQ("1", xstd::take(map, "a"));
  EXPECT_EQ("", xstd::take(map, "b"));
  EXPECT_EQ((string_map{{"a", "1"}}), map);
}

TEST(config_urldecode, a_plus_is_a_space) {
  EXPECT_EQ("a b c", xstd::urldecode("a+b%20c"));
}

}  // namespace
