// What must hold for a buffer and for a cache after every step. For tests and fuzzing only: they
// look at a buffer as the operations keep it.
#pragma once

#include <cstdint>
#include <string>
#include <type_traits>

#include "netbuf/cache.h"
#include "netbuf/chunk.h"
#include "netbuf/view_queue.h"

namespace tests {

/// The record behind a buffer's handle.
struct buffer_record {
  netbuf_imp::view_queue views;
  std::int32_t size;
};
static_assert(std::is_standard_layout_v<netbuf_imp::view> && sizeof(netbuf_imp::view) == 16);

inline buffer_record& record_of(void* handle) {
  return *static_cast<buffer_record*>(handle);
}

inline std::int32_t references_of(const netbuf_imp::view& v) {
  return __atomic_load_n(&v.chunk->references, __ATOMIC_ACQUIRE);
}

/// What is wrong with a buffer; empty if nothing is.
inline std::string fault_of_buffer(void* handle) {
  const buffer_record& b = record_of(handle);
  std::int64_t sum = 0;
  for (std::size_t i = 0; i < b.views.size(); ++i) {
    const netbuf_imp::view& v = b.views[i];
    const auto at = [i] { return "view " + std::to_string(i); };
    if (v.chunk == nullptr) return at() + " has no chunk";
    if (v.length < 1) return at() + " has length " + std::to_string(v.length);
    if (references_of(v) < 1) return at() + " has no reference on its chunk";
    if (v.offset < 0 || v.offset > v.chunk->capacity - v.length) return at() + " leaves its chunk";
    sum += v.length;
  }
  if (b.size == sum) return "";
  return "size " + std::to_string(b.size) + ", views of " + std::to_string(sum) + " bytes";
}

/// What is wrong with a cache that nobody uses meanwhile; empty if nothing is.
inline std::string fault_of_cache(const mirt::simple_item_cache<netbuf_imp::cache_mem>& cache) {
  std::uint64_t listed = 0;
  const char* last = nullptr;
  for (const char* item = cache.head; item != nullptr; item = cache.next(item)) {
    last = item;
    if (++listed > cache.total) return "more items on the list than were carved";
  }
  if (last != cache.tail) return "the tail is not the last item";
  if (listed == cache.free_count) return "";
  return "free count " + std::to_string(cache.free_count) + ", on the list " +
         std::to_string(listed);
}

}  // namespace tests
