// mirt/diag/errlog.h: what becomes a line, who sees it on its way, and the stamp.
#include "mirt/diag/errlog.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <climits>
#include <cstring>
#include <stdexcept>
#include <thread>
#include <type_traits>

#include "mirt/diag/exception.h"
#include "mirt/sys/clock.h"
#include "mirt/sys/platform.h"
#include "mirt/sys/thread.h"
#include "tests/support/hostile_locale.h"
#include "tests/support/log_lines.h"

namespace {

using mirt::errlog;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using tests::in_log_process;
using tests::keep_lines;
using tests::kept;
using tests::write_line;

static_assert(std::is_standard_layout_v<errlog> && !std::is_polymorphic_v<errlog>);
static_assert(sizeof(errlog) == 3 * sizeof(void*));

TEST(errlog, holds_name_flag_and_prefix_in_this_order) {
  const std::string prefix = "X/";
  const char* const name = "core";
  const errlog log(name, true, &prefix);
  struct {
    const char* name;
    bool flag;
    const std::string* prefix;
  } fields;
  std::memcpy(&fields, static_cast<const void*>(&log), sizeof fields);
  EXPECT_EQ(fields.name, name);
  EXPECT_TRUE(fields.flag);
  EXPECT_EQ(fields.prefix, &prefix);
}

TEST(errlog, puts_prefix_and_name_in_front_of_the_text) {
  in_log_process([] {
    keep_lines();
    const std::string prefix = "X/", no_prefix;
    errlog("core", true, nullptr).log(0, "boom", 4);
    errlog("core", false, &prefix).log(0, "boom", 4);
    errlog("core", true, &no_prefix).log(0, "boom", 4);
    errlog("core", true, nullptr).log(0, "", 0);
    errlog("", true, nullptr).log(0, "bare", 4);
    errlog(nullptr, true, nullptr).log(0, "bare", 4);
    errlog("", true, &prefix).log(0, "no name, no prefix", 18);
    errlog(nullptr, true, &prefix).log(0, "no name, no prefix", 18);
    errlog("", true, nullptr).log(0, "", 0);
    errlog("", true, nullptr).log(0, "only this, not that", 9);
    EXPECT_THAT(kept(),
                ElementsAre("core: boom", "X/core: boom", "core: boom", "core: ", "bare", "bare",
                            "no name, no prefix", "no name, no prefix", "", "only this"));
  });
}

TEST(errlog, drops_levels_above_the_limit) {
  const struct {
    int limit, level;
    bool is_written;
  } rows[] = {{0, -1, true},           {0, 0, true},   {0, 1, false},      {0, INT_MIN, true},
              {0, INT_MAX, false},     {1, 0, true},   {1, 1, true},       {1, 2, false},
              {-1, -1, true},          {-1, 0, false}, {INT_MAX, 7, true}, {INT_MIN, -7, false},
              {INT_MIN, INT_MIN, true}};
  for (const auto& row : rows) {
    SCOPED_TRACE(&row - rows);
    in_log_process([&row] {
      keep_lines();
      if (row.limit != 0) errlog::set_log_level_limit(row.limit);
      errlog("core", true, nullptr).log(row.level, "boom", 4);
      EXPECT_THAT(kept(), SizeIs(row.is_written ? 1 : 0));
    });
  }
}

TEST(errlog, tells_where_a_line_comes_from_by_the_report_level) {
  in_log_process([] {
    keep_lines();
    for (const int level : {0, 1, 2, 3, -1}) {
      g_run_report_level = level;
      errlog("core", true, nullptr).log(0, "boom", 4);
    }
    const std::string process = std::to_string(::getpid());
    const std::string thread = std::to_string(mirt::platform::thread_number());
    EXPECT_THAT(kept(), ElementsAre("core: boom", "[" + process + "] core: boom",
                                    "[" + process + ":" + thread + "] core: boom", "core: boom",
                                    "core: boom"));
  });
}

TEST(errlog, names_the_thread_that_logs) {
  in_log_process([] {
    keep_lines();
    g_run_report_level = 2;
    std::string thread;
    std::thread([&thread] {
      thread = std::to_string(mirt::platform::thread_number());
      write_line("from there");
    }).join();
    EXPECT_THAT(kept(),
                ElementsAre("[" + std::to_string(::getpid()) + ":" + thread + "] from there"));
  });
}

// Lines that pass a filter or a tee, in order. Requires: one thread.
std::vector<std::string> g_seen;

int pass(const char* text, std::size_t length) {
  g_seen.emplace_back("filter " + std::string(text, length));
  return 1;
}
int drop(const char* text, std::size_t length) {
  pass(text, length);
  return 0;
}
void tee(const char* text, std::size_t length) {
  g_seen.emplace_back("tee " + std::string(text, length));
}

TEST(errlog, shows_a_line_to_the_filter_and_then_to_the_tee) {
  in_log_process([] {
    keep_lines();
    g_run_report_level = 1;
    errlog::set_log_filter(pass);
    errlog::set_log_tee(tee);
    errlog("core", true, nullptr).log(0, "a\n`b", 4);
    EXPECT_THAT(g_seen, ElementsAre("filter core: a\n`b", "tee core: a\n`b"));
    EXPECT_THAT(kept(), ElementsAre("[" + std::to_string(::getpid()) + "] core: a`0a`60b"));
  });
}

TEST(errlog, a_filter_that_returns_0_keeps_a_line_from_queue_and_tee) {
  in_log_process([] {
    keep_lines();
    errlog::set_log_filter(drop);
    errlog::set_log_tee(tee);
    write_line("gone");
    EXPECT_THAT(kept(), IsEmpty());
    EXPECT_THAT(g_seen, ElementsAre("filter gone"));
    EXPECT_EQ(mirt::g_thread_count, -666) << "no writer was needed";
  });
}

TEST(errlog, any_other_result_of_a_filter_lets_a_line_pass) {
  in_log_process([] {
    keep_lines();
    for (const auto filter : {+[](const char*, std::size_t) { return -1; },
                              +[](const char*, std::size_t) { return INT_MIN; },
                              +[](const char*, std::size_t) { return 2; }}) {
      errlog::set_log_filter(filter);
      write_line("there");
    }
    EXPECT_THAT(kept(), SizeIs(3));
  });
}

TEST(errlog, without_a_filter_lets_every_line_pass) {
  in_log_process([] {
    keep_lines();
    errlog::set_log_filter(drop);
    errlog::set_log_filter(nullptr);
    write_line("there");
    EXPECT_THAT(kept(), ElementsAre("there"));
  });
}

TEST(errlog, shows_a_suppressed_level_to_nobody) {
  in_log_process([] {
    errlog::set_log_filter(pass);
    errlog::set_log_tee(tee);
    errlog("core", true, nullptr).log(1, "boom", 4);
    errlog::flush();
    EXPECT_THAT(g_seen, IsEmpty());
    EXPECT_EQ(mirt::g_thread_count, -666) << "no writer was needed";
  });
}

TEST(errlog, calls_the_tee_on_the_thread_that_logs) {
  in_log_process([] {
    static std::atomic<std::uint64_t> by = 0;
    keep_lines();
    errlog::set_log_tee([](const char*, std::size_t) { by = mirt::get_current_thread_id(); });
    write_line("here");
    EXPECT_EQ(by, mirt::get_current_thread_id());
  });
}

TEST(errlog, swallows_what_a_tee_throws) {
  in_log_process([] {
    keep_lines();
    errlog::set_log_tee([](const char*, std::size_t) { throw std::runtime_error("tee"); });
    EXPECT_NO_THROW(write_line("one"));
    errlog::set_log_tee([](const char*, std::size_t) { throw 1; });
    EXPECT_NO_THROW(write_line("two"));
    errlog::set_log_tee(tee);
    write_line("three");
    EXPECT_THAT(kept(), ElementsAre("one", "two", "three"));
    EXPECT_THAT(g_seen, ElementsAre("tee three")) << "the tee goes on after it threw";
  });
}

TEST(errlog, shows_a_line_from_within_a_filter_to_nobody_but_writes_it) {
  in_log_process([] {
    keep_lines();
    errlog::set_log_filter([](const char* text, std::size_t length) {
      pass(text, length);
      write_line("from the filter");
      return 1;
    });
    errlog::set_log_tee(tee);
    write_line("one");
    write_line("two");
    EXPECT_THAT(g_seen, ElementsAre("filter one", "tee one", "filter two", "tee two"));
    EXPECT_THAT(kept(), ElementsAre("from the filter", "one", "from the filter", "two"));
  });
}

TEST(errlog, shows_a_line_from_within_a_tee_to_nobody_but_writes_it) {
  in_log_process([] {
    keep_lines();
    errlog::set_log_filter(pass);
    errlog::set_log_tee([](const char* text, std::size_t length) {
      tee(text, length);
      write_line("from the tee");
    });
    write_line("one");
    write_line("two");
    EXPECT_THAT(g_seen, ElementsAre("filter one", "tee one", "filter two", "tee two"));
    EXPECT_THAT(kept(), ElementsAre("one", "from the tee", "two", "from the tee"));
  });
}

TEST(errlog, writes_digits_alike_in_any_locale) {
  const std::string text = tests::stderr_of([] {
    const tests::hostile_locale hostile;
    tests::stop_clock();
    g_run_report_level = 1;
    tests::write_batch({"a line of 17 bytes", "a line of 17 bytes"});
    EXPECT_EQ(mirt::current_timestamp(), tests::stamp);
  });
  EXPECT_THAT(text, testing::MatchesRegex("(2024-03-05T14:07:09Z \\[[0-9]+\\] a line of 17 bytes"
                                          "\n)+"));
}

TEST(flush, before_the_first_line_returns_at_once_and_starts_nothing) {
  in_log_process([] {
    errlog::flush();
    EXPECT_EQ(mirt::g_thread_count, -666);
  });
}

TEST(flush, may_be_called_from_many_threads) {
  in_log_process([] {
    keep_lines();
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
      threads.emplace_back([] {
        for (int line = 0; line < 100; ++line) {
          write_line("there");
          errlog::flush();
        }
      });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_THAT(kept(), SizeIs(800));
  });
}

TEST(errlog, may_write_its_first_lines_from_many_threads_at_once) {
  in_log_process([] {
    keep_lines();
    std::atomic<int> ready = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
      threads.emplace_back([&ready] {
        for (++ready; ready != 8;) {
        }
        write_line("there");
      });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_THAT(kept(), SizeIs(8));
    mirt::rec_lock guard(mirt::m_threads_mtx);
    EXPECT_EQ(mirt::g_thread_count, -665) << "one writer";
  });
}

TEST(init_errlog, starts_nothing) {
  in_log_process([] {
    mirt::init_errlog();
    EXPECT_EQ(mirt::g_thread_count, -666);
  });
}

}  // namespace
