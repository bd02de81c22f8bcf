// mirt/sys/thread.h: the life of a thread and its object, the counters, the hooks of a host, and
// the number of the calling thread.
#include "mirt/sys/thread.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <memory>
#include <thread>
#include <type_traits>
#include <vector>

#include "tests/support/error_of.h"
#include "tests/support/hostile_locale.h"
#include "tests/support/log_lines.h"
#include "tests/support/new_process.h"
#include "tests/support/slots.h"

namespace {

using mirt::semaphore;
using testing::ElementsAre;
using tests::error_of;
using tests::in_new_process;

static_assert(std::is_same_v<decltype(mirt::get_current_thread_id()), std::uint64_t>);
static_assert(std::is_same_v<decltype(mirt::thread_startup_error), std::uint32_t*>);
static_assert(std::is_same_v<decltype(mirt::g_thread_count), std::int32_t>);
static_assert(std::is_same_v<decltype(mirt::g_thread_peak), std::int32_t>);
static_assert(std::is_same_v<decltype(mirt::_unprevent_timeout), void (*)()>);
static_assert(std::is_same_v<decltype(mirt::_prevent_cb), void (*)()>);
static_assert(std::is_same_v<decltype(&mirt::thread::thread_starter), void* (*)(void*)>);
static_assert(std::is_abstract_v<mirt::thread> && !std::is_copy_constructible_v<mirt::thread>);

TEST(get_current_thread_id, is_pthread_self_as_a_number) {
  EXPECT_EQ(mirt::get_current_thread_id(), (std::uint64_t)pthread_self());
}

TEST(get_current_thread_id, differs_between_threads) {
  const std::uint64_t own = mirt::get_current_thread_id();
  std::thread([own] {
    EXPECT_EQ(mirt::get_current_thread_id(), (std::uint64_t)pthread_self());
    EXPECT_NE(mirt::get_current_thread_id(), own);
  }).join();
}

TEST(thread_startup_error, is_null_before_start_up) {
  in_new_process([] { EXPECT_EQ(mirt::thread_startup_error, nullptr); });
}

/// What a thread does and what is to be known of its end; outlives the thread's object.
struct script {
  semaphore entered{0x7fffffff, 0};  // posted by run
  semaphore go_on{0x7fffffff, 0};    // run waits for it
  semaphore gone{0x7fffffff, 0};     // posted by the destructor
  std::atomic<bool> finished = false;
  std::atomic<std::uint64_t> ran_on = 0, died_on = 0;
  std::atomic<std::int32_t> count_at_death = -1;
};

std::int32_t count() {
  mirt::rec_lock guard(mirt::m_threads_mtx);
  return mirt::g_thread_count;
}

std::int32_t peak() {
  mirt::rec_lock guard(mirt::m_threads_mtx);
  return mirt::g_thread_peak;
}

class actor : public mirt::thread {
 public:
  explicit actor(script& s, bool auto_delete = false, const std::string& name = "", int number = 0)
      : thread(auto_delete, name, number), script_(s) {}
  ~actor() override {
    script_.died_on = mirt::get_current_thread_id();
    if (mirt::m_threads_mtx != nullptr) script_.count_at_death = count();
    script_.gone.post();
  }
  void run() override {
    script& s = script_;  // the object may be half gone by the end
    s.ran_on = mirt::get_current_thread_id();
    s.entered.post();
    s.go_on.wait();
    s.finished = true;
  }

 private:
  script& script_;
};

semaphore& ended() {
  static auto* const posted = new semaphore(0x7fffffff, 0);
  return *posted;
}

/// Prepares threads and tells of each one's end, after its last step.
void prepare() {
  mirt::init_thread();
  mirt::_prevent_cb = [] { ended().post(); };
}

TEST(thread, has_its_operations_in_the_order_destructor_deletion_run) {
  in_new_process([] {
    script s;
    s.go_on.post();
    auto* const made = new actor(s);
    tests::call_slot<void>(made, 2);
    EXPECT_TRUE(s.finished);
    tests::call_slot<void>(made, 1);
    s.gone.wait();
    alignas(actor) unsigned char room[sizeof(actor)];
    tests::call_slot<void>(new (room) actor(s), 0);
    s.gone.wait();
  });
}

TEST(thread, holds_name_done_auto_delete_started_and_tid_in_this_order) {
  script s;
  const actor thread(s, false, "log", 3);
  EXPECT_EQ(static_cast<const void*>(&thread.name()),
            reinterpret_cast<const char*>(&thread) + sizeof(void*));
  EXPECT_EQ(sizeof(mirt::thread), sizeof(void*) + sizeof(std::string) + sizeof(semaphore) +
                                      sizeof(void*) + sizeof(pthread_t));
}

TEST(thread, is_named_by_name_and_number_if_it_has_a_name) {
  const tests::hostile_locale hostile;
  script s;
  EXPECT_EQ(actor(s, false, "log", 3).name(), "log:3");
  EXPECT_EQ(actor(s, false, "log", -1234567).name(), "log:-1234567");
  EXPECT_EQ(actor(s, false, ":", 0).name(), "::0");
  EXPECT_EQ(actor(s, false, "", 3).name(), "");
}

TEST(thread, destroyed_without_detach_does_not_block) {
  script s;
  { actor thread(s); }
  delete new actor(s, true);
  EXPECT_FALSE(s.finished);
}

TEST(thread, runs_on_a_thread_of_its_own) {
  in_new_process([] {
    prepare();
    script s;
    actor thread(s);
    thread.detach(mirt::thread::normal);
    s.entered.wait();
    EXPECT_NE(s.ran_on, mirt::get_current_thread_id());
    s.go_on.post();
    ended().wait();
  });
}

TEST(thread, accepts_any_priority) {
  in_new_process([] {
    prepare();
    for (const int priority : {0, 1, -7, 99}) {
      script s;
      s.go_on.post();
      actor thread(s);
      thread.detach(static_cast<mirt::thread::priority>(priority));
      ended().wait();
      EXPECT_TRUE(s.finished);
    }
  });
}

TEST(thread, may_be_started_before_start_up) {
  in_new_process([] {
    mirt::_prevent_cb = [] { ended().post(); };
    script s;
    s.go_on.post();
    actor thread(s);
    thread.detach(mirt::thread::normal);
    ended().wait();
    EXPECT_TRUE(s.finished);
    EXPECT_EQ(mirt::thread_startup_error, nullptr);
  });
}

TEST(detach, a_second_time_throws_and_is_no_failed_start) {
  tests::in_log_process([] {
    prepare();
    tests::keep_lines();
    script s;
    actor thread(s);
    thread.detach(mirt::thread::normal);
    const auto again = [&] { thread.detach(mirt::thread::normal); };
    EXPECT_EQ(error_of(again), ":Error in 'detach'");
    s.go_on.post();
    ended().wait();
    EXPECT_EQ(error_of(again), ":Error in 'detach'") << "also after its end";
    EXPECT_EQ(*mirt::thread_startup_error, 0U);
    EXPECT_EQ(count(), 0);
    EXPECT_EQ(peak(), 1);
    EXPECT_THAT(tests::kept(), testing::IsEmpty());
  });
}

TEST(thread_destructor, blocks_until_run_has_returned) {
  in_new_process([] {
    prepare();
    script s;
    auto* const thread = new actor(s);
    thread->detach(mirt::thread::normal);
    s.entered.wait();
    std::thread destroyer([&] {
      delete thread;
      EXPECT_TRUE(s.finished);
    });
    s.gone.wait();  // the subclass is gone, its base waits
    EXPECT_FALSE(s.finished);
    s.go_on.post();
    destroyer.join();
    ended().wait();
  });
}

TEST(auto_delete, destroys_the_object_on_its_own_thread_after_run) {
  in_new_process([] {
    prepare();
    script s;
    (new actor(s, true))->detach(mirt::thread::normal);
    s.entered.wait();
    EXPECT_EQ(s.died_on, 0U) << "not while it runs";
    s.go_on.post();
    ended().wait();
    EXPECT_TRUE(s.finished);
    EXPECT_EQ(s.died_on, s.ran_on);
    EXPECT_EQ(s.count_at_death, 1) << "it still counts while it dies";
  });
}

TEST(auto_delete, false_leaves_the_object_to_its_owner) {
  in_new_process([] {
    prepare();
    script s;
    s.go_on.post();
    auto thread = std::make_unique<actor>(s);
    thread->detach(mirt::thread::normal);
    ended().wait();
    EXPECT_EQ(s.died_on, 0U);
    thread.reset();
    EXPECT_EQ(s.died_on, mirt::get_current_thread_id());
  });
}

TEST(thread_counters, are_absurd_before_start_up_deliberately) {
  in_new_process([] {
    EXPECT_EQ(mirt::g_thread_count, -666);
    EXPECT_EQ(mirt::g_thread_peak, -666);
    EXPECT_EQ(mirt::m_threads_mtx, nullptr);
    prepare();
    EXPECT_EQ(count(), 0);
    EXPECT_EQ(peak(), 0);
    EXPECT_NE(mirt::m_threads_mtx, nullptr);
  });
}

TEST(thread_counters, follow_the_threads_that_are_alive) {
  in_new_process([] {
    prepare();
    script scripts[3];
    std::vector<std::unique_ptr<actor>> threads;
    for (script& s : scripts) {
      threads.push_back(std::make_unique<actor>(s));
      threads.back()->detach(mirt::thread::normal);
      EXPECT_EQ(count(), static_cast<int>(threads.size())) << "at once";
    }
    EXPECT_EQ(peak(), 3);
    for (script& s : scripts) s.go_on.post();
    for (int i = 0; i < 3; ++i) ended().wait();
    EXPECT_EQ(count(), 0);
    EXPECT_EQ(peak(), 3) << "it stays";

    script one_more;
    one_more.go_on.post();
    actor thread(one_more);
    thread.detach(mirt::thread::normal);
    ended().wait();
    EXPECT_EQ(peak(), 3);
  });
}

TEST(init_thread, makes_a_counter_of_failed_starts_unless_a_host_shares_its_own) {
  in_new_process([] {
    mirt::init_thread();
    ASSERT_NE(mirt::thread_startup_error, nullptr);
    EXPECT_EQ(*mirt::thread_startup_error, 0U);
  });
  in_new_process([] {
    std::uint32_t hosts = 7;
    mirt::thread_startup_error = &hosts;
    mirt::init_thread();
    EXPECT_EQ(mirt::thread_startup_error, &hosts);
    EXPECT_EQ(hosts, 7U);
  });
}

/// Whether another thread can take m_threads_mtx now.
bool mutex_is_free() {
  static_assert(sizeof(mirt::rec_mutex) == sizeof(pthread_mutex_t));
  auto* const mutex = reinterpret_cast<pthread_mutex_t*>(mirt::m_threads_mtx);
  bool is_free = false;
  std::thread([&] {
    is_free = ::pthread_mutex_trylock(mutex) == 0;
    if (is_free) ::pthread_mutex_unlock(mutex);
  }).join();
  return is_free;
}

std::vector<std::string> g_steps;

void step(const std::string& name) {
  g_steps.push_back(name + (mutex_is_free() ? " free " : " locked ") + std::to_string(count()));
}

TEST(a_threads_end, calls_the_hooks_after_it_stopped_to_count_one_within_and_one_without_the_lock) {
  in_new_process([] {
    class stepping : public mirt::thread {
     public:
      stepping() : thread(true, "", 0) {}
      ~stepping() override { step("destructor"); }
      void run() override { step("run"); }
    };
    mirt::init_thread();
    mirt::_unprevent_timeout = [] { step("unprevent_timeout"); };
    mirt::_prevent_cb = [] {
      step("prevent_cb");
      ended().post();
    };
    (new stepping)->detach(mirt::thread::normal);
    ended().wait();
    EXPECT_THAT(g_steps, ElementsAre("run free 1", "destructor free 1",
                                     "unprevent_timeout locked 0", "prevent_cb free 0"));
  });
}

TEST(a_new_peak, is_logged_under_its_category) {
  tests::in_log_process([] {
    prepare();
    tests::keep_lines();
    mirt::g_thread_peak_category = "threads";
    tests::write_line("one");  // with the log's own thread
    script scripts[3];
    std::vector<std::unique_ptr<actor>> threads;
    for (script& s : scripts) {
      threads.push_back(std::make_unique<actor>(s));
      threads.back()->detach(mirt::thread::normal);
    }
    for (script& s : scripts) s.go_on.post();
    for (int i = 0; i < 3; ++i) ended().wait();
    script again;
    again.go_on.post();
    actor thread(again);
    thread.detach(mirt::thread::normal);
    ended().wait();
    const std::string peak = "threads: new maximum number of threads: ";
    EXPECT_THAT(tests::kept(), ElementsAre(peak + "1", "one", peak + "2", peak + "3", peak + "4"));
  });
}

}  // namespace
