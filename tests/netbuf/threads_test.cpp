// Two threads whose buffers share chunks: each has its own buffers, and they hand parts of them to
// each other all the time.
#include <gtest/gtest.h>

#include <mutex>
#include <random>
#include <thread>

#include "netbuf/operations.h"
#include "tests/netbuf/text_model.h"

namespace {

using tests::text_buffer;

class mailbox {
 public:
  /// Leaves a buffer for the other thread and takes what that one left.
  text_buffer exchange(text_buffer mine) {
    const std::lock_guard guard(mutex_);
    std::swap(mine, left_);
    return mine;
  }

 private:
  std::mutex mutex_;
  text_buffer left_;
};

std::string work(mailbox& box, unsigned seed) {
  std::mt19937 random(seed);
  const auto choose = [&random](unsigned n) { return static_cast<unsigned>(random() % n); };
  std::vector<text_buffer> own(4);
  tests::text_steps steps(own, choose);
  for (int number = 0; number < 40000; ++number) {
    std::string fault = steps.step();
    if (number % 4 == 0 && fault.empty()) {
      text_buffer& giver = steps.any();
      text_buffer& taker = steps.any();
      std::unique_ptr<netbuf::buffer> part(new netbuf::buffer(giver.real->sub(0, netbuf::all)));
      taker = box.exchange({std::move(part), giver.text});
      fault = taker.fault();
    }
    if (!fault.empty()) {
      return "seed " + std::to_string(seed) + ", step " + std::to_string(number) + ": " + fault;
    }
  }
  return "";
}

class two_threads : public ::testing::TestWithParam<bool> {};

INSTANTIATE_TEST_SUITE_P(each, two_threads, ::testing::Bool(),
                         [](const auto& row) { return row.param ? "caches" : "plain_blocks"; });

TEST_P(two_threads, share_chunks_and_see_only_their_own_bytes) {
  netbuf::install(_netbuf_impl);
  netbuf::init({false, true});
  netbuf_imp::use_cache = GetParam();
  {
    mailbox box;
    std::string fault_there;
    std::thread other([&] { fault_there = work(box, 1); });
    EXPECT_EQ(work(box, 2), "");
    other.join();
    EXPECT_EQ(fault_there, "");
  }
  EXPECT_EQ(tests::counted_memory::live, 0);
  for (const netbuf_imp::size_class& row : netbuf_imp::size_classes) {
    if (row.cache == nullptr) continue;
    EXPECT_EQ(tests::fault_of_cache(*row.cache), "");
    EXPECT_EQ(row.cache->free_count, row.cache->total);
  }
}

}  // namespace
