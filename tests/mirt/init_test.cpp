// Start-up with and without a host's table. It happens once per process, so each case has a
// process of its own.
#include "mirt/init.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <time.h>
#include <unistd.h>

#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "mirt/sys/clock.h"
#include "mirt/sys/lock.h"
#include "mirt/sys/random.h"
#include "mirt/sys/thread.h"
#include "mirt/sys/xfile.h"
#include "tests/support/error_of.h"
#include "tests/support/new_process.h"

namespace {

using ::testing::ElementsAre;
using tests::error_of;
using tests::in_new_process;

// The host's end of the table. What start-up or a logged line may call does what it should.
int g_locks = 0;
std::vector<std::string> g_filtered;
std::uint32_t g_startup_errors = 0;
void* g_operations[29];
char g_marks[35];  // what stands behind the fields that nothing follows, by number

void host_lock() {
  ++g_locks;
}
void host_unlock() {
  --g_locks;
}
long long host_relative_time() {
  return 6;
}
long long host_absolute_time(void*) {
  return 7;
}
long long host_absolute_system_time() {
  return 28;
}
void host_log_filter(const char* text, std::size_t length) {
  g_filtered.emplace_back(text, length);
}
void host_log_line(const char* line, std::size_t, std::size_t, void (*release)(void*)) {
  release(const_cast<char*>(line));
}
void host_file_access(const char*, std::size_t, mirt::file_access_t) {}
mirt::file_access_hook g_file_access_slot = host_file_access;

struct field {
  int number;        // counted from 1, the version itself
  int from_version;  // -1: never read
  void* value;       // what the host puts there
  void* global;      // what it is copied to
};

template <class F>
void* address(F* function) {
  return reinterpret_cast<void*>(function);
}

/// A field that the runtime only keeps.
field kept(int number, int from_version, void*& global) {
  return {number, from_version, &g_marks[number], &global};
}

/// The pointer fields in the order of the table.
const field g_fields[] = {
    {2, 0, address(host_lock), &mirt::mirt_lock},
    {3, 0, address(host_unlock), &mirt::mirt_unlock},
    {4, -1, &g_marks[4], nullptr},
    {5, 0, g_operations, nullptr},
    {6, 0, address(host_relative_time), &mirt::x_relative_time},
    {7, 0, address(host_absolute_time), &mirt::x_absolute_time},
    kept(8, 0, mirt::x_schedule_task),
    kept(9, 0, mirt::x_cancel_task),
    kept(10, 0, mirt::x_make_socket),
    kept(11, 0, mirt::x_make_forbidden_socket),
    kept(12, 0, mirt::x_remove_forbidden_socket),
    kept(13, 0, mirt::x_drop_dead),
    kept(14, 0, mirt::x_rand),
    {15, 0, &g_startup_errors, &mirt::thread_startup_error},
    kept(16, 1, mirt::x_enable_debug_dump),
    {17, -1, &g_marks[17], nullptr},
    kept(18, 4, mirt::x_make_socket2),
    kept(19, 4, mirt::x_make_forbidden_socket2),
    kept(20, 5, mirt::x_make_socket3),
    kept(21, 6, mirt::x_final_crash_function),
    kept(22, 7, mirt::x_schedule_task_executor),
    kept(23, 8, mirt::x_schedule_task2),
    kept(24, 8, mirt::x_schedule_task_executor2),
    kept(25, 9, mirt::x_tztime_2_time_t),
    kept(26, 9, mirt::x_time_t_2_tztime),
    kept(27, 10, mirt::x_mirt_lock_forbidden),
    {28, 15, address(host_absolute_system_time), &mirt::x_absolute_system_time},
    {29, 16, address(host_log_filter), &mirt::init::log_filter_},
    {30, -1, &g_marks[30], nullptr},
    kept(31, 20, mirt::x_scheduler_pool),
    kept(32, 21, mirt::x_errlog_wait_for_flush),
    {33, 22, address(host_log_line), &mirt::x_errlog_log_line_direct},
    {34, 23, &g_file_access_slot, &mirt::x_record_file_access},
};
static_assert(std::size(g_fields) == 33);

void* word_at(const void* place) {
  void* word;
  std::memcpy(&word, place, sizeof word);
  return word;
}

/// A table as a host of that version builds it, byte by byte: it ends behind the last field that
/// the version knows. It can only be read, and not a byte beyond its end.
class host_table {
 public:
  explicit host_table(int version, bool all_null = false) {
    std::string bytes(reinterpret_cast<const char*>(&version), 4);
    std::size_t end = bytes.size();
    for (const field& f : g_fields) {
      const void* const value = all_null ? nullptr : f.value;
      bytes.append(reinterpret_cast<const char*>(&value), sizeof value);
      if (f.from_version >= 0 && f.from_version <= version) end = bytes.size();
    }
    const auto page = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
    char* const pages = static_cast<char*>(
        ::mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANON, -1, 0));
    begin_ = pages + page - end;
    std::memcpy(begin_, bytes.data(), end);
    ::mprotect(pages, page, PROT_READ);
    ::mprotect(pages + page, page, PROT_NONE);
  }

  mirt_api_t* get() const { return reinterpret_cast<mirt_api_t*>(begin_); }

 private:
  char* begin_;  // its process does not live long
};

std::string start(mirt_api_t* api) {
  return error_of([api] { new mirt::init(api); });
}

const char* const already = "mirt-rpt already initialized";
const char* const missing = "mirt-rpt api missing";

/// Whether the services that leave a trace were started.
void expect_services(bool started) {
  EXPECT_EQ(mirt::g_random_state != nullptr, started);
  EXPECT_EQ(mirt::crc32_table[1], started ? 0x04C11DB7U : 0U);
}

class host_of_version : public ::testing::TestWithParam<int> {};

INSTANTIATE_TEST_SUITE_P(each, host_of_version,
                         ::testing::Values(std::numeric_limits<int>::min(), -2, -1, 0, 1, 2, 3, 4,
                                           5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19,
                                           20, 21, 22, 23, 24, 25, std::numeric_limits<int>::max()),
                         [](const auto& row) {
                           return (row.param < 0 ? "minus_" : "") +
                                  std::to_string(std::abs(static_cast<long long>(row.param)));
                         });

TEST_P(host_of_version, fills_exactly_the_fields_that_it_reaches) {
  in_new_process([] {
    const int version = GetParam();
    std::vector<void*> before;
    for (const field& f : g_fields) before.push_back(f.global ? word_at(f.global) : nullptr);
    const host_table table(version);
    start(table.get());
    for (const field& f : g_fields) {
      SCOPED_TRACE(f.number);
      if (f.global == nullptr) continue;
      const bool reached = f.from_version <= version;
      if (f.number == 33 && version >= 16 && !reached) continue;  // the adapter, see below
      EXPECT_EQ(word_at(f.global), reached ? f.value : before[&f - g_fields]);
    }
  });
}

TEST_P(host_of_version, starts_the_services_from_16_on) {
  in_new_process([] {
    const host_table table(GetParam());
    EXPECT_FALSE(mirt::init::m_started);
    expect_services(false);
    EXPECT_EQ(start(table.get()), GetParam() >= 16 ? "no exception" : missing);
    expect_services(GetParam() >= 16);
    EXPECT_TRUE(mirt::init::m_started);
  });
}

TEST_P(host_of_version, cannot_be_followed_by_another_start) {
  in_new_process([] {
    const host_table table(GetParam());
    const host_table good(23);
    start(table.get());
    EXPECT_EQ(start(table.get()), already);
    EXPECT_EQ(start(good.get()), already);
    EXPECT_EQ(start(nullptr), already);
    EXPECT_TRUE(mirt::init::m_started);
    expect_services(GetParam() >= 16);
  });
}

TEST_P(host_of_version, gets_the_adapter_from_16_to_21_and_its_own_line_writer_from_22_on) {
  in_new_process([] {
    const host_table table(GetParam());
    start(table.get());
    const bool adapter = GetParam() >= 16 && GetParam() <= 21;
    EXPECT_EQ(mirt::x_errlog_log_line_direct, adapter ? mirt::init::compat_errlog_log_line_direct
                                              : GetParam() >= 22 ? host_log_line
                                                                 : nullptr);
    EXPECT_EQ(mirt::init::compat_errlog_log_line_direct_, adapter ? host_log_filter : nullptr);
    EXPECT_EQ(mirt::init::log_filter_, GetParam() >= 16 ? host_log_filter : nullptr);
  });
}

TEST_P(host_of_version, may_leave_every_field_null) {
  in_new_process([] {
    const host_table table(GetParam(), true);
    EXPECT_EQ(start(table.get()), GetParam() >= 16 ? "no exception" : missing);
    for (const field& f : g_fields) {
      SCOPED_TRACE(f.number);
      // The first two then get the runtime's own lock, the counter may get one as well.
      const bool own = f.number == 2 || f.number == 3 || f.number == 15 || f.number == 33;
      if (f.global == nullptr || own || f.from_version > GetParam()) continue;
      EXPECT_EQ(word_at(f.global), nullptr);
    }
    EXPECT_EQ(mirt::init::compat_errlog_log_line_direct_, nullptr);
    EXPECT_EQ(mirt::x_errlog_log_line_direct, GetParam() >= 16 && GetParam() <= 21
                                                  ? mirt::init::compat_errlog_log_line_direct
                                                  : nullptr);
    EXPECT_NO_THROW(mirt::record_file_access("/x", mirt::file_access_read));
    EXPECT_EQ(mirt::mirt_lock != nullptr, GetParam() >= 16);
    EXPECT_EQ(mirt::mirt_unlock != nullptr, GetParam() >= 16);
  });
}

TEST(host, brings_the_lock_that_the_runtime_then_uses) {
  in_new_process([] {
    const host_table table(16);
    ASSERT_EQ(start(table.get()), "no exception");
    EXPECT_EQ(mirt::g_global_mutex, nullptr);
    mirt::mirt_lock();
    EXPECT_EQ(g_locks, 1);
    mirt::mirt_unlock();
    EXPECT_EQ(g_locks, 0);
  });
}

TEST(host, brings_the_clocks_that_the_runtime_then_uses) {
  in_new_process([] {
    const host_table table(16);
    ASSERT_EQ(start(table.get()), "no exception");
    EXPECT_EQ(mirt::relative_time(), 6);
    EXPECT_EQ(mirt::absolute_time(nullptr), 7);
    EXPECT_EQ(mirt::absolute_system_time(), 28);
  });
}

TEST(host, below_16_leaves_what_it_filled_in) {
  in_new_process([] {
    const host_table table(0);
    EXPECT_EQ(start(table.get()), missing);
    EXPECT_EQ(mirt::mirt_lock, host_lock);
    EXPECT_EQ(mirt::relative_time(), 6);
    EXPECT_EQ(mirt::g_global_mutex, nullptr);
  });
}

int g_accesses = 0;

TEST(host, sees_file_accesses_through_its_slot_from_23_on) {
  for (const int version : {22, 23, 24}) {
    SCOPED_TRACE(version);
    in_new_process([version] {
      const host_table table(version);
      ASSERT_EQ(start(table.get()), "no exception");
      g_accesses = 0;
      g_file_access_slot = [](const char*, std::size_t, mirt::file_access_t) { ++g_accesses; };
      mirt::record_file_access("/x", mirt::file_access_read);
      EXPECT_EQ(g_accesses, version >= 23 ? 1 : 0);
    });
  }
}

TEST(no_host, gets_the_runtimes_own_services) {
  in_new_process([] {
    EXPECT_FALSE(mirt::init::m_started);
    EXPECT_EQ(start(nullptr), "no exception");
    EXPECT_TRUE(mirt::init::m_started);
    expect_services(true);
    ASSERT_NE(mirt::g_global_mutex, nullptr);
    EXPECT_EQ(mirt::init::log_filter_, nullptr);
    EXPECT_EQ(mirt::init::compat_errlog_log_line_direct_, nullptr);
    EXPECT_EQ(mirt::x_errlog_log_line_direct, nullptr);
    EXPECT_EQ(mirt::x_relative_time, nullptr);
    mirt::mirt_lock();
    mirt::mirt_unlock();
  });
}

TEST(no_host, gets_the_time_zone_of_its_environment) {
  in_new_process([] {
    ::setenv("TZ", "ABC-5", 1);
    start(nullptr);
    EXPECT_STREQ(::tzname[0], "ABC");
  });
}

TEST(no_host, has_a_file_access_slot_that_holds_null) {
  in_new_process([] {
    start(nullptr);
    ASSERT_NE(mirt::x_record_file_access, nullptr);
    EXPECT_EQ(*mirt::x_record_file_access, nullptr);
  });
}

TEST(no_host, cannot_be_followed_by_another_start) {
  in_new_process([] {
    start(nullptr);
    EXPECT_EQ(start(nullptr), already);
    const host_table table(23);
    EXPECT_EQ(start(table.get()), already);
    EXPECT_EQ(mirt::init::log_filter_, nullptr);
  });
}

TEST(log_filter, hands_on_and_always_returns_0) {
  in_new_process([] {
    mirt::init::log_filter_ = host_log_filter;
    EXPECT_EQ(mirt::init::log_filter("a line, and more", 6), 0);
    EXPECT_EQ(mirt::init::log_filter("", 0), 0);
    EXPECT_THAT(g_filtered, ElementsAre("a line", ""));
  });
}

/// What the filter and the release of the adapter's line saw, in order.
std::vector<std::string> g_seen;
const char* g_line = nullptr;

void record_release(void* line) {
  g_seen.push_back(line == g_line ? "released" : "released something else");
}

std::vector<std::string> adapt(const std::string& line, std::size_t header_length) {
  g_seen.clear();
  const std::vector<char> unterminated(line.begin(), line.end());
  g_line = unterminated.data();
  mirt::init::compat_errlog_log_line_direct(g_line, line.size(), header_length, record_release);
  return g_seen;
}

class log_line_adapter : public ::testing::Test {
 protected:
  void SetUp() override {
    mirt::init::compat_errlog_log_line_direct_ = [](const char* text, std::size_t length) {
      g_seen.emplace_back(text, length);
    };
  }
  void TearDown() override { mirt::init::compat_errlog_log_line_direct_ = nullptr; }
};

TEST_F(log_line_adapter, drops_the_header_and_trailing_line_breaks_then_releases_the_line) {
  const struct {
    std::string line;
    std::size_t header_length;
    std::string text;
  } rows[] = {
      {"HDR payload\r\n", 3, "payload"},
      {"HDR payload", 3, "payload"},
      {"HDR payload\n\r\n\n\r", 3, "payload"},
      {"HDR two\nlines\n", 3, "two\nlines"},
      {"HDR \r\npayload ", 3, "\r\npayload "},
      {" payload", 0, "payload"},
      {"HDR?payload", 3, "payload"},  // whatever stands behind the header goes with it
      {std::string("HDR a\0b\n", 8), 3, std::string("a\0b", 3)},
      {"HDR \r\n", 3, ""},
      {"abcd", 2, "d"},     // one byte is left
      {"abcd", 3, "abcd"},  // none would be: the whole line
      {"abcd", 4, "abcd"},
      {"abcd", 5, "abcd"},
      {"abcd\r\n", 6, "abcd"},
      {"abcd\n", std::numeric_limits<std::size_t>::max(), "abcd"},
      {"abcd\n", std::numeric_limits<std::size_t>::max() - 1, "abcd"},
      {"\n", 0, ""},
      {"\r\n", 0, ""},
      {"\r\n", 9, ""},
      {"", 0, ""},
      {"", 3, ""},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(&row - rows);
    EXPECT_THAT(adapt(row.line, row.header_length), ElementsAre(row.text, "released"));
  }
}

TEST_F(log_line_adapter, without_a_filter_only_releases_the_line) {
  mirt::init::compat_errlog_log_line_direct_ = nullptr;
  EXPECT_THAT(adapt("HDR payload\r\n", 3), ElementsAre("released"));
}

}  // namespace
