// netbuf/chunk.h: which block a chunk takes, when its bytes may be changed, and what the last
// reference does.
#include "netbuf/chunk.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <thread>

#include "tests/netbuf/checkers.h"
#include "tests/support/slots.h"

// Fresh arrays are dirty here, so that zeros in one are somebody's deed.
void* operator new[](std::size_t size) {
  // Asked for so much, a sanitizer's malloc ends the process.
  void* const memory = size >> 40 != 0 ? nullptr : std::malloc(size == 0 ? 1 : size);
  if (memory == nullptr) throw std::bad_alloc();
  return std::memset(memory, 'x', size);
}
void operator delete[](void* memory) noexcept {
  std::free(memory);
}
void operator delete[](void* memory, std::size_t) noexcept {
  std::free(memory);
}

namespace {

using netbuf_imp::cchunk;
using netbuf_imp::nchunk;
using netbuf_imp::size_classes;
using netbuf_imp::view;
using tests::fault_of_cache;

constexpr int lowest = std::numeric_limits<int>::min(), highest = std::numeric_limits<int>::max();

void use_caches(bool yes) {
  netbuf_imp::init(false, true);
  netbuf_imp::use_cache = yes;
}

/// The class whose cache has one block less at hand while the chunk lives, -1 if none has.
int class_of(int size, int limit) {
  std::uint64_t taken_before[5];
  for (int i = 0; i < 5; ++i) {
    taken_before[i] = size_classes[i].cache->total - size_classes[i].cache->free_count;
  }
  const nchunk made(size, limit);
  for (int i = 0; i < 5; ++i) {
    if (size_classes[i].cache->total - size_classes[i].cache->free_count != taken_before[i]) {
      return i;
    }
  }
  return -1;
}

TEST(nchunk, takes_the_smallest_class_that_is_large_enough) {
  use_caches(true);
  const struct {
    int size, capacity, of_class;
  } rows[] = {
      {0, 128, 0},        {1, 128, 0},        {127, 128, 0},     {128, 128, 0},
      {129, 512, 1},      {511, 512, 1},      {512, 512, 1},     {513, 2048, 2},
      {2047, 2048, 2},    {2048, 2048, 2},    {2049, 8192, 3},   {8191, 8192, 3},
      {8192, 8192, 3},    {8193, 65536, 4},   {65535, 65536, 4}, {65536, 65536, 4},
      {65537, 65537, -1}, {65538, 65538, -1}, {-1, 128, 0},      {lowest, 128, 0},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.size);
    EXPECT_EQ(nchunk(row.size, 0).capacity, row.capacity);
    EXPECT_EQ(class_of(row.size, 0), row.of_class);
  }
}

TEST(nchunk, takes_a_class_only_if_its_blocks_stay_below_the_limit) {
  use_caches(true);
  const struct {
    int size, limit, capacity, of_class;
  } rows[] = {
      {100, 200, 128, 0},          {100, 129, 128, 0},     {100, 128, 100, -1},
      {100, 127, 100, -1},         {100, 1, 100, -1},      {100, -1, 100, -1},
      {100, lowest, 100, -1},      {100, highest, 128, 0}, {1000, 2000, 1000, -1},
      {1000, 2048, 1000, -1},      {1000, 2049, 2048, 2},  {63, 126, 63, -1},
      {64, 128, 64, -1},           {65, 130, 128, 0},      {256, 512, 256, -1},
      {257, 514, 512, 1},          {0, 1, 0, -1},          {65536, 131072, 65536, 4},
      {65537, highest, 65537, -1},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(std::to_string(row.size) + " below " + std::to_string(row.limit));
    EXPECT_EQ(nchunk(row.size, row.limit).capacity, row.capacity);
    EXPECT_EQ(class_of(row.size, row.limit), row.of_class);
  }
}

TEST(nchunk, without_caches_has_exactly_what_was_asked_for) {
  use_caches(false);
  for (const int size : {0, 1, 127, 128, 129, 65536, 65537}) {
    for (const int limit : {0, 1, 2 * size}) {
      EXPECT_EQ(nchunk(size, limit).capacity, size);
      EXPECT_EQ(class_of(size, limit), -1);
    }
  }
}

TEST(nchunk, starts_with_one_reference_and_a_block) {
  for (const bool caches : {true, false}) {
    use_caches(caches);
    nchunk made(300, 0);
    EXPECT_EQ(made.references, 1);
    ASSERT_NE(made.data, nullptr);
    std::memset(made.data, 'a', static_cast<std::size_t>(made.capacity));
    EXPECT_EQ(made.data[made.capacity - 1], 'a');
  }
}

TEST(nchunk, gives_its_block_back_to_the_cache_it_came_from) {
  use_caches(true);
  auto made = std::make_unique<nchunk>(600, 0);
  char* const block = made->data;
  const auto& cache = *size_classes[2].cache;
  const std::uint64_t free_before = cache.free_count;
  netbuf_imp::use_cache = false;  // whatever is the fashion meanwhile
  made.reset();
  EXPECT_EQ(cache.free_count, free_before + 1);
  EXPECT_EQ(cache.tail + 8, block);
  EXPECT_EQ(fault_of_cache(cache), "");
}

TEST(nchunk, adopts_an_array) {
  char* const array = new char[5];
  const nchunk made(array, 5);
  EXPECT_EQ(made.data, array);
  EXPECT_EQ(made.capacity, 5);
  EXPECT_EQ(made.references, 1);
  EXPECT_TRUE(made.writable());
}

TEST(nchunk, of_negative_size_without_caches_finds_no_memory) {
  use_caches(false);
  EXPECT_THROW(nchunk(-1, 0), std::bad_alloc);
  EXPECT_THROW(nchunk(lowest, 0), std::bad_alloc);
}

TEST(nchunk, is_writable_up_to_its_second_reference) {
  nchunk made(10, 0);
  EXPECT_TRUE(made.writable());
  made.references = 2;
  EXPECT_FALSE(made.writable());
  made.references = 3;
  EXPECT_FALSE(made.writable());
  made.references = 1;
  EXPECT_TRUE(made.writable());
}

TEST(memchecker, zeroes_plain_blocks_only) {
  for (const bool zeroes : {true, false}) {
    netbuf_imp::netbuf_memchecker = zeroes;
    use_caches(false);
    EXPECT_EQ(std::string(nchunk(300, 0).data, 300), std::string(300, zeroes ? '\0' : 'x'));
    use_caches(true);
    EXPECT_EQ(std::string(nchunk(65537, 0).data, 65537), std::string(65537, zeroes ? '\0' : 'x'));
    EXPECT_EQ(std::string(nchunk(300, 301).data, 300), std::string(300, zeroes ? '\0' : 'x'));
    // Of a fresh batch, which has the dirt of its allocation.
    EXPECT_EQ(std::string(nchunk(9000, 0).data, 65536), std::string(65536, 'x'));
  }
  netbuf_imp::netbuf_memchecker = false;
}

int g_released = 0;
void release(void* context) {
  EXPECT_EQ(context, &g_released);
  ++g_released;
}

TEST(cchunk, lies_over_the_memory_of_its_creator) {
  char bytes[7] = "abc";
  const cchunk made(bytes, 7, true, nullptr, nullptr);
  EXPECT_EQ(made.data, bytes);
  EXPECT_EQ(made.capacity, 7);
  EXPECT_EQ(made.references, 1);
}

TEST(cchunk, is_writable_if_its_creator_says_so_and_it_is_not_shared) {
  char bytes[1];
  cchunk yes(bytes, 1, true, nullptr, nullptr), no(bytes, 1, false, nullptr, nullptr);
  EXPECT_TRUE(yes.writable());
  EXPECT_FALSE(no.writable());
  yes.references = no.references = 2;
  EXPECT_FALSE(yes.writable());
  EXPECT_FALSE(no.writable());
}

TEST(cchunk, releases_its_memory_once_and_does_not_free_it) {
  char bytes[1] = {'a'};
  g_released = 0;
  { const cchunk made(bytes, 1, true, release, &g_released); }
  EXPECT_EQ(g_released, 1);
  EXPECT_EQ(bytes[0], 'a');
}

TEST(cchunk, without_a_callback_just_goes) {
  char bytes[1];
  delete new cchunk(bytes, 1, true, nullptr, bytes);
}

TEST(cchunk_death_test, an_exception_from_the_callback_ends_the_process) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  char bytes[1];
  auto* const made = new cchunk(
      bytes, 1, true, [](void*) { throw std::runtime_error("from the callback"); }, nullptr);
  EXPECT_DEATH(delete made, "from the callback");
  ::operator delete(static_cast<void*>(made));  // the child had it destroyed, not we
}

TEST(view, counts_references_and_destroys_with_the_last) {
  char bytes[4];
  g_released = 0;
  const view v{new cchunk(bytes, 4, true, release, &g_released), 1, 2};
  EXPECT_EQ(v.begin(), bytes + 1);
  v.inc();
  v.inc();
  EXPECT_EQ(v.chunk->references, 3);
  EXPECT_EQ(v.dec(), 2);
  EXPECT_EQ(v.dec(), 1);
  EXPECT_EQ(g_released, 0);
  EXPECT_EQ(v.dec(), 0);
  EXPECT_EQ(g_released, 1);
}

TEST(view, may_be_counted_by_two_threads) {
  char bytes[1];
  g_released = 0;
  const view v{new cchunk(bytes, 1, true, release, &g_released), 0, 1};
  const auto use = [&v] {
    for (int i = 0; i < 20000; ++i) {
      v.inc();
      v.dec();
    }
    v.dec();
  };
  v.inc();
  std::thread other(use);
  use();
  other.join();
  EXPECT_EQ(g_released, 1);
}

TEST(view, of_another_thread_is_done_with_the_bytes_once_ours_is_writable) {
  const view v{new nchunk(1, 0), 0, 1};
  v.inc();
  std::thread other([&v] {
    *v.begin() = 'a';
    v.dec();
  });
  while (!v.chunk->writable()) std::this_thread::yield();
  EXPECT_EQ(*v.begin(), 'a');
  *v.begin() = 'b';
  other.join();
  v.dec();
}

TEST(chunk, has_its_fields_in_order_behind_the_virtual_table) {
  struct layout {
    void* table;
    std::int32_t references;
    char* data;
    std::int32_t capacity;
  };
  char bytes[6];
  cchunk made(bytes, 6, true, nullptr, nullptr);
  made.references = 9;
  layout seen;
  std::memcpy(&seen, static_cast<void*>(&made), sizeof seen);
  EXPECT_EQ(seen.references, 9);
  EXPECT_EQ(seen.data, bytes);
  EXPECT_EQ(seen.capacity, 6);
}

TEST(chunk, has_writable_in_the_third_slot_and_deletes_by_the_second) {
  char bytes[1];
  g_released = 0;
  auto* const yes = new cchunk(bytes, 1, true, release, &g_released);
  const cchunk no(bytes, 1, false, nullptr, nullptr);
  EXPECT_TRUE(tests::call_slot<bool>(yes, 2));
  EXPECT_FALSE(tests::call_slot<bool>(const_cast<cchunk*>(&no), 2));
  tests::call_slot<void>(yes, 1);
  EXPECT_EQ(g_released, 1);
}

TEST(cchunk, has_flag_callback_and_context_in_order) {
  char bytes[1];
  const cchunk made(bytes, 1, true, release, &g_released);
  char seen[sizeof(cchunk)];
  std::memcpy(seen, static_cast<const void*>(&made), sizeof seen);
  static_assert(sizeof(cchunk) == 48);
  void (*callback)(void*);
  void* context;
  std::memcpy(&callback, seen + 32, sizeof callback);
  std::memcpy(&context, seen + 40, sizeof context);
  EXPECT_EQ(seen[28], 1);
  EXPECT_EQ(callback, release);
  EXPECT_EQ(context, &g_released);
}

TEST(nchunk, ends_with_its_cache) {
  use_caches(true);
  static_assert(sizeof(nchunk) == 40);
  const auto last_word = [](const nchunk& made) {
    void* word;
    std::memcpy(&word, reinterpret_cast<const char*>(&made) + 32, sizeof word);
    return word;
  };
  EXPECT_EQ(last_word(nchunk(129, 0)), size_classes[1].cache);
  EXPECT_EQ(last_word(nchunk(65537, 0)), nullptr);
}

}  // namespace
