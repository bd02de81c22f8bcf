// Seeding of random numbers.
#include "mirt/sys/random.h"

#include <gtest/gtest.h>

#include <random>

#include "tests/support/new_process.h"

namespace {

TEST(random_state, is_filled_from_its_seed_by_the_standard_initialisation) {
  const mirt::random_state state(5489);
  EXPECT_EQ(state.words[0], 5489U);
  EXPECT_EQ(state.words[1], 1301868182U);
  EXPECT_EQ(state.words[2], 2938499221U);
  EXPECT_EQ(state.words[3], 2950281878U);
  EXPECT_EQ(state.words[4], 1875628136U);
}

TEST(random_state, has_624_words_and_stands_at_words_0_1_and_397) {
  const mirt::random_state state(1);
  EXPECT_EQ(sizeof state.words, 624 * 4U);
  EXPECT_EQ(state.current, state.words + 0);
  EXPECT_EQ(state.next, state.words + 1);
  EXPECT_EQ(state.shifted, state.words + 397);
}

/// The textbook's way to draw from a state, its three positions moving round through the words.
std::uint32_t draw(mirt::random_state& state) {
  const std::uint32_t joined = (*state.current & 0x80000000U) | (*state.next & 0x7fffffffU);
  std::uint32_t y = *state.shifted ^ (joined >> 1) ^ ((joined & 1) != 0 ? 0x9908b0dfU : 0U);
  *state.current = y;
  for (std::uint32_t** position : {&state.current, &state.next, &state.shifted}) {
    if (++*position == state.words + mirt::random_state::size) *position = state.words;
  }
  y ^= y >> 11;
  y ^= (y << 7) & 0x9d2c5680U;
  y ^= (y << 15) & 0xefc60000U;
  return y ^ (y >> 18);
}

TEST(random_state, gives_the_numbers_of_mt19937) {
  for (const std::uint32_t seed : {0U, 1U, 5489U, 4294967295U}) {
    SCOPED_TRACE(seed);
    mirt::random_state state(seed);
    std::mt19937 expected(seed);
    for (int i = 0; i < 2000; ++i) ASSERT_EQ(draw(state), expected()) << i;
  }
}

TEST(init_rand, makes_the_state_with_its_own_lock) {
  tests::in_new_process([] {
    EXPECT_EQ(mirt::g_random_state, nullptr);
    mirt::init_rand();
    ASSERT_NE(mirt::g_random_state, nullptr);
    mirt::rec_lock outer(mirt::g_random_state->lock);
    mirt::rec_lock inner(mirt::g_random_state->lock);
    EXPECT_EQ(mirt::g_random_state->shifted, mirt::g_random_state->words + 397);
  });
}

TEST(init_rand, leaves_a_hosts_random_numbers_alone) {
  tests::in_new_process([] {
    EXPECT_EQ(mirt::x_rand, nullptr);
    int host = 0;
    mirt::x_rand = &host;
    mirt::init_rand();
    EXPECT_EQ(mirt::x_rand, &host);
  });
}

}  // namespace
