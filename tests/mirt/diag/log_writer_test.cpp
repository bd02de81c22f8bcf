// mirt/diag/log_writer.h: where lines go and how they look there, batch by batch.
#include "mirt/diag/log_writer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cstddef>
#include <cstring>
#include <filesystem>

#include "mirt/diag/errlog.h"
#include "mirt/diag/exception.h"
#include "tests/support/log_lines.h"
#include "tests/support/scratch_dir.h"

namespace {

namespace fs = std::filesystem;
using mirt::errlog;
using mirt::log_record;
using testing::ElementsAre;
using tests::content;
using tests::in_log_process;
using tests::marker;
using tests::stamp;
using tests::stamped;
using tests::stderr_of;
using tests::stop_clock;
using tests::to_file;
using tests::write_batch;
using tests::write_line;

static_assert(offsetof(log_record, line) == 0);
static_assert(offsetof(log_record, data) == sizeof(void*));
static_assert(offsetof(log_record, length) == 2 * sizeof(void*));
static_assert(offsetof(log_record, header_length) == 3 * sizeof(void*));
static_assert(offsetof(log_record, release) == 4 * sizeof(void*));

TEST(writer, stamps_lines_on_standard_error_as_long_as_nothing_else_is_said) {
  EXPECT_EQ(stderr_of([] {
              stop_clock();
              write_batch({"one", "", "a\nb"});
            }),
            stamped({"one", "", "a`0ab"}));
}

TEST(writer, writes_lines_to_standard_error_without_stamps_if_told_so) {
  EXPECT_EQ(stderr_of([] {
              errlog::set_stderr_timestamps(false);
              write_batch({"one", "", "a\nb"});
            }),
            "one\n\na`0ab\n");
}

TEST(writer, does_not_fold_on_standard_error) {
  EXPECT_EQ(stderr_of([] {
              stop_clock();
              write_batch({"a line of 17 bytes", "a line of 17 bytes"});
            }),
            stamped({"a line of 17 bytes", "a line of 17 bytes"}));
}

TEST(writer, writes_nothing_to_standard_error_if_told_so) {
  EXPECT_EQ(stderr_of([] {
              errlog::set_log_to_stderr(false);
              write_batch({"one"});
            }),
            "");
}

TEST(writer, writes_lines_to_file_and_standard_error) {
  const tests::scratch_dir dir;
  const std::string on_stderr = stderr_of([&] {
    stop_clock();
    errlog::set_log_file_name(dir / "x");
    errlog::set_stderr_timestamps(false);
    write_batch({"one", "a\nb"});
  });
  EXPECT_EQ(on_stderr, "one\na`0ab\n");
  EXPECT_EQ(content(dir / "x"), stamped({"one", "a`0ab"}));
}

TEST(writer, lays_a_line_out_with_stamp_process_prefix_name_and_text) {
  const tests::scratch_dir dir;
  std::string process;
  in_log_process([&] {
    to_file(dir / "x");
    g_run_report_level = 1;
    const std::string prefix = "X/";
    errlog("core", true, &prefix).log(0, "boom", 4);
    errlog::flush();
    tests::make_file(dir / "process", std::to_string(::getpid()));
  });
  EXPECT_EQ(content(dir / "x"), stamp + " [" + content(dir / "process") + "] X/core: boom\n");
}

TEST(writer, appends_to_what_stands_in_the_file) {
  const tests::scratch_dir dir;
  tests::make_file(dir / "x", "an older line\n");
  in_log_process([&] {
    to_file(dir / "x");
    write_batch({"one"});
    write_batch({"two"});
  });
  EXPECT_EQ(content(dir / "x"), "an older line\n" + stamped({"one", "two"}));
}

TEST(writer, with_an_empty_name_writes_no_file) {
  const tests::scratch_dir dir;
  in_log_process([&] {
    fs::current_path(dir.path());
    to_file(dir / "x");
    to_file("");
    write_batch({"one"});
  });
  EXPECT_TRUE(tests::tree(dir.path()).empty());
}

TEST(writer, with_a_sink_writes_neither_file_nor_standard_error) {
  const tests::scratch_dir dir;
  EXPECT_EQ(stderr_of([&] {
              errlog::set_log_file_name(dir / "x");
              tests::keep_lines();
              write_batch({"one", "a\n`b", "one", "a line of 17 bytes", "a line of 17 bytes"});
              EXPECT_THAT(tests::kept(), ElementsAre("one", "a`0a`60b", "one", "a line of 17 bytes",
                                                     "a line of 17 bytes"));
            }),
            "");
  EXPECT_TRUE(tests::tree(dir.path()).empty());
}

TEST(writer, folds_a_run_in_the_file_into_its_first_line_and_a_marker) {
  const tests::scratch_dir dir;
  const std::string line = "core: a line that comes again";
  in_log_process([&] {
    to_file(dir / "x");
    write_batch({line, line, line, line, line, "another line"});
  });
  EXPECT_EQ(content(dir / "x"), stamped({line}) + marker(4) + stamped({"another line"}));
}

TEST(writer, folds_a_run_over_many_batches) {
  const tests::scratch_dir dir;
  const std::string line = "core: a line that comes again";
  in_log_process([&] {
    to_file(dir / "x");
    for (unsigned repeats = 0; repeats < 30; ++repeats) {
      write_batch({line});
      EXPECT_EQ(content(dir / "x"), stamped({line}) + (repeats == 0 ? "" : marker(repeats)));
    }
    write_batch({"another line", line, line});
  });
  EXPECT_EQ(content(dir / "x"),
            stamped({line}) + marker(29) + stamped({"another line", line}) + marker(1));
}

TEST(writer, folds_runs_wherever_a_block_of_the_batch_ends) {
  const tests::scratch_dir dir;
  const std::string line = "core: a line that comes again";
  std::vector<std::string> lines;
  std::string expected;
  for (int i = 0; i < 3000; ++i) {
    lines.push_back(std::string(static_cast<std::size_t>(1 + i % 97), 'x') + std::to_string(i));
    lines.insert(lines.end(), 1 + static_cast<std::size_t>(i % 4), line);
    expected += stamped({lines[lines.size() - 2 - static_cast<std::size_t>(i % 4)], line});
    if (i % 4 != 0) expected += marker(static_cast<unsigned>(i % 4));
  }
  in_log_process([&] {
    to_file(dir / "x");
    write_batch(lines);
  });
  EXPECT_TRUE(content(dir / "x") == expected);
}

TEST(writer, does_not_fold_lines_that_are_too_short) {
  const tests::scratch_dir dir;
  const std::string short_line(14, 's'), long_line(15, 'l');  // space and line break count, too
  in_log_process([&] {
    to_file(dir / "x");
    write_batch({short_line, short_line, long_line, long_line});
  });
  EXPECT_EQ(content(dir / "x"), stamped({short_line, short_line, long_line}) + marker(1));
}

std::atomic<long long> g_now = 0;

TEST(writer, stamps_each_line_with_its_time_and_a_marker_with_the_last) {
  const tests::scratch_dir dir;
  in_log_process([&] {
    to_file(dir / "x");
    mirt::x_absolute_time = [](void*) { return g_now.load(); };
    for (g_now = 0; g_now < 3000; g_now += 1000) write_batch({"a line that comes again"});
    write_batch({"the end"});
  });
  EXPECT_EQ(content(dir / "x"),
            "1970-01-01T00:00:00Z a line that comes again\n"
            "1970-01-01T00:00:02Z -          2 - \n"
            "1970-01-01T00:00:03Z the end\n");
}

TEST(writer, does_not_fold_when_the_stamp_changes_its_length) {
  const tests::scratch_dir dir;
  const std::string line = "a line that comes again";
  const std::string on_stderr = stderr_of([&] {
    stop_clock();
    errlog::set_log_file_name(dir / "x");
    write_batch({line});
    mirt::x_absolute_time = [](void*) -> long long {
      throw mirt::exception::function("clock_realtime");
    };
    write_batch({line, line, line});
    stop_clock();
    write_batch({line});
  });
  EXPECT_EQ(content(dir / "x"),
            stamped({line}) + "N " + line + "\nN -          2 - \n" + stamped({line}));
  EXPECT_EQ(on_stderr,
            stamped({line}) + "N " + line + "\nN " + line + "\nN " + line + "\n" + stamped({line}));
}

TEST(writer, makes_a_deleted_file_again) {
  const tests::scratch_dir dir;
  in_log_process([&] {
    to_file(dir / "x");
    write_batch({"one"});
    fs::remove(dir / "x");
    write_batch({"two"});
    EXPECT_EQ(content(dir / "x"), stamped({"two"}));
    fs::rename(dir / "x", dir / "y");
    write_batch({"three"});
  });
  EXPECT_EQ(content(dir / "x"), stamped({"three"}));
  EXPECT_EQ(content(dir / "y"), stamped({"two"}));
}

TEST(writer, goes_on_with_a_marker_in_a_file_that_was_deleted_within_a_run) {
  const tests::scratch_dir dir;
  const std::string line = "a line that comes again";
  in_log_process([&] {
    to_file(dir / "x");
    write_batch({line, line});
    fs::remove(dir / "x");
    write_batch({line, "the end"});
  });
  EXPECT_EQ(content(dir / "x"), marker(2) + stamped({"the end"}));
}

// Pre-formatted records.

std::vector<const void*> g_released;

void record_release(void* data) {
  g_released.push_back(data);
}

void push_data(const char* data, std::size_t header_length) {
  mirt::push_record({nullptr, data, std::strlen(data), header_length, record_release});
}

/// In turn: ordinary, only a header, a header as long as the line, control bytes, no line break.
const char* const g_data[] = {"HDR payload\n", "HDR \n", "abcd\n", "HDR a\tb`\r\n", "HDR end"};

void push_all() {
  push_data(g_data[0], 3);
  push_data(g_data[1], 3);
  push_data(g_data[2], 4);
  push_data(g_data[3], 3);
  push_data(g_data[4], 3);
  errlog::flush();
  EXPECT_THAT(g_released, ElementsAre(g_data[0], g_data[1], g_data[2], g_data[3], g_data[4]));
}

TEST(preformatted_record, goes_to_the_file_and_to_standard_error_as_it_is) {
  const tests::scratch_dir dir;
  const std::string all = "HDR payload\nHDR \nabcd\nHDR a\tb`\r\nHDR end";
  EXPECT_EQ(stderr_of([&] {
              errlog::set_log_file_name(dir / "x");
              push_all();
            }),
            all);
  EXPECT_EQ(content(dir / "x"), all);
}

TEST(preformatted_record, goes_to_standard_error_without_its_header_where_stamps_are_off) {
  EXPECT_EQ(stderr_of([] {
              errlog::set_stderr_timestamps(false);
              push_all();
            }),
            "payload\n\nabcd\na\tb`\r\nend");
}

TEST(preformatted_record, goes_to_the_sink_without_header_and_line_breaks) {
  in_log_process([] {
    tests::keep_lines();
    push_all();
    EXPECT_THAT(tests::kept(), ElementsAre("payload", "", "abcd", "a\tb`", "end"));
  });
}

TEST(preformatted_record, is_folded_by_its_own_header) {
  const tests::scratch_dir dir;
  in_log_process([&] {
    to_file(dir / "x");
    for (const char* data : {"H1 a line that comes again\n", "H2 a line that comes again\n",
                             "H3 a line that comes again\n"}) {
      push_data(data, 2);
    }
    write_batch({"a line that comes again"});
  });
  EXPECT_EQ(content(dir / "x"), "H1 a line that comes again\nH3 -          2 - \n" +
                                    stamped({"a line that comes again"}));
}

TEST(preformatted_record, keeps_its_place_between_lines) {
  EXPECT_EQ(stderr_of([] {
              stop_clock();
              write_line("one");
              push_data("HDR two\n", 3);
              write_batch({"three"});
              EXPECT_EQ(g_released.size(), 1U);
            }),
            stamped({"one"}) + "HDR two\n" + stamped({"three"}));
}

}  // namespace
