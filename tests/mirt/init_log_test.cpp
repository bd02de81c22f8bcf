// What start-up has to do with the log: the record of a host table of a bad version, and a host's
// log filter.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <vector>

#include "mirt/init.h"
#include "mirt/sys/thread.h"
#include "tests/support/error_of.h"
#include "tests/support/log_lines.h"

namespace {

using testing::ElementsAre;
using testing::MatchesRegex;
using tests::error_of;
using tests::stderr_of;
using tests::write_batch;

std::string start(int version, void (*filter)(const char*, std::size_t) = nullptr) {
  mirt_api_t table{};
  table.version = version;
  table.x_absolute_time = mirt::x_absolute_time;
  table.log_filter = filter;
  return error_of([&table] { new mirt::init(&table); });
}

const std::string record = "mirt::init: invalid api provided (want=16, got=";

TEST(bad_version, leaves_a_record_on_standard_error_although_nothing_was_started) {
  std::vector<int> versions = {std::numeric_limits<int>::min(), -2};
  for (int version = -1; version <= 15; ++version) versions.push_back(version);
  for (const int version : versions) {
    SCOPED_TRACE(version);
    EXPECT_EQ(stderr_of([version] {
                tests::stop_clock();
                EXPECT_EQ(start(version), "mirt-rpt api missing");
              }),
              tests::stamp + " " + record + std::to_string(version) + ")\n");
  }
}

TEST(bad_version, is_stamped_by_the_runtimes_own_clock_if_the_host_has_none) {
  EXPECT_THAT(stderr_of([] { start(0); }),
              MatchesRegex("[0-9]+-[0-9][0-9]-[0-9][0-9]T[0-9][0-9]:[0-9][0-9]:[0-9][0-9]Z "
                           "mirt::init: invalid api provided \\(want=16, got=0\\)\n"));
}

TEST(bad_version, goes_through_the_logs_settings) {
  EXPECT_EQ(stderr_of([] {
              tests::keep_lines();
              EXPECT_EQ(start(15), "mirt-rpt api missing");
              EXPECT_THAT(tests::kept(), ElementsAre(record + "15)"));
            }),
            "");
}

TEST(good_version, leaves_no_record) {
  for (const int version : {16, 23}) {
    EXPECT_EQ(stderr_of([version] { EXPECT_EQ(start(version), "no exception"); }), "");
  }
  EXPECT_EQ(stderr_of([] { new mirt::init(nullptr); }), "");
}

std::vector<std::string> g_filtered;

void host_filter(const char* text, std::size_t length) {
  g_filtered.emplace_back(text, length);
}

TEST(host_log_filter, receives_every_line_from_16_on_and_the_runtime_writes_none) {
  for (int version = 16; version <= 24; ++version) {
    SCOPED_TRACE(version);
    EXPECT_EQ(stderr_of([version] {
                ASSERT_EQ(start(version, host_filter), "no exception");
                mirt::errlog::set_log_tee([](const char*, std::size_t) { ADD_FAILURE(); });
                const std::string prefix = "X/";
                mirt::errlog("core", true, &prefix).log(0, "a\nb", 3);
                mirt::errlog("core", true, nullptr).log(1, "suppressed", 10);
                write_batch({"two"});
                EXPECT_THAT(g_filtered, ElementsAre("X/core: a\nb", "two"));
                EXPECT_EQ(mirt::g_thread_count, 0) << "no writer was needed";
              }),
              "");
  }
}

TEST(host_log_filter, is_not_registered_below_16) {
  EXPECT_EQ(stderr_of([] {
              tests::stop_clock();
              start(15, host_filter);
              write_batch({"two"});
              EXPECT_THAT(g_filtered, testing::IsEmpty());
            }),
            tests::stamped({record + "15)", "two"}));
}

TEST(host_log_filter, that_is_null_is_not_registered) {
  for (const int version : {16, 21, 22, 23}) {
    EXPECT_EQ(stderr_of([version] {
                tests::stop_clock();
                ASSERT_EQ(start(version), "no exception");
                write_batch({"one"});
              }),
              tests::stamped({"one"}));
  }
}

TEST(host_log_filter, that_is_null_leaves_a_filter_that_was_set_before) {
  EXPECT_EQ(stderr_of([] {
              mirt::errlog::set_log_filter([](const char* text, std::size_t length) {
                host_filter(text, length);
                return 0;
              });
              ASSERT_EQ(start(23), "no exception");
              write_batch({"one"});
              EXPECT_THAT(g_filtered, ElementsAre("one"));
            }),
            "");
}

TEST(no_host, has_a_log_on_standard_error) {
  EXPECT_EQ(stderr_of([] {
              tests::stop_clock();
              new mirt::init(nullptr);
              write_batch({"one"});
            }),
            tests::stamped({"one"}));
}

TEST(threads_at_start_up, count_from_0_with_a_counter_of_failed_starts) {
  tests::in_log_process([] {
    new mirt::init(nullptr);
    EXPECT_EQ(mirt::g_thread_count, 0);
    EXPECT_EQ(mirt::g_thread_peak, 0);
    EXPECT_NE(mirt::m_threads_mtx, nullptr);
    ASSERT_NE(mirt::thread_startup_error, nullptr);
    EXPECT_EQ(*mirt::thread_startup_error, 0U);
  });
}

TEST(threads_at_start_up, count_failed_starts_where_the_host_does) {
  tests::in_log_process([] {
    static std::uint32_t hosts = 5;
    mirt_api_t table{};
    table.version = 16;
    table.thread_startup_error = &hosts;
    new mirt::init(&table);
    EXPECT_EQ(mirt::thread_startup_error, &hosts);
    EXPECT_EQ(hosts, 5U);
  });
}

}  // namespace
