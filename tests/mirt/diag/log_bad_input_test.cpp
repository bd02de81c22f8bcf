// The log with lines of every kind, and with files that it cannot write.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <filesystem>

#include "mirt/diag/errlog.h"
#include "mirt/diag/log_rotate.h"
#include "mirt/sys/signals.h"
#include "tests/support/log_lines.h"
#include "tests/support/private_etc.h"
#include "tests/support/scratch_dir.h"

namespace {

namespace fs = std::filesystem;
using mirt::errlog;
using tests::content;
using tests::stamped;
using tests::stderr_of;
using tests::stop_clock;
using tests::write_batch;
using lines = std::vector<std::string>;

std::string naively_escaped(const std::string& line) {
  std::string result;
  for (const char c : line) {
    const unsigned byte = static_cast<unsigned char>(c);
    char escape[4];
    std::snprintf(escape, sizeof escape, "`%02x", byte);
    result += byte < 0x20 || byte == 0x60 ? std::string(escape) : std::string(1, c);
  }
  return result;
}

/// What the file holds and what standard error said, after these lines with the clock stopped.
void expect_everywhere(const lines& written, const std::string& expected) {
  const tests::scratch_dir dir;
  const std::string on_stderr = stderr_of([&] {
    stop_clock();
    errlog::set_log_file_name(dir / "x");
    write_batch(written);
  });
  EXPECT_TRUE(content(dir / "x") == expected);
  EXPECT_TRUE(on_stderr == expected);
}

TEST(a_line, is_one_line_whatever_its_bytes) {
  std::string all;
  lines each;
  for (int byte = 0; byte < 256; ++byte) {
    all.push_back(static_cast<char>(byte));
    each.emplace_back(1, static_cast<char>(byte));
  }
  each.push_back(all);
  lines expected;
  for (const std::string& line : each) expected.push_back(naively_escaped(line));
  expect_everywhere(each, stamped(expected));
}

TEST(a_line, may_have_any_length) {
  lines all;
  for (const std::size_t size :
       {0, 1, 4095, 4096, 4097, 65514, 65515, 65535, 65536, 65537, 200000, 0, 1}) {
    all.push_back(std::string(size, static_cast<char>('a' + all.size())));
  }
  expect_everywhere(all, stamped(all));
}

TEST(a_line, may_have_many_mib) {
  const std::string line(16 << 20, '\n');
  expect_everywhere({"before", line, "after"}, stamped({"before", naively_escaped(line), "after"}));
}

TEST(a_line, of_many_mib_is_folded_like_any_other) {
  const tests::scratch_dir dir;
  const std::string line(5 << 20, 'x');
  tests::in_log_process([&] {
    stop_clock();
    errlog::set_log_to_stderr(false);
    errlog::set_log_file_name(dir / "x");
    write_batch({line, line, line.substr(1)});
    write_batch({line.substr(1), line});
  });
  EXPECT_TRUE(content(dir / "x") == stamped({line}) + tests::marker(1) + stamped({line.substr(1)}) +
                                        tests::marker(1) + stamped({line}));
}

/// Logs to a path that takes nothing. Standard error goes on, and a good path does afterwards.
void expect_the_log_goes_on(const std::string& path) {
  const tests::scratch_dir dir;
  const lines all(3000, "a line of some length, to fill every buffer");
  EXPECT_TRUE(stderr_of([&] {
                stop_clock();
                errlog::set_log_file_name(path);
                write_batch({"one"});
                write_batch(all);
                write_batch({"two"});
                fs::remove(path);
                fs::create_directories(fs::path(path).parent_path());
                write_batch({"in a good file"});
                EXPECT_EQ(content(path), stamped({"in a good file"}));
              }) == stamped({"one"}) + stamped(all) + stamped({"two", "in a good file"}));
}

TEST(a_log_path, that_leads_nowhere_loses_the_file_but_not_standard_error) {
  const tests::scratch_dir dir;
  expect_the_log_goes_on(dir / "missing/x");
}

TEST(a_log_path, with_a_directory_in_its_place_loses_the_file_but_not_standard_error) {
  const tests::scratch_dir dir;
  fs::create_directory(dir / "x");
  expect_the_log_goes_on(dir / "x");
}

TEST(a_log_path, with_a_file_for_a_directory_loses_the_file_but_not_standard_error) {
  const tests::scratch_dir dir;
  tests::make_file(dir / "x", "");
  EXPECT_EQ(stderr_of([&] {
              stop_clock();
              errlog::set_log_file_name(dir / "x/y");
              errlog::set_log_rotate(1, 1);
              write_batch({"one"});
            }),
            stamped({"one"}));
  EXPECT_EQ(tests::tree(dir.path()), (std::map<std::string, std::string>{{"x", ""}}));
}

TEST(a_full_disk, loses_the_file_but_not_standard_error) {
  if (!fs::exists("/dev/full")) GTEST_SKIP() << "the system has no full device";
  const tests::scratch_dir dir;
  fs::create_symlink("/dev/full", dir / "x");
  expect_the_log_goes_on(dir / "x");
}

TEST(a_full_disk, is_no_reason_to_end_for_a_file_that_throws_either) {
  if (!fs::exists("/dev/full")) GTEST_SKIP() << "the system has no full device";
  class throwing_hook final : public mirt::log_file_hook {
   public:
    void open(std::auto_ptr<mirt::xfile>& file) override {
      file.reset(new mirt::xfile("/dev/full", mirt::xfile::mode_update, true, 4));
    }
    void rotated() override {}
  };
  lines all;
  for (int i = 0; i < 3000; ++i)
    all.push_back("a line of some length, number " + std::to_string(i));
  EXPECT_TRUE(stderr_of([&] {
                mirt::g_errlog_custom_log_rotate = new throwing_hook;
                stop_clock();
                errlog::set_log_file_name("by the hook");
                write_batch({"one"});
                write_batch(all);
                write_batch({"two"});
              }) == stamped({"one"}) + stamped(all) + stamped({"two"}));
}

TEST(a_full_disk, is_written_to_again_once_there_is_room) {
  tests::in_private_etc([] {
    const tests::scratch_dir dir;
    tests::mount_tmpfs(dir.path(), "size=64k");
    tests::make_file(dir / "ballast", std::string(40'000, 'x'));
    const std::string line(100, 'l');
    lines many;
    for (int i = 0; i < 1000; ++i) many.push_back(line + std::to_string(i));
    EXPECT_TRUE(stderr_of([&] {
                  stop_clock();
                  errlog::set_log_file_name(dir / "x");
                  errlog::set_log_rotate(1000, 2);  // which moves full files, too
                  write_batch(many);
                  write_batch({"one"});
                  for (const auto& entry : fs::directory_iterator(dir.path())) fs::remove(entry);
                  write_batch({"two"});
                  EXPECT_EQ(content(dir / "x"), stamped({"two"}));
                }) == stamped(many) + stamped({"one", "two"}));
  });
}

TEST(a_standard_error, that_nobody_reads_loses_nothing_of_the_file) {
  const tests::scratch_dir dir;
  tests::in_log_process([&] {
    mirt::disable_sigpipe();
    int ends[2];
    ASSERT_EQ(::pipe(ends), 0);
    ASSERT_NE(::dup2(ends[1], STDERR_FILENO), -1);
    ::close(ends[0]);
    ::close(ends[1]);
    stop_clock();
    errlog::set_log_file_name(dir / "x");
    write_batch({"one"});
    write_batch({"two"});
  });
  EXPECT_EQ(content(dir / "x"), stamped({"one", "two"}));
}

TEST(a_sink, that_throws_does_not_stop_the_log) {
  tests::in_log_process([] {
    static int calls;
    errlog::set_log_sink([](const char*, std::size_t) {
      ++calls;
      throw 1;
    });
    write_batch({"one", "two"});
    write_batch({"three"});
    EXPECT_EQ(calls, 3);
  });
}

}  // namespace
