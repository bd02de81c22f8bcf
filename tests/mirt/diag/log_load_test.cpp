// The log end to end: many threads, and a file that is moved, rotated and deleted meanwhile. Every
// line is there afterwards, once, whole and in its thread's order.
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "mirt/diag/errlog.h"
#include "mirt/diag/fmt.h"
#include "tests/support/c_function.h"
#include "tests/support/log_lines.h"
#include "tests/support/scratch_dir.h"

namespace {

std::atomic<int> g_renames = 0;
std::atomic<int> g_failing_rename = 0;  // each rename of this number fails

}  // namespace

extern "C" int rename(const char* from, const char* to) noexcept {
  const int number = ++g_renames, failing = g_failing_rename;
  if (failing != 0 && number % failing == 0) {
    errno = EIO;
    return -1;
  }
  return tests::next<int(const char*, const char*)>("rename")(from, to);
}

namespace {

namespace fs = std::filesystem;
using mirt::errlog;
using tests::to_file;

constexpr int producers = 4;

std::string text_of(int i) {
  return mirt::stringify(i, ' ', std::string(static_cast<std::size_t>(i % 50), 'x'));
}

/// Logs from all producers at once: "tN: I bytes...". With `flush_every` each waits now and then.
void produce(int lines, int flush_every = 0) {
  std::vector<std::thread> threads;
  for (int thread = 0; thread < producers; ++thread) {
    threads.emplace_back([=] {
      const std::string name = {'t', static_cast<char>('0' + thread)};
      errlog log(name.c_str(), true, nullptr);
      for (int i = 0; i < lines; ++i) {
        const std::string text = text_of(i);
        log.log(0, text.data(), text.size());
        if (flush_every != 0 && i % flush_every == 0) errlog::flush();
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  errlog::flush();
}

/// Checks the files' content, the oldest first.
void expect_all(const std::string& content, int lines) {
  int next[producers] = {};
  std::string_view rest = content;
  while (!rest.empty()) {
    const std::string_view line = rest.substr(0, rest.find('\n'));
    ASSERT_LT(line.size(), rest.size()) << "no line break: " << line;
    rest.remove_prefix(line.size() + 1);
    const int thread = line.size() > 22 ? line[22] - '0' : -1;
    ASSERT_TRUE(thread >= 0 && thread < producers) << line;
    const int i = next[thread]++;
    ASSERT_EQ(line, mirt::stringify(tests::stamp, " t", thread, ": ", text_of(i)));
  }
  for (const int count : next) EXPECT_EQ(count, lines);
}

/// The content of "x.N" ... "x.1", "x.0", "x", as far as they are there, gaps or not.
std::string all_generations(const tests::scratch_dir& dir, int greatest) {
  std::string all;
  for (int i = greatest; i >= 0; --i) {
    const std::string path = dir / ("x." + std::to_string(i));
    if (fs::exists(path)) all += tests::content(path);
  }
  if (fs::exists(dir / "x")) all += tests::content(dir / "x");
  return all;
}

TEST(log_under_load, writes_every_line_once_and_in_each_threads_order) {
  constexpr int lines = 100'000;
  const tests::scratch_dir dir;
  tests::in_log_process([&] {
    to_file(dir / "x");
    produce(lines);
    ::_exit(0);
  });
  expect_all(tests::content(dir / "x"), lines);
}

TEST(log_under_load, loses_no_line_to_rotation) {
  constexpr int lines = 10'000;
  const tests::scratch_dir dir;
  tests::in_log_process([&] {
    to_file(dir / "x");
    errlog::set_log_rotate(1000, 10'000);
    produce(lines, 100);
    EXPECT_GT(g_renames, 0);
  });
  expect_all(all_generations(dir, 2000), lines);
}

TEST(log_under_load, loses_no_line_to_renames_that_fail_in_the_middle_of_a_rotation) {
  constexpr int lines = 5'000;
  const tests::scratch_dir dir;
  tests::in_log_process([&] {
    g_failing_rename = 7;
    to_file(dir / "x");
    errlog::set_log_rotate(1000, 10'000);
    produce(lines, 100);
    EXPECT_GT(g_renames, 7);
  });
  expect_all(all_generations(dir, 2000), lines);
}

TEST(log_under_load, loses_no_line_when_the_file_is_renamed_from_outside) {
  constexpr int lines = 20'000;
  const tests::scratch_dir dir;
  tests::in_log_process([&] {
    to_file(dir / "x");
    std::atomic<bool> done = false;
    std::thread mover([&] {
      for (int i = 500; i > 0 && !done;) {
        // Not an empty one: the writer may have made it, and not yet opened.
        std::error_code missing;
        const auto size = fs::file_size(dir / "x", missing);
        if (!missing && size != 0) fs::rename(dir / "x", dir / ("x." + std::to_string(i--)));
      }
    });
    produce(lines, 200);
    done = true;
    mover.join();
  });
  expect_all(all_generations(dir, 500), lines);
}

TEST(log_under_load, a_rename_that_fails_leaves_a_gap_that_the_next_rotation_closes) {
  const tests::scratch_dir dir;
  tests::make_file(dir / "x.0", "b");
  tests::make_file(dir / "x.1", "c");
  tests::in_log_process([&] {
    to_file(dir / "x");
    errlog::set_log_rotate(1, 5);
    g_failing_rename = 2;
    tests::write_batch({"one"});
    EXPECT_EQ(tests::written(dir.path()),
              (std::map<std::string, std::string>{
                  {"x", tests::stamped({"one"})}, {"x.0", "b"}, {"x.2", "c"}}));
    g_failing_rename = 0;
    tests::write_batch({"two"});
  });
  EXPECT_EQ(tests::written(dir.path()),
            (std::map<std::string, std::string>{
                {"x.0", tests::stamped({"one", "two"})}, {"x.1", "b"}, {"x.2", "c"}}));
}

TEST(log_at_exit, lets_the_process_end_while_it_writes) {
  for (int round = 0; round < 20; ++round) {
    const tests::scratch_dir dir;
    tests::in_log_process([&] {
      to_file(dir / "x");
      errlog::set_log_rotate(5000, 3);
      for (int i = 0; i < 2000; ++i) tests::write_line("line " + std::to_string(i));
      std::exit(0);
    });
  }
}

/// Logs when it is destroyed, after everything that was made in main or later.
struct last_words {
  ~last_words() {
    tests::write_line("the last words");
    errlog::flush();
  }
};

TEST(log_at_exit, still_takes_lines) {
  const tests::scratch_dir dir;
  tests::in_log_process([&] {
    static last_words words;
    to_file(dir / "x");
    tests::write_line("one");
    std::exit(0);
  });
  EXPECT_EQ(tests::content(dir / "x"), tests::stamped({"one", "the last words"}));
}

}  // namespace
