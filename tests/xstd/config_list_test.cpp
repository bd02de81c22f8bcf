// The configuration store's listing, and its overlay in memory.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <thread>

#include "mirt/sys/files.h"
#include "tests/support/access_recorder.h"
#include "tests/support/private_etc.h"
#include "tests/support/scratch_dir.h"
#include "tests/xstd/config_fixture.h"
#include "xstd/config.h"

namespace {

namespace fs = std::filesystem;
using testing::IsEmpty;
using tests::content;
using tests::make_file;
using tests::relative;
using tests::set;
using tests::set_in_memory;
using tests::string_map;
using tests::tree;
using xstd::get_config_string_ex;
using xstd::per_user;
using xstd::system_wide;
using config_overlay = tests::config;
using config_list = tests::config;

// The overlay.

TEST_F(config_overlay, a_value_for_memory_only_touches_no_disk) {
  const tests::access_recorder recorder;
  set_in_memory(relative, "a/x", "v");
  EXPECT_EQ("v", get_config_string_ex(relative, "a/x"));
  EXPECT_THAT(recorder.seen(), IsEmpty());
  EXPECT_THAT(tree("."), IsEmpty());
}

TEST_F(config_overlay, it_comes_before_the_file) {
  set(relative, "x", "disk");
  set_in_memory(relative, "x", "memory");
  EXPECT_EQ("memory", get_config_string_ex(relative, "x"));
  EXPECT_EQ("disk", content("x"));
}

TEST_F(config_overlay, an_empty_value_for_memory_only_uncovers_the_file) {
  set(relative, "x", "disk");
  set_in_memory(relative, "x", "memory");
  set_in_memory(relative, "x", "");
  EXPECT_EQ("disk", get_config_string_ex(relative, "x"));
}

TEST_F(config_overlay, a_write_and_a_removal_take_the_value_out) {
  set_in_memory(relative, "x", "memory");
  set(relative, "x", "disk");
  EXPECT_EQ("disk", get_config_string_ex(relative, "x"));
  set_in_memory(relative, "x", "memory");
  set(relative, "x", "");
  EXPECT_EQ("", get_config_string_ex(relative, "x"));
}

TEST_F(config_overlay, a_failed_write_takes_the_old_value_out_too) {
  set_in_memory(relative, "x", "memory");
  fs::create_directory("x");
  set(relative, "x", "v");
  fs::remove("x");
  EXPECT_EQ("", get_config_string_ex(relative, "x"));
}

TEST_F(config_overlay, a_value_is_known_by_its_path) {
  set_in_memory(relative, "a\\my x", "v");
  EXPECT_EQ("v", get_config_string_ex(relative, "//a/my x/"));
  EXPECT_EQ("", get_config_string_ex(relative, "a"));
  EXPECT_EQ("", get_config_string_ex(per_user, "a/my x"));
}

TEST_F(config_overlay, the_listing_does_not_see_it) {
  set(relative, "a/x", "disk");
  set_in_memory(relative, "a/x", "memory");
  set_in_memory(relative, "a/y", "memory");
  EXPECT_EQ((string_map{{"x", "disk"}}), list(relative, "a"));
}

TEST_F(config_overlay, threads_may_share_it) {
  const auto work = [](const std::string& name) {
    for (int i = 0; i < 1000; ++i) {
      set_in_memory(relative, name, std::to_string(i));
      ASSERT_EQ(std::to_string(i), get_config_string_ex(relative, name));
      if (i % 2) set_in_memory(relative, name, "");
    }
  };
  std::thread other(work, "one");
  work("two");
  other.join();
}

TEST_F(config_overlay, a_machine_wide_value_that_cannot_be_written_is_kept_there) {
  tests::in_private_etc([this] {
    fs::create_directories("/etc/tarnwick/a/x/full");
    set(system_wide, "a/x", "kept");
    set(system_wide, std::string(256, 'n'), "also kept");
    EXPECT_EQ("kept", get_config_string_ex(system_wide, "a\\x"));
    EXPECT_EQ("also kept", get_config_string_ex(system_wide, std::string(256, 'n')));
    EXPECT_THAT(list(system_wide, "a"), IsEmpty());

    set(system_wide, "a/x", "");
    EXPECT_EQ("", get_config_string_ex(system_wide, "a/x"));
    set(system_wide, "a/x", "again");
    fs::remove_all("/etc/tarnwick/a/x");
    EXPECT_EQ("again", get_config_string_ex(system_wide, "a/x"));
    set(system_wide, "a/x", "written");
    EXPECT_EQ("written", content("/etc/tarnwick/a/x"));
    EXPECT_EQ("written", get_config_string_ex(system_wide, "a/x"));
  });
}

TEST_F(config_overlay, a_store_that_cannot_be_written_keeps_every_value_there) {
  tests::in_private_etc([] {
    fs::create_directory("/etc/tarnwick");
    tests::mount_tmpfs("/etc/tarnwick", "");
    set(system_wide, "old", "disk");
    tests::make_read_only("/etc/tarnwick");
    set(system_wide, "a/b/x", "kept");
    set(system_wide, "old", "");
    EXPECT_EQ("kept", get_config_string_ex(system_wide, "a/b/x"));
    EXPECT_EQ("disk", get_config_string_ex(system_wide, "old"));
    EXPECT_EQ((string_map{{"old", "disk"}}), tree("/etc/tarnwick"));
  });
}

TEST_F(config_overlay, a_file_in_the_place_of_the_machine_wide_root_stays) {
  tests::in_private_etc([] {
    make_file("/etc/tarnwick", "not ours");
    set(system_wide, "a/x", "kept");
    EXPECT_EQ((string_map{{"tarnwick", "not ours"}}), tree("/etc"));
    EXPECT_EQ("kept", get_config_string_ex(system_wide, "a/x"));
  });
}

// Listing.

TEST_F(config_list, a_listing_opens_the_directory_and_examines_then_reads_each_entry) {
  set(relative, "a/x", "v");
  fs::create_directory("a/sub");
  const tests::access_recorder recorder;
  list(relative, "a");
  ASSERT_EQ(4u, recorder.seen().size());
  EXPECT_THAT(recorder.seen()[0], testing::Pair(2, "a"));
  EXPECT_THAT(recorder.seen(),
              testing::UnorderedElementsAre(testing::Pair(2, "a"), testing::Pair(2, "a/sub"),
                                            testing::Pair(2, "a/x"), testing::Pair(0, "a/x")));
}

TEST_F(config_list, reads_every_value_one_level_deep) {
  set(per_user, "a/x", "1");
  set(per_user, "a/y", "2");
  set(per_user, "a/sub/z", "3");
  set(per_user, "b", "4");
  EXPECT_EQ((string_map{{"x", "1"}, {"y", "2"}}), list(per_user, "a\\"));
}

TEST_F(config_list, keys_are_decoded) {
  fs::create_directory("a");
  for (const char* name : {"my+key", "a%2eb", "c%4", ".hidden", "%zz"}) {
    make_file(std::string("a/") + name, name);
  }
  EXPECT_EQ((string_map{{"my key", "my+key"},
                        {"a.b", "a%2eb"},
                        {"c", "c%4"},
                        {".hidden", ".hidden"},
                        {std::string(1, '\0'), "%zz"}}),
            list(relative, "a"));
}

TEST_F(config_list, every_name_comes_back_as_it_was_given) {
  string_map all;
  for (int byte = 0; byte < 256; ++byte) {
    if (byte == '/' || byte == '\\') continue;
    // Capitals apart, for file systems that fold case.
    const bool capital = byte >= 'A' && byte <= 'Z';
    const std::string name = {capital ? '2' : '1', static_cast<char>(byte)};
    set(relative, "a/" + name, all[name] = std::to_string(byte));
  }
  EXPECT_EQ(all, list(relative, "a"));
}

TEST_F(config_list, an_empty_file_is_listed_with_an_empty_value) {
  fs::create_directory("a");
  make_file("a/x", "");
  EXPECT_EQ((string_map{{"x", ""}}), list(relative, "a"));
}

TEST_F(config_list, keys_that_are_found_are_overwritten_and_others_kept) {
  set(relative, "a/x", "new");
  string_map values = {{"x", "old"}, {"y", "kept"}};
  xstd::list_config_values_ex(relative, "a", values);
  EXPECT_EQ((string_map{{"x", "new"}, {"y", "kept"}}), values);
}

TEST_F(config_list, a_directory_that_cannot_be_opened_changes_nothing) {
  make_file("file", "v");
  for (const char* name : {"missing", "file"}) {
    string_map values = {{"y", "kept"}};
    xstd::list_config_values_ex(relative, name, values);
    EXPECT_EQ((string_map{{"y", "kept"}}), values) << name;
  }
}

TEST_F(config_list, an_entry_that_cannot_be_read_is_skipped) {
  set(relative, "a/x", "1");
  // Nobody can open a socket as a file, not even root.
  const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  std::strcpy(address.sun_path, "a/s");
  ASSERT_EQ(0, ::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address));
  ::close(fd);
  set(relative, "a/y", "2");
  string_map values = {{"s", "kept"}};
  xstd::list_config_values_ex(relative, "a", values);
  EXPECT_EQ((string_map{{"x", "1"}, {"y", "2"}, {"s", "kept"}}), values);
}

TEST_F(config_list, a_dangling_link_ends_the_listing) {
  fs::create_directory("a");
  fs::create_symlink("nowhere", "a/link");
  // Only the entries before the link count, in an order that is the file system's own.
  string_map before_link;
  bool last = true;
  for (int i = 0; last && i < 1000; ++i) {
    make_file(std::string("a/").append(std::to_string(i)), "v");
    before_link.clear();
    mirt::read_dir entries("a");
    std::string entry;
    while ((entry = entries.next()) != "link") before_link.emplace(entry, "v");
    last = entries.next().empty();
  }
  ASSERT_FALSE(last) << "the link is always the last entry";
  EXPECT_EQ(before_link, list(relative, "a"));
}

}  // namespace
