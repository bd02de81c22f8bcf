// mirt/diag/fmt_dbg.h: formatted messages in the log.
#include "mirt/diag/fmt_dbg.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>

#include "tests/support/hostile_locale.h"
#include "tests/support/log_lines.h"

namespace {

using mirt::fmt_dbg::fmt_verbose;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(fmt_verbose, writes_the_template_with_its_argument) {
  tests::in_log_process([] {
    tests::keep_lines();
    const std::string prefix = "X/";
    mirt::errlog log("core", true, &prefix);
    fmt_verbose(log, "want=16, got=%1%", -3);
    fmt_verbose(log, "failed: %1%, %1%", std::string("a\0b", 3));
    fmt_verbose(log, "100%% of %2%", std::string("surplus"));
    fmt_verbose(log, "", 1);
    EXPECT_THAT(tests::kept(),
                ElementsAre("X/core: want=16, got=-3", "X/core: failed: a`00b, a`00b",
                            "X/core: 100% of ", "X/core: "));
  });
}

TEST(fmt_verbose, writes_at_level_0) {
  for (const int limit : {-1, 0}) {
    SCOPED_TRACE(limit);
    tests::in_log_process([limit] {
      tests::keep_lines();
      mirt::errlog::set_log_level_limit(limit);
      mirt::errlog log("core", true, nullptr);
      fmt_verbose(log, "%1%", 1);
      EXPECT_EQ(tests::kept().size(), limit < 0 ? 0U : 1U);
    });
  }
}

TEST(fmt_verbose, writes_numbers_plainly_in_any_locale) {
  tests::in_log_process([] {
    const tests::hostile_locale hostile;
    tests::keep_lines();
    mirt::errlog log("", true, nullptr);
    fmt_verbose(log, "%1%", INT_MIN);
    fmt_verbose(log, "%1%", INT_MAX);
    EXPECT_THAT(tests::kept(), ElementsAre("-2147483648", "2147483647"));
  });
}

}  // namespace
