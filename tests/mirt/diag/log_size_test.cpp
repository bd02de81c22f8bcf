// mirt/diag/log_writer.h: how the writer keeps its file small.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <map>

#include "mirt/diag/errlog.h"
#include "tests/support/log_lines.h"
#include "tests/support/scratch_dir.h"

namespace {

namespace fs = std::filesystem;
using mirt::errlog;
using tests::content;
using tests::in_log_process;
using tests::make_file;
using tests::marker;
using tests::stamped;
using tests::to_file;
using tests::write_batch;
using tests::written;
using files = std::map<std::string, std::string>;

const std::string g_line = "a line that comes again";

TEST(writer, rotates_a_file_that_has_reached_the_size_after_a_batch) {
  for (const std::size_t missing : {0, 1}) {
    SCOPED_TRACE(missing);
    const tests::scratch_dir dir;
    const std::string batch = stamped({"one", "two"});
    in_log_process([&] {
      to_file(dir / "x");
      errlog::set_log_rotate(2 * batch.size() + missing, 2);
      write_batch({"one", "two"});
      EXPECT_EQ(written(dir.path()), (files{{"x", batch}}));
      write_batch({"one", "two"});
    });
    EXPECT_EQ(written(dir.path()), (files{{missing == 0 ? "x.0" : "x", batch + batch}}));
  }
}

TEST(writer, keeps_as_many_rotated_files_as_it_is_told) {
  const tests::scratch_dir dir;
  in_log_process([&] {
    to_file(dir / "x");
    errlog::set_log_rotate(1, 3);
    for (const char* line : {"one", "two", "three", "four", "five"}) write_batch({line});
  });
  EXPECT_EQ(
      written(dir.path()),
      (files{{"x.0", stamped({"five"})}, {"x.1", stamped({"four"})}, {"x.2", stamped({"three"})}}));
}

TEST(writer, does_not_rotate_unless_size_and_count_are_given) {
  for (const auto& [size, count] : {std::pair{0, 3}, std::pair{1, 0}}) {
    const tests::scratch_dir dir;
    in_log_process([&, s = size, c = count] {
      to_file(dir / "x");
      errlog::set_log_rotate(static_cast<std::size_t>(s), c);
      write_batch({"one"});
      write_batch({"two"});
    });
    EXPECT_EQ(written(dir.path()), (files{{"x", stamped({"one", "two"})}}));
  }
}

TEST(writer, starts_a_new_run_after_a_rotation) {
  const tests::scratch_dir dir;
  in_log_process([&] {
    to_file(dir / "x");
    errlog::set_log_rotate(stamped({g_line}).size() + 1, 3);
    write_batch({g_line});
    write_batch({g_line});
    write_batch({g_line});
  });
  EXPECT_EQ(written(dir.path()),
            (files{{"x", stamped({g_line})}, {"x.0", stamped({g_line}) + marker(1)}}));
}

TEST(writer, writes_on_where_a_rotation_fails) {
  const tests::scratch_dir dir;
  fs::create_directory(dir / "x.0");
  in_log_process([&] {
    to_file(dir / "x");
    errlog::set_log_rotate(1, 1);
    write_batch({"one"});
    write_batch({"two"});
    EXPECT_EQ(content(dir / "x"), stamped({"one", "two"}));
    fs::remove(dir / "x.0");
    write_batch({"three"});
  });
  EXPECT_EQ(written(dir.path()), (files{{"x.0", stamped({"one", "two", "three"})}}));
}

TEST(writer, cuts_the_file_in_place_and_so_loses_the_newest_lines_deliberately) {
  const tests::scratch_dir dir;
  const std::string old(300'000, 'o'), batch = stamped({"one"});
  make_file(dir / "x", old);
  in_log_process([&] {
    to_file(dir / "x");
    errlog::set_log_cut_size(200'000);
    write_batch({"one"});
    EXPECT_TRUE(content(dir / "x") == std::string(65536, 'o'));
    write_batch({"two"});
  });
  EXPECT_TRUE(content(dir / "x") == std::string(65536, 'o') + stamped({"two"}));
}

TEST(writer, empties_the_file_at_a_small_cut_size) {
  const tests::scratch_dir dir;
  in_log_process([&] {
    to_file(dir / "x");
    errlog::set_log_cut_size(1);
    write_batch({"one"});
    EXPECT_EQ(content(dir / "x"), "");
    write_batch({"two", "three"});
  });
  EXPECT_EQ(content(dir / "x"), "");
}

TEST(writer, goes_on_with_a_run_after_a_cut) {
  const tests::scratch_dir dir;
  make_file(dir / "x", std::string(300'000, 'o'));
  in_log_process([&] {
    to_file(dir / "x");
    errlog::set_log_cut_size(200'000);
    write_batch({g_line});
    write_batch({g_line});
  });
  EXPECT_TRUE(content(dir / "x") == std::string(65536, 'o') + marker(1));
}

TEST(writer, cuts_rather_than_rotates) {
  const tests::scratch_dir dir;
  in_log_process([&] {
    to_file(dir / "x");
    errlog::set_log_rotate(1, 3);
    errlog::set_log_cut_size(1000);
    write_batch({"one"});
  });
  EXPECT_EQ(written(dir.path()), (files{{"x", stamped({"one"})}}));
}

}  // namespace
