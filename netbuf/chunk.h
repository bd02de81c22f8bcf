// Reference-counted blocks of bytes, and the views that buffers are made of.
//
// A view in a chunk:                      Two buffers that share one chunk (references 3):
//
//   chunk  data                             buffer A  [ view ]  [ view ]
//            |<------ capacity ----->|                   |         |
//            +-------+-------+-------+                   v         v
//            |       | bytes | free  |               +---------------------+
//            +-------+-------+-------+               |        chunk        |
//            |offset |length | tail  |               +---------------------+
//                                                           ^
//                                           buffer B  [ view ]
//
// Ownership: every view holds one reference on its chunk, and a new chunk comes with the reference
// of its first view. Who copies a view adds one, who removes a view gives one back by `dec`; the
// last one destroys the chunk. Nobody else touches the count.
// Threads: the count is atomic, so buffers of different threads may share chunks. Bytes may be
// changed in place only while `writable` says so.
#pragma once

#include <cstdint>

#include "mirt/sys/platform.h"
#include "netbuf/cache.h"

namespace netbuf_imp {

class chunk {
 public:
  virtual ~chunk() = default;
  chunk(const chunk&) = delete;
  chunk& operator=(const chunk&) = delete;

  /// Whether the holder of a reference may change the bytes: nobody else has one.
  virtual bool writable() const = 0;

  std::int32_t references = 1;  ///< changed by `view` alone
  char* data = nullptr;         ///< the first byte of the block
  std::int32_t capacity = 0;    ///< usable bytes

 protected:
  chunk() = default;

  /// With acquire order: what the last other holder did with the bytes is done.
  bool is_shared() const { return __atomic_load_n(&references, __ATOMIC_ACQUIRE) >= 2; }
};

/// A chunk whose block the module owns.
class nchunk final : public chunk {
 public:
  /// A block of at least `size` bytes, of the smallest class that has them where caches are in use,
  /// else of just that size. A class is passed over if its blocks have `limit` bytes or more (0: no
  /// limit). A class that is exhausted gives way to a plain block of the class's size.
  /// Throws std::bad_alloc.
  nchunk(int size, int limit);

  /// Adopts an array made by new[].
  nchunk(char* array, int size);

  ~nchunk() override;
  bool writable() const override { return !is_shared(); }

 private:
  void allocate(int size);

  mirt::simple_item_cache<cache_mem>* cache_ = nullptr;  // where the block goes back; null: plain
};

/// A chunk over memory that its creator supplied.
class cchunk final : public chunk {
 public:
  using release_callback = void (*)(void* context);

  /// `release` (may be null) is called once, when the last reference goes, on that thread. It must
  /// not touch the buffer that gives it up, and must not throw: that would end the process.
  cchunk(char* bytes, int size, bool may_write, release_callback release, void* context);
  ~cchunk() override;
  bool writable() const override { return may_write_ && !is_shared(); }

 private:
  const bool may_write_;
  const release_callback release_;
  void* const context_;
};

/// One piece of a buffer.
struct view {
  netbuf_imp::chunk* chunk;
  std::int32_t offset;  ///< of the first byte in the chunk's data
  std::int32_t length;  ///< in bytes

  char* begin() const { return chunk->data + offset; }

  /// Takes a further reference, for a copy of this view.
  void inc() const { mirt::platform::add_with_barrier(&chunk->references, 1); }

  /// Gives the reference back and destroys the chunk with the last one. Returns how many are left.
  std::int32_t dec() const {
    const std::int32_t left = mirt::platform::add_with_barrier(&chunk->references, -1);
    if (left == 0) delete chunk;
    return left;
  }
};

}  // namespace netbuf_imp
