// What happens when every block of a class is taken, and how they come back.
#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "netbuf/chunk.h"
#include "tests/netbuf/checkers.h"

namespace {

using netbuf_imp::nchunk;
using netbuf_imp::size_classes;
using tests::fault_of_cache;

using chunks = std::vector<std::unique_ptr<nchunk>>;

constexpr std::size_t blocks = 1000 * 256;

/// Takes every block of the first class.
chunks exhaust_first_class() {
  netbuf_imp::init(false, true);
  chunks taken;
  for (std::size_t i = 0; i < blocks; ++i) {
    taken.push_back(std::make_unique<nchunk>(100, 0));
    // Each one belongs to its holder alone.
    std::memset(taken.back()->data, static_cast<int>(i % 251), 128);
  }
  return taken;
}

void expect_state(std::uint64_t total, std::uint64_t free, std::uint64_t batches) {
  const auto& cache = *size_classes[0].cache;
  EXPECT_EQ(cache.total, total);
  EXPECT_EQ(cache.free_count, free);
  EXPECT_EQ(cache.batches_remaining, batches);
  EXPECT_EQ(fault_of_cache(cache), "");
}

TEST(exhausted_class, gives_way_to_plain_blocks_of_its_size) {
  const chunks taken = exhaust_first_class();
  expect_state(blocks, 0, 0);
  for (const int size : {100, 1, 0, -1}) {
    nchunk plain(size, 0);
    EXPECT_EQ(plain.capacity, 128);
    std::memset(plain.data, 'p', 128);
  }
  EXPECT_EQ(nchunk(100, 200).capacity, 128);
  EXPECT_EQ(nchunk(100, 128).capacity, 100);
  EXPECT_EQ(nchunk(129, 0).capacity, 512);
  expect_state(blocks, 0, 0);  // a plain block does not go to the cache
  for (std::size_t i = 0; i < blocks; ++i) {
    ASSERT_EQ(taken[i]->data[0], static_cast<char>(i % 251));
    ASSERT_EQ(taken[i]->data[127], static_cast<char>(i % 251));
  }
}

TEST(exhausted_class, zeroes_its_plain_blocks_for_the_memchecker) {
  const chunks taken = exhaust_first_class();
  netbuf_imp::netbuf_memchecker = true;
  {
    const nchunk dirty(100, 0);
    std::memset(dirty.data, 'd', 128);
  }
  const nchunk plain(100, 0);
  netbuf_imp::netbuf_memchecker = false;
  EXPECT_EQ(std::string(plain.data, 128), std::string(128, '\0'));
}

TEST(exhausted_class, hands_returned_blocks_out_first_in_first_out) {
  chunks taken = exhaust_first_class();
  std::vector<char*> returned;
  for (const std::size_t i : {77777UL, 3UL, blocks - 1, 0UL}) {
    returned.push_back(taken[i]->data);
    taken[i].reset();
  }
  expect_state(blocks, 4, 0);
  chunks again;
  for (char* const block : returned) {
    again.push_back(std::make_unique<nchunk>(100, 0));
    EXPECT_EQ(again.back()->data, block);
  }
  expect_state(blocks, 0, 0);
}

TEST(exhausted_class, is_whole_again_when_all_are_returned) {
  exhaust_first_class().clear();
  expect_state(blocks, blocks, 0);
}

TEST(last_class, holds_50_blocks_for_each_of_32_batches) {
  netbuf_imp::init(false, true);
  chunks taken;
  for (int i = 0; i < 50; ++i) taken.push_back(std::make_unique<nchunk>(65536, 0));
  const auto& cache = *size_classes[4].cache;
  EXPECT_EQ(cache.total, 50U);
  EXPECT_EQ(cache.free_count, 0U);
  EXPECT_EQ(cache.batches_remaining, 31U);
  taken.push_back(std::make_unique<nchunk>(65536, 0));
  EXPECT_EQ(cache.total, 100U);
  EXPECT_EQ(cache.free_count, 49U);
  EXPECT_EQ(fault_of_cache(cache), "");
}

}  // namespace
