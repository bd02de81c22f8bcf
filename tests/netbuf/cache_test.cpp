// netbuf/cache.h: batches, first-in first-out reuse, the size classes and the set-up.
#include "netbuf/cache.h"

#include <gtest/gtest.h>

#include <list>
#include <new>
#include <thread>
#include <type_traits>
#include <vector>

#include "netbuf/operations.h"
#include "tests/netbuf/checkers.h"
#include "tests/support/allocations.h"
#include "tests/support/new_process.h"
#include "tests/support/slots.h"

namespace {

using netbuf_imp::cache_mem;
using netbuf_imp::size_classes;
using tests::fault_of_cache;
using tests::in_new_process;

using cache = mirt::simple_item_cache<cache_mem>;

constexpr std::uint64_t stride = 140;

static_assert(sizeof(netbuf_imp::caches_built) == 1 && sizeof(netbuf_imp::use_cache) == 1 &&
              sizeof(netbuf_imp::netbuf_memchecker) == 1);
static_assert(std::extent_v<decltype(size_classes)> == 6);

/// A cache that lives on, as all do: it never gives its batches back.
cache& new_cache(std::uint64_t batch_size, std::uint64_t batches) {
  static std::list<cache>& caches = *new std::list<cache>;
  return caches.emplace_back(stride, batch_size, batches);
}

/// Blocks that stay taken; kept in sight of the leak search.
std::vector<cache_mem*>& taken() {
  static std::vector<cache_mem*>& blocks = *new std::vector<cache_mem*>;
  return blocks;
}

cache_mem* pop(cache& from) {
  cache_mem* const block = from.pop();
  EXPECT_EQ(fault_of_cache(from), "");
  if (block != nullptr) taken().push_back(block);
  return block;
}

void push(cache& to, cache_mem* block) {
  to.push(block);
  EXPECT_EQ(fault_of_cache(to), "");
}

void expect_state(const cache& c, std::uint64_t total, std::uint64_t free, std::uint64_t batches) {
  EXPECT_EQ(c.total, total);
  EXPECT_EQ(c.free_count, free);
  EXPECT_EQ(c.batches_remaining, batches);
}

TEST(cache, carves_nothing_before_the_first_pop) {
  const cache& c = new_cache(3, 2);
  expect_state(c, 0, 0, 2);
  EXPECT_EQ(c.head, nullptr);
  EXPECT_EQ(c.tail, nullptr);
  EXPECT_EQ(c.stride, stride);
  EXPECT_EQ(c.items_per_batch, 3U);
}

TEST(cache, carves_one_batch_at_a_time_until_none_is_left) {
  cache& c = new_cache(3, 2);
  pop(c);
  expect_state(c, 3, 2, 1);
  pop(c);
  pop(c);
  expect_state(c, 3, 0, 1);
  pop(c);
  expect_state(c, 6, 2, 0);
  pop(c);
  pop(c);
  EXPECT_EQ(pop(c), nullptr);
  expect_state(c, 6, 0, 0);
}

TEST(cache, hands_a_batch_out_in_address_order_eight_bytes_behind_each_link) {
  cache& c = new_cache(3, 1);
  char* const first = pop(c)->bytes();
  EXPECT_EQ(c.head, first - 8 + stride);
  EXPECT_EQ(c.tail, first - 8 + 2 * stride);
  EXPECT_EQ(pop(c)->bytes(), first + stride);
  EXPECT_EQ(pop(c)->bytes(), first + 2 * stride);
}

TEST(cache, of_one_item_per_batch_works) {
  cache& c = new_cache(1, 2);
  cache_mem* const first = pop(c);
  expect_state(c, 1, 0, 1);
  EXPECT_NE(pop(c), first);
  EXPECT_EQ(pop(c), nullptr);
}

TEST(cache, reuses_blocks_in_the_order_they_were_returned) {
  cache& c = new_cache(4, 1);
  cache_mem* block[4];
  for (cache_mem*& b : block) b = pop(c);
  for (const int i : {2, 0, 3, 1}) push(c, block[i]);
  for (const int i : {2, 0, 3, 1}) EXPECT_EQ(pop(c), block[i]);
}

TEST(cache, reuses_a_block_only_after_all_that_were_free_before_it) {
  cache& c = new_cache(3, 1);
  cache_mem* const first = pop(c);
  push(c, first);
  expect_state(c, 3, 3, 0);
  EXPECT_NE(pop(c), first);
  EXPECT_NE(pop(c), first);
  EXPECT_EQ(pop(c), first);
}

TEST(cache, takes_a_block_back_after_it_was_exhausted) {
  cache& c = new_cache(1, 1);
  cache_mem* const only = pop(c);
  EXPECT_EQ(pop(c), nullptr);
  push(c, only);
  EXPECT_EQ(c.head, c.tail);
  EXPECT_EQ(pop(c), only);
}

TEST(cache, leaves_the_bytes_of_a_block_to_its_user) {
  cache& c = new_cache(1, 1);
  cache_mem* const only = pop(c);
  std::memset(only->bytes(), 'b', stride - 8);
  push(c, only);
  EXPECT_EQ(std::string(pop(c)->bytes(), stride - 8), std::string(stride - 8, 'b'));
}

TEST(cache, that_finds_no_memory_for_a_batch_throws_and_keeps_it_for_later) {
  cache& c = new_cache(2, 1);
  bool thrown = false;
  try {
    const tests::failing_allocations failing(0);
    c.pop();
  } catch (const std::bad_alloc&) {
    thrown = true;
  }
  EXPECT_TRUE(thrown);
  EXPECT_EQ(fault_of_cache(c), "");
  std::thread([&c] { EXPECT_NE(c.pop(), nullptr); }).join();  // the lock is free again
}

TEST(cache, has_its_destructors_first_and_then_its_fields_in_order) {
  struct layout {
    void* table;
    std::uint64_t total, free_count, stride, items_per_batch, batches_remaining;
    mirt::rec_mutex lock;
    char *head, *tail;
  };
  static_assert(sizeof(layout) == sizeof(cache));
  cache& c = new_cache(2, 5);
  pop(c);
  const auto& seen = reinterpret_cast<const layout&>(c);
  EXPECT_EQ(seen.total, 2U);
  EXPECT_EQ(seen.free_count, 1U);
  EXPECT_EQ(seen.stride, stride);
  EXPECT_EQ(seen.items_per_batch, 2U);
  EXPECT_EQ(seen.batches_remaining, 4U);
  EXPECT_EQ(&seen.lock, &c.lock);
  EXPECT_EQ(seen.head, c.head);
  EXPECT_EQ(seen.tail, c.tail);
}

TEST(cache, has_its_deleting_destructor_in_the_second_slot) {
  const tests::allocation_count count;
  auto* const c = new cache(stride, 2, 1);
  ASSERT_EQ(count.live(), 1);
  tests::call_slot<void>(c, 1);
  EXPECT_EQ(count.live(), 0);
}

TEST(cache, keeps_its_batches_when_it_is_destroyed) {
  auto* const c = new cache(stride, 2, 1);
  cache_mem* const block = pop(*c);
  delete c;
  std::memset(block->bytes(), 'x', stride - 8);  // still there, as a sanitizer would tell
  EXPECT_EQ(block->bytes()[0], 'x');
}

TEST(cache, may_be_used_by_two_threads) {
  cache& c = new_cache(10, 10);
  const auto use = [&c] {
    for (int round = 0; round < 2000; ++round) {
      cache_mem* const block = c.pop();
      ASSERT_NE(block, nullptr);
      ++block->bytes()[0];
      c.push(block);
    }
  };
  std::thread other(use);
  use();
  other.join();
  EXPECT_EQ(fault_of_cache(c), "");
  EXPECT_EQ(c.free_count, c.total);
}

constexpr netbuf_imp::size_class shipped[] = {
    {256, 1000, 128, nullptr}, {256, 500, 512, nullptr}, {64, 500, 2048, nullptr},
    {64, 150, 8192, nullptr},  {32, 50, 65536, nullptr}, {0, 0, 0, nullptr},
};

void expect_shipped_classes() {
  for (int i = 0; i < 6; ++i) {
    SCOPED_TRACE(i);
    EXPECT_EQ(size_classes[i].max_batches, shipped[i].max_batches);
    EXPECT_EQ(size_classes[i].items_per_batch, shipped[i].items_per_batch);
    EXPECT_EQ(size_classes[i].block_size, shipped[i].block_size);
  }
}

void expect_caches(bool built) {
  for (const netbuf_imp::size_class& row : size_classes) {
    EXPECT_EQ(row.cache != nullptr, built && row.block_size != 0) << row.block_size;
  }
}

TEST(size_class, holds_batches_items_size_and_cache_in_that_order) {
  static_assert(sizeof(netbuf_imp::size_class) == 24);
  static_assert(offsetof(netbuf_imp::size_class, max_batches) == 0);
  static_assert(offsetof(netbuf_imp::size_class, items_per_batch) == 4);
  static_assert(offsetof(netbuf_imp::size_class, block_size) == 8);
  static_assert(offsetof(netbuf_imp::size_class, cache) == 16);
  expect_shipped_classes();
}

TEST(setup, has_not_happened_before_its_first_call) {
  in_new_process([] {
    EXPECT_FALSE(netbuf_imp::caches_built);
    EXPECT_FALSE(netbuf_imp::use_cache);
    EXPECT_FALSE(netbuf_imp::netbuf_memchecker);
    expect_caches(false);
  });
}

TEST(setup, with_caches_builds_an_empty_one_per_class) {
  for (const bool first : {false, true}) {
    in_new_process([first] {
      netbuf_imp::init(first, true);
      EXPECT_TRUE(netbuf_imp::caches_built);
      EXPECT_TRUE(netbuf_imp::use_cache);
      expect_caches(true);
      expect_shipped_classes();
      for (int i = 0; i < 5; ++i) {
        SCOPED_TRACE(i);
        const cache& c = *size_classes[i].cache;
        expect_state(c, 0, 0, shipped[i].max_batches);
        EXPECT_EQ(c.stride, shipped[i].block_size + 12);
        EXPECT_EQ(c.items_per_batch, shipped[i].items_per_batch);
        EXPECT_EQ(c.head, nullptr);
      }
    });
  }
}

TEST(setup, of_a_class_without_items_per_batch_takes_64) {
  in_new_process([] {
    size_classes[1].items_per_batch = 0;
    netbuf_imp::init(false, true);
    EXPECT_EQ(size_classes[1].cache->items_per_batch, 64U);
  });
}

TEST(setup, without_caches_builds_none) {
  in_new_process([] {
    netbuf_imp::init(true, false);
    EXPECT_TRUE(netbuf_imp::caches_built);
    EXPECT_FALSE(netbuf_imp::use_cache);
    expect_caches(false);
  });
}

TEST(setup, changes_nothing_at_its_second_call) {
  for (const bool cached : {false, true}) {
    for (const bool first : {false, true}) {
      in_new_process([cached, first] {
        netbuf_imp::init(false, cached);
        cache* const before = size_classes[0].cache;
        netbuf_imp::init(first, true);
        netbuf_imp::init(first, false);
        EXPECT_EQ(netbuf_imp::use_cache, cached);
        EXPECT_EQ(size_classes[0].cache, before);
        expect_caches(cached);
      });
    }
  }
}

template <class Function, class... Arguments>
void call_slot_of_table(int slot, Arguments... arguments) {
  reinterpret_cast<Function*>(_netbuf_impl[slot])(arguments...);
}

TEST(setup, is_slots_0_27_and_28_of_the_operations) {
  in_new_process([] {
    call_slot_of_table<void()>(0);
    expect_caches(true);
  });
  for (const int first : {0, 1}) {
    in_new_process([first] {
      call_slot_of_table<void(int)>(27, first);
      expect_caches(true);
    });
    in_new_process([first] {
      call_slot_of_table<void(int, int)>(28, first, 1);
      expect_caches(true);
    });
    in_new_process([first] {
      call_slot_of_table<void(int, int)>(28, first, 0);
      EXPECT_TRUE(netbuf_imp::caches_built);
      expect_caches(false);
      call_slot_of_table<void()>(0);
      call_slot_of_table<void(int)>(27, first);
      expect_caches(false);
    });
  }
}

TEST(setup, that_finds_no_memory_leaves_a_runtime_that_still_makes_chunks) {
  for (const long good : {0L, 1L, 4L}) {
    SCOPED_TRACE(good);
    in_new_process([good] {
      bool thrown = false;
      try {
        const tests::failing_allocations failing(good);
        netbuf_imp::init(false, true);
      } catch (const std::bad_alloc&) {
        thrown = true;
      }
      EXPECT_TRUE(thrown);
      for (const int size : {128, 65536}) delete new netbuf_imp::nchunk(size, 0);
    });
  }
}

}  // namespace
