// Blocks of common sizes, carved from the system in batches and reused.
//
// Ownership: caches live until the process ends and never give memory back. A block belongs to who
// popped it until it is pushed back to the same cache.
// Threads: `pop` and `push` may be called from any thread. The set-up must be over before any
// thread makes a chunk; the flags that it leaves are not guarded.
#pragma once

#include <cstdint>
#include <cstring>

#include "mirt/sys/lock.h"

namespace netbuf_imp {

/// A block, as the caches hand it out: raw bytes of its class's size.
class cache_mem {
 public:
  char* bytes() { return reinterpret_cast<char*>(this); }
};

}  // namespace netbuf_imp

namespace mirt {

/// The blocks of one size. An item is a link to the next free item and the block behind it. Links
/// are only 4-byte aligned, because the stride is: they are read and written by memcpy.
template <class T>
class simple_item_cache {
 public:
  simple_item_cache(std::uint64_t item_stride, std::uint64_t batch_size, std::uint64_t batches)
      : stride(item_stride), items_per_batch(batch_size), batches_remaining(batches) {}
  virtual ~simple_item_cache() = default;  // deliberate: the batches are never given back
  simple_item_cache(const simple_item_cache&) = delete;
  simple_item_cache& operator=(const simple_item_cache&) = delete;

  /// A free block, the one that was pushed first; null if all batches are carved and in use.
  /// Throws std::bad_alloc when a batch cannot be had.
  T* pop() {
    rec_lock guard(lock);
    if (head != nullptr) {
      --free_count;
    } else {
      if (batches_remaining == 0) return nullptr;
      carve();
    }
    char* const item = head;
    head = next(item);
    if (head == nullptr) tail = nullptr;
    return reinterpret_cast<T*>(item + link_size);
  }

  /// Takes a block back. First in, first out, deliberately: it is reused after all that were given
  /// back before it.
  void push(T* block) {
    char* const item = reinterpret_cast<char*>(block) - link_size;
    rec_lock guard(lock);
    ++free_count;
    append(item);
  }

  static char* next(const char* item) {
    char* link;
    std::memcpy(&link, item, sizeof link);
    return link;
  }

  std::uint64_t total = 0;       ///< items ever carved
  std::uint64_t free_count = 0;  ///< items on the free list
  std::uint64_t stride;          ///< bytes per item, link included
  std::uint64_t items_per_batch;
  std::uint64_t batches_remaining;
  rec_mutex lock;  ///< guards all but stride and items_per_batch, which do not change
  char* head = nullptr;
  char* tail = nullptr;

 private:
  static constexpr std::size_t link_size = 8;

  /// Requires: the lock is held and the list is empty. One item counts as taken already.
  void carve() {
    char* const batch = new char[items_per_batch * stride];
    --batches_remaining;
    for (std::uint64_t i = 0; i < items_per_batch; ++i) append(batch + i * stride);
    total += items_per_batch;
    free_count += items_per_batch - 1;
  }

  /// Requires: the lock is held.
  void append(char* item) {
    set_next(item, nullptr);
    if (head == nullptr) {
      head = item;
    } else {
      set_next(tail, item);
    }
    tail = item;
  }

  static void set_next(char* item, char* link) { std::memcpy(item, &link, sizeof link); }
};

}  // namespace mirt

namespace netbuf_imp {

/// One row of the size classes, which end with a row of block size 0.
struct size_class {
  std::uint32_t max_batches;
  std::uint32_t items_per_batch;              ///< 0 means 64
  std::uint32_t block_size;                   ///< in bytes
  mirt::simple_item_cache<cache_mem>* cache;  ///< null until the caches are built
};

extern size_class size_classes[6];

extern bool caches_built;  ///< set by the first set-up
extern bool use_cache;     ///< recorded by it

/// Whether plain blocks are filled with zeros; for hosts that check memory. To be set before the
/// first chunk.
extern bool netbuf_memchecker;

/// The set-up: builds the caches if `use_cache`. Only the first call does anything. The first flag
/// is accepted and ignored.
void init(bool first, bool use_cache);

}  // namespace netbuf_imp
