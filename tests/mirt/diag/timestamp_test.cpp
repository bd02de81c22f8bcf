// mirt/diag/errlog.h: the current time as the log stamps it.
#include <gtest/gtest.h>

#include <climits>
#include <initializer_list>
#include <stdexcept>

#include "mirt/diag/errlog.h"
#include "mirt/diag/exception.h"
#include "mirt/sys/clock.h"

namespace {

long long g_now = 0;

/// The stamp by a clock that stands at this millisecond.
std::string stamp_at(long long ms) {
  g_now = ms;
  mirt::x_absolute_time = [](void*) { return g_now; };
  return mirt::current_timestamp();
}

TEST(current_timestamp, is_the_time_in_utc) {
  const struct {
    long long ms;
    const char* stamp;
  } rows[] = {
      {0, "1970-01-01T00:00:00Z"},
      {999, "1970-01-01T00:00:00Z"},
      {1000, "1970-01-01T00:00:01Z"},
      {-999, "1970-01-01T00:00:00Z"},  // towards zero
      {-1000, "1969-12-31T23:59:59Z"},
      {1709647629000, "2024-03-05T14:07:09Z"},
      {951782400000, "2000-02-29T00:00:00Z"},
      {4107542399000, "2100-02-28T23:59:59Z"},
      {4107542400000, "2100-03-01T00:00:00Z"},
      {2147483648000, "2038-01-19T03:14:08Z"},
      {-30610224000000, "1000-01-01T00:00:00Z"},
      {253402300799999, "9999-12-31T23:59:59Z"},
  };
  for (const auto& row : rows) EXPECT_EQ(stamp_at(row.ms), row.stamp) << row.ms;
}

TEST(current_timestamp, that_has_not_20_characters_is_n) {
  for (const long long ms : std::initializer_list<long long>{
           -30610224001000, -62167219200000, -65291356800000, -93724128000000, 253402300800000,
           253402300801000, LLONG_MAX, LLONG_MIN}) {
    EXPECT_EQ(stamp_at(ms), "N") << ms;
  }
}

TEST(current_timestamp, goes_by_the_length_even_before_the_common_era) {
  EXPECT_EQ(stamp_at(-93676694400000), "-999-07-04T00:00:00Z");
  EXPECT_EQ(stamp_at(-65322892800000), "-100-01-01T00:00:00Z");
}

TEST(current_timestamp, without_a_time_is_n) {
  mirt::x_absolute_time = [](void*) -> long long {
    throw mirt::exception::function("clock_realtime");
  };
  EXPECT_EQ(mirt::current_timestamp(), "N");
  mirt::x_absolute_time = [](void*) -> long long { throw std::runtime_error("no clock"); };
  EXPECT_EQ(mirt::current_timestamp(), "N");
  mirt::x_absolute_time = [](void*) -> long long { throw 1; };
  EXPECT_EQ(mirt::current_timestamp(), "N");
}

TEST(current_timestamp, passes_no_argument_to_a_hosts_clock) {
  static void* seen;
  seen = &seen;
  mirt::x_absolute_time = [](void* argument) -> long long {
    seen = argument;
    return 0;
  };
  mirt::current_timestamp();
  EXPECT_EQ(seen, nullptr);
}

TEST(current_timestamp, is_of_now) {
  mirt::x_absolute_time = nullptr;
  const std::string before = stamp_at(mirt::absolute_system_time());
  mirt::x_absolute_time = nullptr;
  const std::string now = mirt::current_timestamp();
  const std::string after = stamp_at(mirt::absolute_system_time());
  EXPECT_LE(before, now);
  EXPECT_LE(now, after);
}

}  // namespace
