#include "netbuf/chunk.h"

#include <cstring>

namespace netbuf_imp {
namespace {

/// The class for a block of `size` bytes under `limit`, or null.
size_class* find_class(int size, int limit) {
  for (size_class* row = size_classes; row->block_size != 0; ++row) {
    const auto block_size = static_cast<std::int32_t>(row->block_size);
    if (block_size < size) continue;  // signed: a negative size takes the first class
    return limit == 0 || block_size < limit ? row : nullptr;
  }
  return nullptr;
}

}  // namespace

nchunk::nchunk(int size, int limit) {
  const size_class* const chosen = use_cache ? find_class(size, limit) : nullptr;
  if (chosen == nullptr) {
    allocate(size);
  } else if (cache_mem* const block = chosen->cache->pop()) {
    cache_ = chosen->cache;
    data = block->bytes();
    capacity = static_cast<std::int32_t>(chosen->block_size);
  } else {
    allocate(static_cast<std::int32_t>(chosen->block_size));
  }
}

nchunk::nchunk(char* array, int size) {
  data = array;
  capacity = size;
}

nchunk::~nchunk() {
  if (cache_ != nullptr) {
    cache_->push(reinterpret_cast<cache_mem*>(data));
  } else {
    delete[] data;
  }
}

void nchunk::allocate(int size) {
  data = new char[static_cast<std::size_t>(size)];
  capacity = size;
  if (netbuf_memchecker) std::memset(data, 0, static_cast<std::size_t>(size));
}

cchunk::cchunk(char* bytes, int size, bool may_write, release_callback release, void* context)
    : may_write_(may_write), release_(release), context_(context) {
  data = bytes;
  capacity = size;
}

cchunk::~cchunk() {
  if (release_ != nullptr) release_(context_);
}

}  // namespace netbuf_imp
