// Counting, waking and the order of the virtual operations.
#include "mirt/sys/semaphore.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <limits>
#include <memory>
#include <new>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "tests/support/slots.h"

namespace {

static_assert(std::has_virtual_destructor_v<mirt::semaphore>);
static_assert(!std::is_copy_constructible_v<mirt::semaphore>);
static_assert(!std::is_copy_assignable_v<mirt::semaphore>);

/// How many units it takes out until there are none.
int drain(mirt::semaphore& semaphore) {
  int units = 0;
  while (semaphore.wait_ms(0)) ++units;
  return units;
}

TEST(semaphore, starts_with_the_units_of_its_second_argument) {
  mirt::semaphore semaphore(0, 2);
  semaphore.wait();
  semaphore.wait();
  EXPECT_EQ(drain(semaphore), 0);
}

TEST(semaphore, ignores_its_first_argument) {
  for (const unsigned int ignored : {0U, 1U, 5U, std::numeric_limits<unsigned int>::max()}) {
    mirt::semaphore semaphore(ignored, 2);
    for (int i = 0; i < 3; ++i) semaphore.post();
    EXPECT_EQ(drain(semaphore), 5) << ignored;
  }
}

TEST(semaphore, counts_beyond_32_bits) {
  mirt::semaphore semaphore(0, std::numeric_limits<unsigned int>::max());
  EXPECT_TRUE(semaphore.wait_ms(0));
  for (int i = 0; i < 3; ++i) semaphore.post();
  for (int i = 0; i < 3; ++i) EXPECT_TRUE(semaphore.wait_ms(0));
}

TEST(semaphore_wait, returns_only_after_a_post) {
  mirt::semaphore semaphore(5, 0);
  std::atomic<bool> posted = false;
  std::atomic<bool> seen = false;
  std::thread waiter([&] {
    semaphore.wait();
    seen = posted.load();
  });
  posted = true;
  semaphore.post();
  waiter.join();
  EXPECT_TRUE(seen);
  EXPECT_EQ(drain(semaphore), 0);
}

TEST(semaphore_post, wakes_as_many_waiters_as_there_are_units) {
  mirt::semaphore semaphore(0, 0);
  std::vector<std::thread> waiters;
  for (int i = 0; i < 4; ++i) waiters.emplace_back([&] { semaphore.wait(); });
  for (int i = 0; i < 5; ++i) semaphore.post();
  for (std::thread& waiter : waiters) waiter.join();
  EXPECT_EQ(drain(semaphore), 1);
}

TEST(semaphore_post, reaches_timed_and_untimed_waiters) {
  constexpr int rounds = 500;
  mirt::semaphore ping(0, 0);
  mirt::semaphore pong(0, 0);
  std::thread other([&] {
    for (int i = 0; i < rounds; ++i) {
      ping.wait();
      pong.post();
    }
  });
  for (int i = 0; i < rounds; ++i) {
    ping.post();
    ASSERT_TRUE(pong.wait_ms(3600 * 1000));
  }
  other.join();
}

/// Tells which operation was called, and with what.
class recorder : public mirt::semaphore {
 public:
  explicit recorder(std::string& calls) : semaphore(0, 0), calls_(calls) {}
  ~recorder() override { calls_ += "~"; }
  static void* operator new(std::size_t size) { return ::operator new(size); }
  static void* operator new(std::size_t, void* place) { return place; }
  static void operator delete(void* object) {
    ++deleted;
    ::operator delete(object);
  }
  void wait() override { calls_ += "wait "; }
  void post() override { calls_ += "post "; }
  bool wait_ms(long long ms) override {
    calls_ += "wait_ms(" + std::to_string(ms) + ") ";
    return ms > 0;
  }
  bool wait(long seconds) override {
    calls_ += "wait(" + std::to_string(seconds) + ") ";
    return seconds > 0;
  }

  static inline int deleted = 0;

 private:
  std::string& calls_;
};

TEST(semaphore_slots, are_wait_post_wait_ms_and_wait_in_seconds_after_the_destructors) {
  std::string calls;
  recorder semaphore(calls);
  tests::call_slot<void>(&semaphore, 2);
  tests::call_slot<void>(&semaphore, 3);
  EXPECT_TRUE((tests::call_slot<bool, long long>(&semaphore, 4, 70)));
  EXPECT_FALSE((tests::call_slot<bool, long>(&semaphore, 5, -8)));
  EXPECT_EQ(calls, "wait post wait_ms(70) wait(-8) ");
}

TEST(semaphore_slots, begin_with_the_complete_and_the_deleting_destructor) {
  std::string calls;
  recorder::deleted = 0;
  alignas(recorder) unsigned char place[sizeof(recorder)];
  tests::call_slot<void>(new (place) recorder(calls), 0);
  EXPECT_EQ(calls, "~");
  EXPECT_EQ(recorder::deleted, 0);
  tests::call_slot<void>(static_cast<void*>(new recorder(calls)), 1);
  EXPECT_EQ(calls, "~~");
  EXPECT_EQ(recorder::deleted, 1);
}

/// A semaphore whose wait in milliseconds is its own.
class own_wait_ms : public mirt::semaphore {
 public:
  explicit own_wait_ms(bool result) : semaphore(0, 0), result_(result) {}
  bool wait_ms(long long ms) override {
    asked = ms;
    return result_;
  }
  long long asked = 77;

 private:
  bool result_;
};

TEST(semaphore_wait_in_seconds, is_wait_ms_of_a_thousand_times_as_much) {
  const struct {
    long seconds;
    long long ms;
  } rows[] = {{0, 0}, {1, 1000}, {-2, -2000}, {4000000, 4000000000}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.seconds);
    for (const bool result : {true, false}) {
      own_wait_ms semaphore(result);
      EXPECT_EQ(static_cast<mirt::semaphore&>(semaphore).wait(row.seconds), result);
      EXPECT_EQ(semaphore.asked, row.ms);
    }
  }
}

}  // namespace
