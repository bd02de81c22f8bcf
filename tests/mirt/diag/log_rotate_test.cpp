// mirt/diag/log_rotate.h and the rotation of mirt/diag/errlog.h, without a writer.
#include "mirt/diag/log_rotate.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <limits>
#include <map>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "mirt/diag/errlog.h"
#include "tests/support/access_recorder.h"
#include "tests/support/error_of.h"
#include "tests/support/scratch_dir.h"

namespace {

namespace fs = std::filesystem;
using mirt::errlog;
using mirt::xfile;
using testing::ElementsAre;
using testing::Pair;
using tests::error_of;
using tests::make_file;
using tests::tree;
using files = std::map<std::string, std::string>;

TEST(errlog_open_log_file, opens_a_file_for_reading_and_writing) {
  const tests::scratch_dir dir;
  make_file(dir / "x", "12345");
  std::auto_ptr<xfile> file;
  mirt::errlog_open_log_file(file, dir / "x");
  ASSERT_TRUE(file.get() != nullptr && *file);
  EXPECT_EQ(file->path(), dir / "x");
  std::string text;
  EXPECT_TRUE(file->read(text));
  EXPECT_EQ(text, "12345");
  std::fseek(*file, 1, SEEK_SET);
  file->write("--", 2);
  file->close();
  EXPECT_EQ(tests::content(dir / "x"), "1--45");
}

TEST(errlog_open_log_file, makes_a_missing_file) {
  const tests::scratch_dir dir;
  std::auto_ptr<xfile> file;
  mirt::errlog_open_log_file(file, dir / "x");
  EXPECT_TRUE(static_cast<bool>(*file));
  EXPECT_EQ(tests::content(dir / "x"), "");
}

TEST(errlog_open_log_file, leaves_a_closed_file_when_it_cannot) {
  const tests::scratch_dir dir;
  std::auto_ptr<xfile> file;
  EXPECT_NO_THROW(mirt::errlog_open_log_file(file, dir / "missing/x"));
  ASSERT_NE(file.get(), nullptr);
  EXPECT_FALSE(static_cast<bool>(*file));
  EXPECT_NO_THROW(file->write("lost", 4)) << "it says nothing later either";
}

TEST(errlog_open_log_file, destroys_the_file_that_was_there) {
  const tests::scratch_dir dir;
  std::auto_ptr<xfile> file(new xfile(dir / "old", xfile::mode_write, true, 0));
  file->write("written when it closes", 22);
  mirt::errlog_open_log_file(file, dir / "x");
  EXPECT_EQ(tests::content(dir / "old"), "written when it closes");
}

TEST(errlog_open_log_file, is_reported_as_kind_4) {
  const tests::scratch_dir dir;
  const tests::access_recorder recorder;
  std::auto_ptr<xfile> file;
  mirt::errlog_open_log_file(file, dir / "x");
  EXPECT_THAT(recorder.seen(), ElementsAre(Pair(4, dir / "x")));
}

TEST(force_log_rotate, moves_every_file_one_up) {
  const struct {
    int count;
    files before, after;
  } rows[] = {
      {3, {{"x", "a"}}, {{"x.0", "a"}}},
      {3, {{"x", "a"}, {"x.0", "b"}}, {{"x.0", "a"}, {"x.1", "b"}}},
      {3,
       {{"x", "a"}, {"x.0", "b"}, {"x.1", "c"}, {"x.2", "d"}, {"x.3", "e"}},
       {{"x.0", "a"}, {"x.1", "b"}, {"x.2", "c"}}},
      {3,
       {{"x", "a"}, {"x.0", "b"}, {"x.1", "c"}, {"x.2", "d"}},
       {{"x.0", "a"}, {"x.1", "b"}, {"x.2", "c"}}},
      {1, {{"x", "a"}, {"x.0", "b"}, {"x.1", "c"}}, {{"x.0", "a"}}},
      {1, {{"x", "a"}, {"x.1", "c"}}, {{"x.0", "a"}, {"x.1", "c"}}},
      {2,
       {{"x", "a"}, {"x.0", "b"}, {"x.1", "c"}, {"x.3", "d"}},
       {{"x.0", "a"}, {"x.1", "b"}, {"x.3", "d"}}},  // beyond the gap
      {5, {{"x", "a"}, {"x.0", "b"}, {"x.2", "c"}}, {{"x.0", "a"}, {"x.1", "b"}, {"x.2", "c"}}},
      {0, {{"x", "a"}, {"x.0", "b"}, {"x.2", "c"}}, {{"x.2", "c"}}},
      {0, {{"x.0", "b"}}, {{"x.0", "b"}}},
      {-1, {{"x", "a"}, {"x.0", "b"}, {"x.1", "c"}}, {}},
      {3,
       {{"x", "a"}, {"y", "b"}, {"x.00", "c"}, {"x.", "d"}},
       {{"x.0", "a"}, {"y", "b"}, {"x.00", "c"}, {"x.", "d"}}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(&row - rows);
    const tests::scratch_dir dir;
    for (const auto& [name, text] : row.before) make_file(dir / name, text);
    errlog::set_log_rotate(1, row.count);
    EXPECT_EQ(error_of([&] { errlog::force_log_rotate(dir / "x"); }), "no exception");
    EXPECT_EQ(tree(dir.path()), row.after);
  }
}

TEST(force_log_rotate, counts_in_decimal) {
  const tests::scratch_dir dir;
  for (int i = 0; i < 12; ++i) make_file(dir / ("x." + std::to_string(i)), std::to_string(i));
  make_file(dir / "x", "new");
  errlog::set_log_rotate(1, 20);
  errlog::force_log_rotate(dir / "x");
  EXPECT_EQ(tests::content(dir / "x.0"), "new");
  EXPECT_EQ(tests::content(dir / "x.9"), "8");
  EXPECT_EQ(tests::content(dir / "x.10"), "9");
  EXPECT_EQ(tests::content(dir / "x.12"), "11");
}

TEST(force_log_rotate, throws_at_the_first_rename_that_fails) {
  const tests::scratch_dir dir;
  make_file(dir / "x", "a");
  make_file(dir / "x.0", "b");
  fs::create_directory(dir / "x.1");  // cannot be deleted to make room
  errlog::set_log_rotate(1, 2);
  EXPECT_EQ(error_of([&] { errlog::force_log_rotate(dir / "x"); }), ":Error in 'move_file'");
  EXPECT_EQ(tree(dir.path()), (files{{"x", "a"}, {"x.0", "b"}, {"x.1", "<dir>"}}));
}

TEST(force_log_rotate, without_a_log_has_moved_the_others_when_it_throws) {
  const tests::scratch_dir dir;
  make_file(dir / "x.0", "b");
  errlog::set_log_rotate(1, 2);
  EXPECT_EQ(error_of([&] { errlog::force_log_rotate(dir / "x"); }), ":Error in 'move_file'");
  EXPECT_EQ(tree(dir.path()), (files{{"x.1", "b"}}));
}

/// The log and its numbered files; the log stands in front.
using generations = std::vector<std::optional<std::string>>;

/// What a rotation leaves, by what it is for. Whether it succeeds.
bool rotate_model(generations& all, int count) {
  std::size_t end = 1;  // of the unbroken run of numbered files
  while (end < all.size() && all[end]) ++end;
  if (count <= 0) {
    if (all[0]) std::fill_n(all.begin(), end, std::nullopt);
    return true;
  }
  const std::size_t kept = std::min<std::size_t>(end, static_cast<std::size_t>(count));
  for (std::size_t i = kept; i < end; ++i) all[i].reset();
  if (kept == all.size()) all.emplace_back();
  for (std::size_t i = kept; i > 0; --i) all[i] = all[i - 1];
  const bool had_log = all[0].has_value();
  all[0].reset();
  return had_log;
}

TEST(force_log_rotate, agrees_with_a_model_for_random_files_and_counts) {
  std::mt19937 random(7);
  for (int round = 0; round < 3000; ++round) {
    const tests::scratch_dir dir;
    const auto name = [](std::size_t i) { return i == 0 ? "x" : "x." + std::to_string(i - 1); };
    generations all(1 + random() % 9);
    for (std::size_t i = 0; i < all.size(); ++i) {
      if (random() % 6 == 0) continue;
      all[i] = "generation " + std::to_string(i);
      make_file(dir / name(i), *all[i]);
    }
    const int count = static_cast<int>(random() % 10) - 1;
    SCOPED_TRACE(testing::Message() << "round " << round << " count " << count);
    errlog::set_log_rotate(1, count);
    const std::string error = error_of([&] { errlog::force_log_rotate(dir / "x"); });
    const bool succeeds = rotate_model(all, count);
    ASSERT_EQ(error, succeeds ? "no exception" : ":Error in 'move_file'");
    files expected;
    for (std::size_t i = 0; i < all.size(); ++i) {
      if (all[i]) expected[name(i)] = *all[i];
    }
    ASSERT_EQ(tree(dir.path()), expected);
  }
}

/// Checks a file of so many bytes, its position at their end.
bool check(const std::string& path, std::size_t size) {
  make_file(path, std::string(size, 'x'));
  xfile file(path, xfile::mode_update_create, false, 4);
  std::fseek(file, 0, SEEK_END);
  const bool rotated = errlog::check_log_rotate(&file);
  EXPECT_FALSE(static_cast<bool>(file)) << "closed in any case";
  return rotated;
}

TEST(check_log_rotate, rotates_a_file_that_has_reached_the_size) {
  for (const std::size_t size : {99, 100, 101}) {
    SCOPED_TRACE(size);
    const tests::scratch_dir dir;
    errlog::set_log_rotate(100, 1);
    EXPECT_EQ(check(dir / "x", size), size >= 100);
    EXPECT_EQ(fs::exists(dir / "x.0"), size >= 100);
    EXPECT_EQ(fs::exists(dir / "x"), size < 100);
  }
}

TEST(check_log_rotate, goes_by_the_position) {
  const tests::scratch_dir dir;
  make_file(dir / "x", std::string(200, 'x'));
  errlog::set_log_rotate(100, 1);
  xfile at_the_start(dir / "x", xfile::mode_update_create, false, 4);
  EXPECT_FALSE(errlog::check_log_rotate(&at_the_start));
  EXPECT_TRUE(fs::exists(dir / "x"));
}

TEST(check_log_rotate, compares_signed_deliberately) {
  constexpr auto greatest = std::numeric_limits<std::size_t>::max();
  const struct {
    std::size_t limit;
    bool is_rotated;
  } rows[] = {
      {greatest, true}, {greatest / 2 + 1, true}, {greatest / 2, false}, {1, false}, {0, true}};
  for (const auto& row : rows) {
    const tests::scratch_dir dir;
    errlog::set_log_rotate(row.limit, 1);
    EXPECT_EQ(check(dir / "x", 0), row.is_rotated) << row.limit;
  }
}

TEST(check_log_rotate, takes_the_name_from_the_file) {
  const tests::scratch_dir dir;
  make_file(dir / "configured", "untouched");
  errlog::set_log_file_name(dir / "configured");
  errlog::set_log_rotate(1, 1);
  EXPECT_TRUE(check(dir / "x", 1));
  EXPECT_EQ(tree(dir.path()), (files{{"configured", "untouched"}, {"x.0", "x"}}));
}

TEST(check_log_rotate, writes_what_is_buffered_before_it_moves_the_file) {
  const tests::scratch_dir dir;
  errlog::set_log_rotate(8, 1);
  xfile file(dir / "x", xfile::mode_update_create, false, 4);
  file.write("buffered", 8);
  EXPECT_TRUE(errlog::check_log_rotate(&file));
  EXPECT_EQ(tree(dir.path()), (files{{"x.0", "buffered"}}));
}

TEST(check_log_rotate, swallows_a_failed_rename_and_counts_it_as_a_rotation) {
  const tests::scratch_dir dir;
  fs::create_directory(dir / "x.0");
  errlog::set_log_rotate(1, 1);
  EXPECT_TRUE(check(dir / "x", 1));
  EXPECT_EQ(tree(dir.path()), (files{{"x", "x"}, {"x.0", "<dir>"}}));
}

TEST(check_log_rotate, swallows_a_failed_close_and_does_not_rotate) {
  if (!fs::exists("/dev/full")) GTEST_SKIP() << "the system has no full device";
  const tests::scratch_dir dir;
  fs::create_symlink("/dev/full", dir / "x");
  errlog::set_log_rotate(1, 1);
  xfile file(dir / "x", xfile::mode_update, true, 4);
  file.write("lost", 4);
  EXPECT_FALSE(errlog::check_log_rotate(&file));
  EXPECT_TRUE(fs::is_symlink(dir / "x"));
}

}  // namespace
