// What the tool makes of its arguments: status, store, silence.
#include "tests/e2e/tool.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "tests/support/private_etc.h"
#include "tests/support/scratch_dir.h"

namespace {

namespace fs = std::filesystem;
using tests::flags;
using tests::in_private_etc;
using tests::make_store;
using tests::run_tool;
using tests::store;
using tests::store_tree;
using tests::tool_start;

const std::string g_flags = "/etc/tarnwick/Quorvex/flags";
const store_tree bare = {};

/// The levels above the flags, with a file in the place of the last.
store_tree file_named_flags(const std::string& content) {
  return {
      {"tarnwick", "<dir>"}, {"tarnwick/Quorvex", "<dir>"}, {"tarnwick/Quorvex/flags", content}};
}

TEST(tool, applies_each_pair_and_leaves_all_other_files) {
  in_private_etc([] {
    store_tree before =
        flags({{"old_flag", "true"}, {"third_flag", "true"}, {"other", "untouched"}});
    before["tarnwick/Quorvex/other"] = before["tarnwick/other"] = before["other"] = "untouched";
    make_store(before);
    EXPECT_EQ(0, run_tool("example_flag=CT&old_flag=DF&third_flag=CF"));
    store_tree after = before;
    after.erase("tarnwick/Quorvex/flags/old_flag");
    after["tarnwick/Quorvex/flags/example_flag"] = "true";
    after["tarnwick/Quorvex/flags/third_flag"] = "false";
    EXPECT_EQ(after, store());
  });
}

TEST(tool, turns_a_string_into_files) {
  const store_tree empty = flags({});
  const store_tree levels = {{"tarnwick", "<dir>"}, {"tarnwick/Quorvex", "<dir>"}};
  const struct {
    const char* argument;
    store_tree before;
    store_tree after;
  } rows[] = {
      // The four codes.
      {"a=CT", bare, flags({{"a", "true"}})},
      {"a=CF", bare, flags({{"a", "false"}})},
      {"a=DT", flags({{"a", "true"}, {"b", "true"}}), flags({{"b", "true"}})},
      {"a=DF", flags({{"a", "false"}}), empty},
      {"a=CF", flags({{"a", "a longer text"}}), flags({{"a", "false"}})},
      // A removal on a bare system makes the directories only.
      {"a=DT", bare, empty},
      {"a=DF&b=DT", bare, empty},
      // Nothing at all.
      {"", bare, bare},
      {"&&", bare, bare},
      {"=CT", bare, bare},
      {"=CT", flags({{"a", "odd"}}), flags({{"a", "odd"}})},
      {"=", bare, bare},
      {"=garbage&==%&", bare, bare},
      // Separators in odd places.
      {"&a=CT&&b=CF&", bare, flags({{"a", "true"}, {"b", "false"}})},
      {"=CT&a=CT", bare, flags({{"a", "true"}})},
      // The last of a repeated key counts, also where an earlier one is malformed.
      {"a=CT&a=CF", bare, flags({{"a", "false"}})},
      {"a=rubbish&a=CT", bare, flags({{"a", "true"}})},
      // Escapes.
      {"%61=%43%54", bare, flags({{"a", "true"}})},
      {"a%=CT", bare, flags({{"a", "true"}})},
      {"a%4=CT", bare, flags({{"a", "true"}})},
      {"a=CT%", bare, flags({{"a", "true"}})},
      {"%7g=CT", bare, flags({{"p", "true"}})},
      {"a%5fb=CT", bare, flags({{"a_b", "true"}})},
      // Keys are folded where they are stored, and applied in the order of the unfolded ones.
      {"_x=CT", bare, flags({{"x", "true"}})},
      {"a__b=CT", bare, flags({{"a_b", "true"}})},
      {"x_=CT&x=CF&x__=CT", bare, flags({{"x", "true"}})},
      {"x__=CF&x_=CT&x=CT", bare, flags({{"x", "false"}})},
      {"x_=CF&x=CT&x__=DT", bare, empty},
      {"x_=CT&x=DT", bare, flags({{"x", "true"}})},
      // A key of underscores stands for the directory itself.
      {"_=CT", bare, file_named_flags("true")},
      {"___=CF", bare, file_named_flags("false")},
      {"_=CF", file_named_flags("true"), file_named_flags("false")},
      {"_=DT", file_named_flags("true"), levels},
      {"_=DT", bare, levels},
      {"_=CT", empty, empty},
      {"_=DT", flags({{"a", "true"}}), flags({{"a", "true"}})},
      // It comes after digits and before letters.
      {"_=CT&a=CF", bare, flags({{"a", "false"}})},
      {"a=CF&_=CT", bare, flags({{"a", "false"}})},
      {"_=CT&1=CF", bare, flags({{"1", "false"}})},
      {"_=CT&a=DF", bare, empty},
      // What stands in the way.
      {"a=CT", {{"tarnwick", "<dir>"}, {"tarnwick/Quorvex", "file"}}, flags({{"a", "true"}})},
      {"a=CT", file_named_flags("file"), flags({{"a", "true"}})},
      {"a=DT", file_named_flags("file"), empty},
      {"a=CT", {{"tarnwick", "not a directory"}}, {{"tarnwick", "not a directory"}}},
      {"a=CT&b=CT", flags({{"a", "<dir>"}}), flags({{"a", "<dir>"}, {"b", "true"}})},
      {"a=DT", flags({{"a", "<dir>"}}), flags({{"a", "<dir>"}})},
  };
  in_private_etc([&rows] {
    for (const auto& [argument, before, after] : rows) {
      SCOPED_TRACE(argument);
      make_store(before);
      EXPECT_EQ(0, run_tool(argument));
      EXPECT_EQ(after, store());
    }
  });
}

TEST(tool, a_malformed_string_changes_nothing) {
  const store_tree filled = flags({{"a", "true"}, {"b", "odd"}});
  const char* const rows[] = {
      "a",           "a=",        "a=C",       "a=CTT",        "a=XT",    "a=CX",
      "a=ct",        "a=TC",      "a=T",       "a=true",       "A=CT",    "a-b=CT",
      "a b=CT",      "a+b=CT",    "a.b=CT",    "..=CT",        "../a=CT", "a/b=CT",
      "a%2fb=CT",    "a\\b=CT",   "a%5cb=CT",  "%2e%2e=CT",    "/a=CT",   "a%00=CT",
      "%00=CT",      "a=CT%00",   "%zz=CT",    "%=CT",         "%4=CT",   "a=CT=",
      "a==CT",       "a=CT;b=CT", "a=+CT",     "a=CT ",        " a=CT",   "a=CT\n",
      "\xc3\xa4=CT", "\xff=CT",   "a=DF&B=CT", "B=CT&a=DF",    "a=DT&b",  "c=CT&a=D",
      "a=DT&%=CT",   "--help",    "-v",        "a=CT --force", "\x01",    "a=CF&a=rubbish",
  };
  in_private_etc([&] {
    for (const char* argument : rows) {
      SCOPED_TRACE(argument);
      for (const store_tree& before : {bare, filled}) {
        make_store(before);
        EXPECT_EQ(1, run_tool(argument));
        EXPECT_EQ(before, store());
      }
    }
  });
}

TEST(tool, without_an_argument_it_fails_before_anything_happens) {
  in_private_etc([] {
    EXPECT_EQ(1, run_tool(tool_start{{}}));
    EXPECT_EQ(bare, store());
  });
}

TEST(tool, an_empty_argument_vector_counts_as_no_argument) {
  in_private_etc([] {
    tool_start start{{}};
    start.has_name = false;
    EXPECT_EQ(1, run_tool(start));
    EXPECT_EQ(bare, store());
  });
}

TEST(tool, arguments_after_the_first_are_ignored) {
  in_private_etc([] {
    EXPECT_EQ(0, run_tool(tool_start{{"a=CT", "b=CT", "malformed", ""}}));
    EXPECT_EQ(flags({{"a", "true"}}), store());
    EXPECT_EQ(0, run_tool(tool_start{{"", "b=CT"}}));
    EXPECT_EQ(1, run_tool(tool_start{{"malformed", "b=CT"}}));
    EXPECT_EQ(flags({{"a", "true"}}), store());
  });
}

TEST(tool, a_thousand_flags_are_applied) {
  in_private_etc([] {
    std::string argument;
    std::map<std::string, std::string> values;
    for (int i = 0; i < 1000; ++i) {
      const std::string name = std::string("flag_").append(std::to_string(i));
      argument.append(name).append(i % 2 ? "=CT&" : "=CF&");
      values[name] = i % 2 ? "true" : "false";
    }
    EXPECT_EQ(0, run_tool(argument));
    EXPECT_EQ(flags(values), store());
  });
}

TEST(tool, a_key_too_long_for_a_file_is_dropped_and_the_others_go_on) {
  in_private_etc([] {
    for (const std::size_t size : {254u, 255u, 256u, 100000u}) {
      SCOPED_TRACE(size);
      make_store(bare);
      const std::string key(size, 'k');
      std::map<std::string, std::string> expected = {{"a", "true"}, {"z", "false"}};
      if (size <= 255) expected[key] = "true";
      EXPECT_EQ(0, run_tool("a=CT&" + key + "=CT&z=CF"));
      EXPECT_EQ(flags(expected), store());
    }
  });
}

TEST(tool, a_key_is_as_long_as_its_folded_form) {
  in_private_etc([] {
    const std::string key(255, 'k');
    EXPECT_EQ(0, run_tool("_" + key + std::string(1000, '_') + "=CT"));
    EXPECT_EQ(flags({{key, "true"}}), store());
  });
}

TEST(tool, a_directory_with_content_in_the_place_of_a_value_stays) {
  in_private_etc([] {
    store_tree before = flags({{"a", "<dir>"}});
    before["tarnwick/Quorvex/flags/a/file"] = "kept";
    make_store(before);
    EXPECT_EQ(0, run_tool("a=CT"));
    EXPECT_EQ(0, run_tool("a=DT"));
    EXPECT_EQ(before, store());
  });
}

TEST(tool, a_link_in_the_place_of_a_value_goes_and_its_target_stays) {
  in_private_etc([] {
    make_store(flags({}));
    tests::make_file("/etc/target", "untouched");
    for (const char* target : {"/etc/target", "/etc/nowhere"}) {
      fs::create_symlink(target, g_flags + "/a");
      EXPECT_EQ(0, run_tool("a=CT&b=DF"));
      store_tree after = flags({{"a", "true"}});
      after["target"] = "untouched";
      EXPECT_EQ(after, store());
      EXPECT_EQ(0, run_tool("a=DF"));
    }
  });
}

TEST(tool, a_linked_directory_is_followed) {
  in_private_etc([] {
    make_store({{"elsewhere", "<dir>"}, {"tarnwick", "<dir>"}, {"tarnwick/Quorvex", "<dir>"}});
    fs::create_directory_symlink("/etc/elsewhere", g_flags);
    EXPECT_EQ(0, run_tool("a=CT"));
    EXPECT_EQ("true", tests::content("/etc/elsewhere/a"));
    EXPECT_TRUE(fs::is_symlink(g_flags));
  });
}

TEST(tool, other_files_keep_their_very_selves) {
  in_private_etc([] {
    make_store(flags({{"a", "true"}, {"other", "text"}}));
    const std::string path = g_flags + "/other";
    ASSERT_EQ(0, ::chmod(path.c_str(), 0640));
    const timespec times[2] = {{1, 2}, {3, 4}};
    ASSERT_EQ(0, ::utimensat(AT_FDCWD, path.c_str(), times, 0));
    struct stat before, after;
    ASSERT_EQ(0, ::stat(path.c_str(), &before));
    EXPECT_EQ(0, run_tool("a=DT&b=CT"));
    ASSERT_EQ(0, ::stat(path.c_str(), &after));
    EXPECT_EQ(before.st_ino, after.st_ino);
    EXPECT_EQ(before.st_mode, after.st_mode);
    EXPECT_EQ(3, after.st_mtime);
    EXPECT_EQ(before.st_ctime, after.st_ctime);
    EXPECT_EQ(flags({{"b", "true"}, {"other", "text"}}), store());
  });
}

TEST(tool, writing_again_what_is_there_changes_nothing) {
  in_private_etc([] {
    for (int i = 0; i < 3; ++i) {
      EXPECT_EQ(0, run_tool("a=CT&b=CF&c=DT"));
      EXPECT_EQ(flags({{"a", "true"}, {"b", "false"}}), store());
    }
  });
}

}  // namespace
