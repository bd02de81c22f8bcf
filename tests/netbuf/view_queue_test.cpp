// netbuf/view_queue.h: order at both ends, growth out of the inline room, swapping.
#include "netbuf/view_queue.h"

#include <gtest/gtest.h>

#include <deque>
#include <new>
#include <random>
#include <string>

#include "tests/support/allocations.h"

namespace {

using netbuf_imp::view;
using netbuf_imp::view_queue;

view numbered(std::int32_t number) {
  return {nullptr, number, 1};
}

std::string numbers(view_queue& queue) {
  std::string result;
  for (std::size_t i = 0; i < queue.size(); ++i) {
    if (i > 0) result += ' ';
    result += std::to_string(queue[i].offset);
  }
  return result;
}

void push_back(view_queue& queue, std::int32_t from, std::int32_t to) {
  for (std::int32_t i = from; i <= to; ++i) {
    queue.reserve(1);
    queue.push_back(numbered(i));
  }
}

TEST(view_queue, starts_empty) {
  const view_queue queue;
  EXPECT_TRUE(queue.empty());
  EXPECT_EQ(queue.size(), 0U);
}

TEST(view_queue, keeps_the_order_of_both_ends) {
  view_queue queue;
  push_back(queue, 1, 2);
  queue.push_front(numbered(0));
  EXPECT_EQ(numbers(queue), "0 1 2");
  EXPECT_EQ(queue.front().offset, 0);
  EXPECT_EQ(queue.back().offset, 2);
  queue.pop_front();
  queue.pop_back();
  EXPECT_EQ(numbers(queue), "1");
  queue.pop_back();
  EXPECT_TRUE(queue.empty());
}

TEST(view_queue, holds_all_three_fields) {
  alignas(8) char place[8];
  auto* const chunk = reinterpret_cast<netbuf_imp::chunk*>(place);
  view_queue queue;
  queue.push_back({chunk, 3, 5});
  EXPECT_EQ(queue.front().chunk, chunk);
  EXPECT_EQ(queue.front().offset, 3);
  EXPECT_EQ(queue.front().length, 5);
}

TEST(view_queue, allocates_nothing_for_four_views) {
  const tests::allocation_count count;
  view_queue queue;
  push_back(queue, 1, 4);
  EXPECT_EQ(count.made(), 0);
  push_back(queue, 5, 5);
  EXPECT_EQ(count.made(), 1);
  EXPECT_EQ(numbers(queue), "1 2 3 4 5");
}

TEST(view_queue, gives_its_memory_back) {
  const tests::allocation_count count;
  {
    view_queue queue;
    push_back(queue, 1, 100);
  }
  EXPECT_EQ(count.live(), 0);
}

TEST(view_queue, grows_while_its_ring_is_turned) {
  for (const int turned : {0, 1, 2, 3, -1, -2, -3}) {
    SCOPED_TRACE(turned);
    view_queue queue;
    for (int i = 0; i < turned; ++i) {
      queue.push_back(numbered(0));
      queue.pop_front();
    }
    for (int i = 0; i > turned; --i) {
      queue.push_front(numbered(0));
      queue.pop_back();
    }
    push_back(queue, 1, 9);
    EXPECT_EQ(numbers(queue), "1 2 3 4 5 6 7 8 9");
  }
}

TEST(view_queue, has_room_for_all_that_was_reserved) {
  for (const std::size_t more : {1U, 3U, 4U, 5U, 127U, 128U, 129U}) {
    SCOPED_TRACE(more);
    view_queue queue;
    queue.push_back(numbered(-1));
    queue.reserve(more);
    const tests::failing_allocations failing(0);
    for (std::size_t i = 0; i < more; ++i) queue.push_front(numbered(static_cast<int>(i)));
    EXPECT_EQ(queue.size(), more + 1);
    EXPECT_EQ(queue.back().offset, -1);
  }
}

TEST(view_queue, stays_as_it_is_when_there_is_no_memory) {
  view_queue queue;
  push_back(queue, 1, 4);
  bool thrown = false;
  try {
    const tests::failing_allocations failing(0);
    queue.reserve(1);
  } catch (const std::bad_alloc&) {
    thrown = true;
  }
  EXPECT_TRUE(thrown);
  EXPECT_EQ(numbers(queue), "1 2 3 4");
}

TEST(view_queue, clears_and_goes_on) {
  view_queue queue;
  push_back(queue, 1, 9);
  queue.clear();
  EXPECT_TRUE(queue.empty());
  push_back(queue, 10, 11);
  EXPECT_EQ(numbers(queue), "10 11");
}

TEST(view_queue, swaps_inline_and_grown_ones) {
  for (const int left : {0, 2, 9}) {
    for (const int right : {0, 3, 10}) {
      SCOPED_TRACE(std::to_string(left) + " " + std::to_string(right));
      view_queue a, b;
      a.push_back(numbered(0));
      a.pop_front();
      push_back(a, 1, left);
      push_back(b, 101, 100 + right);
      const std::string a_was = numbers(a), b_was = numbers(b);
      a.swap(b);
      EXPECT_EQ(numbers(a), b_was);
      EXPECT_EQ(numbers(b), a_was);
      push_back(a, 7, 7);
      EXPECT_EQ(numbers(a), b_was + (right == 0 ? "7" : " 7"));
      EXPECT_EQ(numbers(b), a_was);
    }
  }
}

TEST(view_queue, agrees_with_a_deque_on_random_steps) {
  std::mt19937 random(20240601);
  view_queue queue;
  std::deque<std::int32_t> model;
  for (std::int32_t step = 0; step < 200000; ++step) {
    // Waves of growing and shrinking.
    const bool grow = random() % 8 < (step / 1000 % 2 == 0 ? 5 : 3);
    const bool at_back = random() % 2 == 0;
    if (grow) {
      queue.reserve(1);
      at_back ? queue.push_back(numbered(step)) : queue.push_front(numbered(step));
      at_back ? model.push_back(step) : model.push_front(step);
    } else if (!model.empty()) {
      at_back ? queue.pop_back() : queue.pop_front();
      at_back ? model.pop_back() : model.pop_front();
    }
    ASSERT_EQ(queue.size(), model.size());
    if (model.empty()) continue;
    const std::size_t any = random() % model.size();
    ASSERT_EQ(queue[any].offset, model[any]);
    ASSERT_EQ(queue.front().offset, model.front());
    ASSERT_EQ(queue.back().offset, model.back());
  }
}

}  // namespace
