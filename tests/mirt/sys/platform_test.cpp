// What the system tells beyond POSIX.
#include "mirt/sys/platform.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

namespace {

TEST(executable_path, leads_to_the_running_program) {
  std::string path = "from before";
  ASSERT_TRUE(mirt::platform::executable_path(path));
  EXPECT_EQ(path.substr(path.rfind('/') + 1), "platform_test");
  EXPECT_EQ(path.find('\0'), std::string::npos);
  struct stat status;
  ASSERT_EQ(::stat(path.c_str(), &status), 0);
  EXPECT_NE(status.st_mode & S_IXUSR, 0U);
}

TEST(monotonic_time, never_goes_back) {
  timespec last = {};
  if (!mirt::platform::monotonic_time(last)) GTEST_SKIP() << "this system has no such clock";
  for (int i = 0; i < 1000; ++i) {
    timespec now = {0, -1};
    ASSERT_TRUE(mirt::platform::monotonic_time(now));
    ASSERT_GE(now.tv_nsec, 0);
    ASSERT_LT(now.tv_nsec, 1000000000);
    ASSERT_TRUE(now.tv_sec > last.tv_sec ||
                (now.tv_sec == last.tv_sec && now.tv_nsec >= last.tv_nsec));
    last = now;
  }
}

}  // namespace
