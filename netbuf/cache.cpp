#include "netbuf/cache.h"

#include "mirt/sys/immortal.h"

namespace netbuf_imp {

size_class size_classes[6] = {
    {256, 1000, 128, nullptr}, {256, 500, 512, nullptr}, {64, 500, 2048, nullptr},
    {64, 150, 8192, nullptr},  {32, 50, 65536, nullptr}, {0, 0, 0, nullptr},
};

bool caches_built = false;
bool use_cache = false;
bool netbuf_memchecker = false;

void init(bool, bool with_cache) {
  if (caches_built) return;
  for (size_class* row = size_classes; with_cache && row->block_size != 0; ++row) {
    if (row->cache != nullptr) continue;  // from a set-up that ran out of memory
    // Deliberate: four bytes more than the link needs.
    const std::uint64_t stride = row->block_size - 4 + 16;
    const std::uint64_t batch = row->items_per_batch != 0 ? row->items_per_batch : 64;
    row->cache =
        mirt::immortal<mirt::simple_item_cache<cache_mem>>(stride, batch, row->max_batches);
  }
  caches_built = true;
  use_cache = with_cache;
}

}  // namespace netbuf_imp
