// What the configuration store logs when a value's mode cannot be set.
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/stat.h>

#include <atomic>
#include <cerrno>
#include <filesystem>

#include "tests/support/c_function.h"
#include "tests/support/log_lines.h"
#include "tests/support/private_etc.h"
#include "tests/support/scratch_home.h"
#include "xstd/config.h"

namespace {

std::atomic<int> g_mode_error = 0;  // chmod fails with this number
std::atomic<int> g_mode_calls = 0;
std::atomic<bool> g_no_threads = false;

}  // namespace

extern "C" {

int chmod(const char* path, mode_t mode) noexcept {
  ++g_mode_calls;
  if (g_mode_error != 0) {
    errno = g_mode_error;
    return -1;
  }
  return tests::next<int(const char*, mode_t)>("chmod")(path, mode);
}

int pthread_create(pthread_t* thread, const pthread_attr_t* attr, void* (*routine)(void*),
                   void* argument) noexcept {
  if (g_no_threads) return EAGAIN;
  return tests::next<int(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*)>(
      "pthread_create")(thread, attr, routine, argument);
}

}  // extern "C"

namespace {

/// What the store logs while it stores this.
std::string log_of(xstd::StorageLocation location, const std::string& name,
                   const std::string& value, bool memory_only = false) {
  return tests::stderr_of([&] {
    tests::stop_clock();
    xstd::init_storage();
    g_mode_calls = 0;
    xstd::set_config_string_ex(location, name, value, memory_only);
    mirt::errlog::flush();
    EXPECT_EQ(xstd::get_config_string_ex(location, name), value);
  });
}

TEST(set_config_string_ex, logs_that_a_users_value_kept_its_mode) {
  const struct {
    int error;
    const char* text;
  } rows[] = {{EPERM, "Operation not permitted"},
              {EROFS, "Read-only file system"},
              {ENOENT, "No such file or directory"}};
  for (const auto& row : rows) {
    const tests::scratch_home home;
    g_mode_error = row.error;
    EXPECT_EQ(log_of(xstd::per_user, "a/b", "value"),
              tests::stamp +
                  " set_config_string_ex: failed to chmod on sessions lock: " + row.text + "\n");
    EXPECT_EQ(tests::content(home / ".tarnwick/a/b"), "value") << "it is stored all the same";
  }
}

TEST(set_config_string_ex, logs_nothing_when_the_mode_is_set) {
  const tests::scratch_home home;
  g_mode_error = 0;
  EXPECT_EQ(log_of(xstd::per_user, "a", "value"), "");
}

TEST(set_config_string_ex, sets_and_logs_no_mode_where_nothing_was_written) {
  const tests::scratch_home home;
  g_mode_error = EPERM;
  EXPECT_EQ(log_of(xstd::per_user, "a", ""), "");
  EXPECT_EQ(log_of(xstd::per_user, "a", "value", true), "");
  std::filesystem::create_directories(home / ".tarnwick/a/b");
  EXPECT_EQ(tests::stderr_of([] {
              xstd::set_config_string_ex(xstd::per_user, "a", "value", false);
              mirt::errlog::flush();
              EXPECT_EQ(g_mode_calls, 0);
            }),
            "");
}

TEST(set_config_string_ex, sets_and_logs_no_mode_of_a_machine_wide_value) {
  tests::in_private_etc([] {
    g_mode_error = EPERM;
    EXPECT_EQ(tests::stderr_of([] {
                xstd::set_config_string_ex(xstd::system_wide, "a", "value", false);
                mirt::errlog::flush();
                EXPECT_EQ(g_mode_calls, 0);
              }),
              "");
    EXPECT_EQ(tests::content("/etc/tarnwick/a"), "value");
  });
}

TEST(set_config_string_ex, survives_that_there_is_no_log_either) {
  const tests::scratch_home home;
  g_mode_error = EPERM;
  g_no_threads = true;
  EXPECT_EQ(log_of(xstd::per_user, "a", "value"), "");
  g_no_threads = false;
  EXPECT_EQ(tests::content(home / ".tarnwick/a"), "value");
}

}  // namespace
