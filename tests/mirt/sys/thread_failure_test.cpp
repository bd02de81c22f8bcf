// Threads that the system does not start, and the log without its own.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <thread>
#include <vector>

#include "mirt/diag/errlog.h"
#include "mirt/diag/exception.h"
#include "mirt/diag/log_writer.h"
#include "mirt/init.h"
#include "mirt/sys/thread.h"
#include "tests/support/c_function.h"
#include "tests/support/error_of.h"
#include "tests/support/log_lines.h"

namespace {

std::atomic<int> g_failing_starts = 0;  // so many starts fail from now on
std::atomic<int> g_error = EAGAIN;      // with this number
std::atomic<int> g_starts = 0;

/// What the last start was asked for.
struct {
  int detach_state;
  size_t stack_size;
  void* (*routine)(void*);
  void* argument;
} g_last;

}  // namespace

extern "C" {

int pthread_create(pthread_t* thread, const pthread_attr_t* attr, void* (*routine)(void*),
                   void* argument) noexcept {
  ++g_starts;
  if (attr != nullptr) {
    ::pthread_attr_getdetachstate(attr, &g_last.detach_state);
    ::pthread_attr_getstacksize(attr, &g_last.stack_size);
  }
  g_last.routine = routine;
  g_last.argument = argument;
  if (g_failing_starts > 0) {
    --g_failing_starts;
    errno = ENOENT;  // the error is what is returned
    return g_error;
  }
  return tests::next<int(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*)>(
      "pthread_create")(thread, attr, routine, argument);
}

}  // extern "C"

namespace {

using mirt::errlog;
using testing::ElementsAre;
using testing::IsEmpty;
using tests::error_of;
using tests::in_log_process;
using tests::keep_lines;
using tests::kept;
using tests::write_batch;
using tests::write_line;

constexpr int always = 1'000'000;
const char* const detach_failed = ":Error in 'detach'";

mirt::semaphore& ran() {
  static auto* const posted = new mirt::semaphore(0x7fffffff, 0);
  return *posted;
}

class quick : public mirt::thread {
 public:
  explicit quick(bool auto_delete = false) : thread(auto_delete, "", 0) {}
  void run() override { ran().post(); }
};

std::string start(mirt::thread& thread) {
  return error_of([&thread] { thread.detach(mirt::thread::normal); });
}

std::string logged(const std::string& text) {
  return error_of([&text] { write_line(text); });
}

std::string failure(int error) {
  return "thread startup: pthread_create failed: " + mirt::safe_strerror(error);
}

std::int32_t count() {
  mirt::rec_lock guard(mirt::m_threads_mtx);
  return mirt::g_thread_count;
}

TEST(a_failed_start, is_thrown_logged_and_counted) {
  in_log_process([] {
    mirt::init_thread();
    keep_lines();
    write_batch({"one"});
    quick thread;
    g_failing_starts = 3;
    for (const int error : {EAGAIN, EPERM, EINVAL}) {
      g_error = error;
      EXPECT_EQ(start(thread), detach_failed);
    }
    EXPECT_THAT(kept(), ElementsAre("one", failure(EAGAIN), "thread startup: error count: 1",
                                    failure(EPERM), "thread startup: error count: 2",
                                    failure(EINVAL), "thread startup: error count: 3"));
    EXPECT_EQ(*mirt::thread_startup_error, 3U);
    EXPECT_EQ(count(), 1) << "the log's";
    EXPECT_EQ(mirt::g_thread_peak, 1);
  });
}

TEST(a_failed_start, is_counted_where_a_host_counts) {
  in_log_process([] {
    static std::uint32_t hosts = 41;
    mirt::thread_startup_error = &hosts;
    mirt::init_thread();
    keep_lines();
    g_failing_starts = 1;
    quick thread;
    EXPECT_EQ(start(thread), detach_failed);
    EXPECT_EQ(hosts, 42U);
    EXPECT_THAT(kept(), ElementsAre(failure(EAGAIN), "thread startup: error count: 42"));
  });
}

TEST(a_failed_start, leaves_an_object_that_can_be_started_again_or_destroyed) {
  in_log_process([] {
    mirt::init_thread();
    keep_lines();
    write_batch({"one"});
    g_failing_starts = 2;
    quick thread;
    EXPECT_EQ(start(thread), detach_failed);
    auto* const owned = new quick(true);
    EXPECT_EQ(start(*owned), detach_failed);
    delete owned;  // still its maker's, and does not block
    EXPECT_EQ(start(thread), "no exception");
    ran().wait();
  });
}

TEST(a_failed_start, that_is_the_first_to_be_logged_can_start_the_logs_own_thread) {
  in_log_process([] {
    mirt::init_thread();
    keep_lines();
    g_failing_starts = 1;
    quick thread;
    EXPECT_EQ(start(thread), detach_failed);
    EXPECT_EQ(g_starts, 2);
    EXPECT_THAT(kept(), ElementsAre(failure(EAGAIN), "thread startup: error count: 1"));
  });
}

TEST(a_failed_start, is_logged_while_the_lock_is_free) {
  in_log_process([] {
    static std::atomic<int> seen = 0;
    mirt::init_thread();
    keep_lines();
    errlog::set_log_tee([](const char*, std::size_t) {
      std::thread([] { count(); }).join();  // would wait for ever
      ++seen;
    });
    g_failing_starts = 1;
    quick thread;
    EXPECT_EQ(start(thread), detach_failed);
    EXPECT_EQ(seen, 2);
  });
}

TEST(a_failed_start, before_start_up_is_thrown_and_logged_but_not_counted) {
  in_log_process([] {
    keep_lines();
    g_failing_starts = 1;
    quick thread;
    EXPECT_EQ(start(thread), detach_failed);
    EXPECT_THAT(kept(), ElementsAre(failure(EAGAIN)));
    EXPECT_EQ(mirt::thread_startup_error, nullptr);
  });
}

TEST(a_failed_start, of_a_thread_and_of_the_log_throws_and_does_not_block) {
  in_log_process([] {
    mirt::init_thread();
    g_failing_starts = always;
    quick thread;
    EXPECT_EQ(start(thread), detach_failed);
    EXPECT_EQ(start(thread), detach_failed);
    errlog::flush();
    EXPECT_EQ(count(), 0);
  });
}

TEST(a_log_without_its_thread, throws_at_the_first_line_and_drops_the_others) {
  const std::string on_stderr = tests::stderr_of([] {
    mirt::init_thread();
    g_failing_starts = always;
    EXPECT_EQ(logged("one"), detach_failed);
    EXPECT_EQ(*mirt::thread_startup_error, 1U);
    EXPECT_EQ(logged("two"), "no exception");
    errlog::flush();
    g_failing_starts = 0;
    EXPECT_EQ(logged("three"), "no exception");
    errlog::flush();
    EXPECT_EQ(count(), 0);
    EXPECT_EQ(g_starts, 1) << "it is not tried again";
  });
  EXPECT_EQ(on_stderr, "");
}

TEST(a_log_without_its_thread, throws_before_start_up_as_well) {
  in_log_process([] {
    g_failing_starts = always;
    EXPECT_EQ(logged("one"), detach_failed);
    EXPECT_EQ(logged("two"), "no exception");
    errlog::flush();
  });
}

TEST(a_log_without_its_thread, takes_lines_and_flushes_from_many_threads) {
  in_log_process([] {
    g_failing_starts = 1;
    EXPECT_EQ(logged("one"), detach_failed);
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
      threads.emplace_back([] {
        for (int line = 0; line < 1000; ++line) {
          write_line("dropped");
          errlog::flush();
        }
      });
    }
    for (std::thread& thread : threads) thread.join();
  });
}

std::vector<void*> g_released;

TEST(a_log_without_its_thread, keeps_no_first_record_and_releases_the_later_ones) {
  in_log_process([] {
    g_failing_starts = 1;
    char first[] = "HDR one\n", second[] = "HDR two\n";
    const auto push = [](char* data) {
      mirt::push_record({nullptr, data, 8, 3, [](void* line) { g_released.push_back(line); }});
    };
    EXPECT_EQ(error_of([&] { push(first); }), detach_failed);
    EXPECT_THAT(g_released, IsEmpty()) << "still the caller's";
    EXPECT_EQ(error_of([&] { push(second); }), "no exception");
    EXPECT_THAT(g_released, ElementsAre(second));
  });
}

TEST(a_log_without_its_thread, does_not_hide_why_start_up_failed) {
  in_log_process([] {
    mirt_api_t table{};
    table.version = 3;
    g_failing_starts = always;
    EXPECT_EQ(error_of([&] { new mirt::init(&table); }), "mirt-rpt api missing");
  });
}

TEST(detach, hands_the_object_to_a_detached_thread_with_a_stack_of_at_most_2_mib) {
  for (const bool with_start_up : {true, false}) {
    in_log_process([with_start_up] {
      if (with_start_up) mirt::init_thread();
      quick thread;
      ASSERT_EQ(start(thread), "no exception");
      EXPECT_EQ(g_last.detach_state, PTHREAD_CREATE_DETACHED);
      EXPECT_LE(g_last.stack_size, 0x200000U);
      EXPECT_EQ(g_last.routine, mirt::thread::thread_starter);
      EXPECT_EQ(g_last.argument, static_cast<mirt::thread*>(&thread));
      ran().wait();
    });
  }
}

}  // namespace
