// The attributes of threads: the stack's ceiling, and a system that gives none. No thread is
// started here: the sanitizers' own threads would ask the stand-ins.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <cerrno>
#include <cstdint>
#include <vector>

#include "mirt/diag/errlog.h"
#include "mirt/sys/thread.h"
#include "tests/support/c_function.h"
#include "tests/support/error_of.h"
#include "tests/support/log_lines.h"

namespace {

size_t g_default_stack = 0;        // while set, it stands in for the system's
std::vector<size_t> g_stacks_set;  // while it is set

}  // namespace

using tests::failing;

extern "C" {

int pthread_attr_init(pthread_attr_t* attr) noexcept {
  if (const int error = failing::now("pthread_attr_init")) return error;
  return tests::next<int(pthread_attr_t*)>("pthread_attr_init")(attr);
}

int pthread_attr_setdetachstate(pthread_attr_t* attr, int state) noexcept {
  if (const int error = failing::now("pthread_attr_setdetachstate")) return error;
  return tests::next<int(pthread_attr_t*, int)>("pthread_attr_setdetachstate")(attr, state);
}

int pthread_attr_getstacksize(const pthread_attr_t* attr, size_t* size) noexcept {
  if (g_default_stack != 0) *size = g_default_stack;
  if (const int error = failing::now("pthread_attr_getstacksize")) return error;
  if (g_default_stack != 0) return 0;
  return tests::next<int(const pthread_attr_t*, size_t*)>("pthread_attr_getstacksize")(attr, size);
}

int pthread_attr_setstacksize(pthread_attr_t* attr, size_t size) noexcept {
  if (g_default_stack != 0) g_stacks_set.push_back(size);
  return tests::next<int(pthread_attr_t*, size_t)>("pthread_attr_setstacksize")(attr, size);
}

}  // extern "C"

namespace {

using testing::IsEmpty;
using tests::error_of;

TEST(a_log_without_its_thread, for_want_of_attributes_throws_and_does_not_block_either) {
  tests::in_new_process([] {
    std::string error;
    {
      failing attributes("pthread_attr_init", ENOMEM);
      error = error_of([] { tests::write_line("one"); });
    }
    EXPECT_EQ(error, ":Error in 'detach'");
    EXPECT_EQ(error_of([] { tests::write_line("two"); }), "no exception");
    mirt::errlog::flush();
  });
}

TEST(init_thread, throws_when_there_are_no_attributes_to_be_had) {
  for (const char* call : {"pthread_attr_init", "pthread_attr_setdetachstate"}) {
    SCOPED_TRACE(call);
    tests::in_new_process([call] {
      EXPECT_EQ(error_of([call] {
                  failing attributes(call, ENOMEM);
                  mirt::init_thread();
                }),
                ":Error in 'init_thread'");
      EXPECT_EQ(error_of([] { mirt::init_thread(); }), "no exception");
    });
  }
}

TEST(init_thread, lowers_a_stack_of_more_than_2_mib_to_2_mib) {
  const struct {
    size_t default_size;
    std::vector<size_t> set;
  } rows[] = {{0x10000, {}},          {0x1fffff, {}},         {0x200000, {}},
              {0x200001, {0x200000}}, {0x800000, {0x200000}}, {SIZE_MAX, {0x200000}}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.default_size);
    tests::in_new_process([&row] {
      g_default_stack = row.default_size;
      mirt::init_thread();
      EXPECT_EQ(g_stacks_set, row.set);
    });
  }
}

TEST(init_thread, leaves_a_stack_of_unknown_size_alone) {
  tests::in_new_process([] {
    g_default_stack = 0x800000;
    EXPECT_EQ(error_of([] {
                failing size("pthread_attr_getstacksize", EINVAL);
                mirt::init_thread();
              }),
              "no exception");
    EXPECT_THAT(g_stacks_set, IsEmpty());
  });
}

}  // namespace
