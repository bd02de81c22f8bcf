// text/mini_char.h: the texts around the inline capacity, and what they cost.
#include "text/mini_char.h"

#include <gtest/gtest.h>

#include <new>
#include <type_traits>

#include "tests/support/allocations.h"

namespace {

static_assert(!std::is_copy_constructible_v<mini_char<128>>);
static_assert(!std::is_copy_assignable_v<mini_char<128>>);

/// Both capacities that are in use.
template <class Capacity>
class mini_chars : public testing::Test {
 protected:
  static constexpr std::size_t capacity = Capacity::value;
  using text = mini_char<capacity>;

  /// A text in which no two neighbours are equal; it holds NULs too.
  static std::string sample(std::size_t size) {
    std::string result;
    for (std::size_t i = 0; i < size; ++i) result += static_cast<char>(i % 251);
    return result;
  }
  static void fill(text& t, std::size_t size) {
    for (const char c : sample(size)) t.append(c);
  }
};
using capacities = testing::Types<std::integral_constant<std::size_t, 128>,
                                  std::integral_constant<std::size_t, 1024>>;
TYPED_TEST_SUITE(mini_chars, capacities);

TYPED_TEST(mini_chars, are_empty_at_first) {
  typename TestFixture::text t;
  EXPECT_EQ(std::string(t), "");
}

TYPED_TEST(mini_chars, keep_every_character_around_the_capacity) {
  const std::size_t n = TestFixture::capacity;
  for (const std::size_t size : {std::size_t{1}, n - 1, n, n + 1, 2 * n, 3 * n + 1}) {
    typename TestFixture::text t;
    TestFixture::fill(t, size);
    EXPECT_EQ(std::string(t), TestFixture::sample(size)) << size;
    EXPECT_EQ(std::string(t), TestFixture::sample(size)) << "read again, " << size;
  }
}

TYPED_TEST(mini_chars, cost_nothing_up_to_the_capacity_and_something_from_the_next_one_on) {
  const std::size_t n = TestFixture::capacity;
  typename TestFixture::text t;
  const std::string sample = TestFixture::sample(n + 1);
  const tests::allocation_count count;
  for (std::size_t i = 0; i < n - 1; ++i) t.append(sample[i]);
  EXPECT_EQ(count.made(), 0);
  t.append(sample[n - 1]);
  EXPECT_EQ(count.made(), 0);
  t.append(sample[n]);
  EXPECT_GT(count.made(), 0);
  EXPECT_EQ(std::string(t), sample);
}

TYPED_TEST(mini_chars, give_the_heap_back_when_destroyed) {
  const tests::allocation_count count;
  {
    typename TestFixture::text t;
    TestFixture::fill(t, TestFixture::capacity + 1);
    EXPECT_GT(count.live(), 0);
  }
  EXPECT_EQ(count.live(), 0);
}

TYPED_TEST(mini_chars, give_the_heap_back_when_cleared_and_start_inline_again) {
  const std::size_t n = TestFixture::capacity;
  typename TestFixture::text t;
  const tests::allocation_count before;
  TestFixture::fill(t, n + 1);
  t.clear();
  EXPECT_EQ(before.live(), 0);
  EXPECT_EQ(std::string(t), "");

  const std::string sample = TestFixture::sample(n);
  const tests::allocation_count after;
  for (const char c : sample) t.append(c);
  EXPECT_EQ(after.made(), 0);
  EXPECT_EQ(std::string(t), sample);
}

TYPED_TEST(mini_chars, can_be_cleared_while_inline_and_while_empty) {
  typename TestFixture::text t;
  t.clear();
  t.append('a');
  t.clear();
  t.append('b');
  EXPECT_EQ(std::string(t), "b");
}

TYPED_TEST(mini_chars, take_whole_pieces_across_the_capacity) {
  const std::size_t n = TestFixture::capacity;
  const std::string sample = TestFixture::sample(3 * n);
  for (const std::size_t first : {std::size_t{0}, n - 1, n, n + 1}) {
    for (const std::size_t second : {std::size_t{0}, std::size_t{1}, std::size_t{2}, n}) {
      typename TestFixture::text t;
      t.append(sample.data(), first);
      t.append(sample.data() + first, second);
      EXPECT_EQ(std::string(t), sample.substr(0, first + second)) << first << "+" << second;
    }
  }
}

TYPED_TEST(mini_chars, keep_what_they_had_when_memory_runs_out) {
  const std::size_t n = TestFixture::capacity;
  const tests::allocation_count count;
  {
    typename TestFixture::text t;
    TestFixture::fill(t, n);
    {
      const tests::failing_allocations failing(0);
      EXPECT_THROW(t.append('x'), std::bad_alloc);
    }
    EXPECT_EQ(std::string(t), TestFixture::sample(n));
    t.append('x');
    EXPECT_EQ(std::string(t), TestFixture::sample(n) + 'x');
  }
  EXPECT_EQ(count.live(), 0);
}

}  // namespace
