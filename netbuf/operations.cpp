#include "netbuf/operations.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <new>
#include <utility>

#include "netbuf/cache.h"
#include "netbuf/chunk.h"
#include "netbuf/view_queue.h"

namespace netbuf_imp {
namespace {

constexpr std::int32_t all = std::numeric_limits<std::int32_t>::max();
constexpr std::size_t compaction_threshold = 129;  // views
constexpr std::int64_t largest_growth = 1048576;   // bytes of a new chunk, unless more are wanted

struct buffer {
  ~buffer() {
    for (std::size_t i = 0; i < views.size(); ++i) views[i].dec();
  }

  view_queue views;
  std::int32_t size = 0;  // the sum of the views' lengths
};

struct iterator {
  buffer* of;
  std::size_t at;
};

using release_callback = cchunk::release_callback;

// Every operation first does all that can fail, and then what changes the buffer.

/// The size of a buffer with `more` further bytes. Throws std::bad_alloc if no buffer is that big.
std::int32_t grown(const buffer& b, std::int32_t more) {
  if (more > all - b.size) throw std::bad_alloc();
  return b.size + more;
}

view& end_view(buffer& b, int at_end) {
  return at_end != 0 ? b.views.back() : b.views.front();
}

/// Requires: room in the queue.
void push(buffer& b, const view& v, int at_end) {
  if (at_end != 0) {
    b.views.push_back(v);
  } else {
    b.views.push_front(v);
  }
}

void pop(buffer& b, int at_end) {
  const view gone = end_view(b, at_end);
  if (at_end != 0) {
    b.views.pop_back();
  } else {
    b.views.pop_front();
  }
  gone.dec();
}

void drop_all(buffer& b) {
  while (!b.views.empty()) pop(b, 1);
  b.size = 0;
}

std::int32_t free_tail(const view& v) {
  return v.chunk->capacity - v.offset - v.length;
}

/// Copies the first `count` views, `bytes` in all, into `chunk` and puts it in their place.
/// Requires: they are two or more, or the first one alone; the chunk has room for them.
void join_front(buffer& b, std::size_t count, std::int32_t bytes, std::unique_ptr<nchunk> chunk) {
  char* to = chunk->data;
  for (std::size_t i = 0; i < count; ++i) {
    const view& v = b.views[i];
    to = std::copy_n(v.begin(), v.length, to);
  }
  for (std::size_t i = 0; i < count; ++i) pop(b, 0);
  b.views.push_front({chunk.release(), 0, bytes});  // there is room where the old views were
}

/// The chunk into which a buffer of so many views and bytes has to be compacted, or null: made
/// before the buffer is changed, so that running out of memory changes nothing.
std::unique_ptr<nchunk> room_to_compact(std::size_t views, std::int32_t bytes) {
  return views < compaction_threshold ? nullptr : std::make_unique<nchunk>(bytes, 0);
}

void compact(buffer& b, std::unique_ptr<nchunk> room) {
  if (room != nullptr) join_front(b, b.views.size(), b.size, std::move(room));
}

void check_compaction(buffer& b) {
  compact(b, room_to_compact(b.views.size(), b.size));
}

void setup(int first, int with_cache) {
  init(first != 0, with_cache != 0);
}

void setup_default() {
  setup(0, 1);
}

void setup_with(int first) {
  setup(first, 1);
}

buffer* create() {
  return new buffer;
}

void destroy(buffer* b) {
  delete b;
}

/// Shares `from` up to `length` bytes behind `offset` into the empty buffer `to`.
void share_range(buffer& to, buffer& from, std::int32_t offset, std::int32_t length) {
  to.views.reserve(from.views.size());
  for (std::size_t i = 0; i < from.views.size() && length > 0; ++i) {
    view piece = from.views[i];
    if (offset >= piece.length) {
      offset -= piece.length;
      continue;
    }
    piece.offset += offset;
    piece.length = std::min(piece.length - offset, length);
    offset = 0;
    length -= piece.length;
    piece.inc();
    to.views.push_back(piece);
    to.size += piece.length;
  }
}

buffer* sub(buffer* b, std::int32_t offset, std::int32_t length) {
  auto result = std::make_unique<buffer>();
  share_range(*result, *b, std::max(offset, 0), length);
  check_compaction(*result);
  return result.release();
}

std::int32_t size(const buffer* b) {
  return b->size;
}

void add_shared(buffer* to, buffer* from, int at_end) {
  const std::int32_t new_size = grown(*to, from->size);
  const std::size_t count = from->views.size();
  auto room = room_to_compact(to->views.size() + count, new_size);
  to->views.reserve(count);
  // In front of itself the copies come last to first, too: each time it is the view that has
  // become the last but the ones already copied.
  for (std::size_t i = 0; i < count; ++i) {
    const bool into_itself_in_front = to == from && at_end == 0;
    const std::size_t at = at_end != 0 ? i : into_itself_in_front ? count - 1 : count - 1 - i;
    const view copy = from->views[at];
    copy.inc();
    push(*to, copy, at_end);
  }
  to->size = new_size;
  compact(*to, std::move(room));
}

void add_array(buffer* b, char* array, std::int32_t length, int at_end) {
  if (length < 1) {
    delete[] array;
    return;
  }
  const std::int32_t new_size = grown(*b, length);
  auto room = room_to_compact(b->views.size() + 1, new_size);
  b->views.reserve(1);
  push(*b, {new nchunk(array, length), 0, length}, at_end);
  b->size = new_size;
  compact(*b, std::move(room));
}

/// A view of `count` bytes in a new chunk of at least `wanted` bytes. In front it lies at the
/// chunk's end, so that what comes before it finds room there.
view new_view(std::int32_t wanted, std::int32_t count, int at_end) {
  nchunk* const made = new nchunk(wanted, 0);
  return {made, at_end != 0 ? 0 : made->capacity - count, count};
}

char* reserve(buffer* b, std::int32_t count, int at_end) {
  if (count < 1) return nullptr;
  check_compaction(*b);
  const std::int32_t new_size = grown(*b, count);
  if (!b->views.empty()) {
    view& v = end_view(*b, at_end);
    if (v.chunk->writable() && (at_end != 0 ? free_tail(v) : v.offset) >= count) {
      if (at_end == 0) v.offset -= count;
      v.length += count;
      b->size = new_size;
      return at_end != 0 ? v.begin() + v.length - count : v.begin();
    }
  }
  b->views.reserve(1);
  const auto views = static_cast<std::int64_t>(b->views.size());
  const std::int64_t growth = std::min(128 * views + new_size / 4 + 128, largest_growth);
  const view made =
      new_view(static_cast<std::int32_t>(std::max<std::int64_t>(growth, count)), count, at_end);
  push(*b, made, at_end);
  b->size = new_size;
  return made.begin();
}

void reserve_any(buffer* b, std::int32_t count, int at_end, char** out, std::int32_t* out_length) {
  *out = nullptr;
  *out_length = 0;
  if (count < 1) return;
  check_compaction(*b);
  if (!b->views.empty()) {
    view& v = end_view(*b, at_end);
    const std::int32_t room = at_end != 0 ? free_tail(v) : v.offset;
    if (room > 0 && v.chunk->writable()) {
      const std::int32_t new_size = grown(*b, room);
      if (at_end == 0) v.offset = 0;
      v.length += room;
      b->size = new_size;
      *out = at_end != 0 ? v.begin() + v.length - room : v.begin();
      *out_length = room;
      return;
    }
  }
  const std::int32_t new_size = grown(*b, count);
  b->views.reserve(1);
  const view made = new_view(count, count, at_end);
  push(*b, made, at_end);
  b->size = new_size;
  *out = made.begin();
  *out_length = count;
}

/// Brings the front of a buffer that holds more than `wanted` bytes together. What is gathered may
/// deliberately exceed `wanted` by up to half of it.
void gather_front(buffer& b, std::int32_t wanted) {
  const std::int32_t half = wanted / 2;
  if (b.views.front().length > half) return;
  std::int32_t bytes = b.views.front().length;
  std::size_t count = 1;
  while (count < b.views.size() && bytes < wanted && b.views[count].length <= half) {
    bytes += b.views[count].length;
    ++count;
  }
  join_front(b, count, bytes, std::make_unique<nchunk>(bytes, 0));
}

void pullup(buffer* b, char** out, std::int32_t* out_length, std::int32_t wanted) {
  *out = nullptr;
  *out_length = 0;
  if (b->size < 1) return;
  if (b->views.size() >= 2) {
    if (b->size <= wanted) {
      join_front(*b, b->views.size(), b->size, std::make_unique<nchunk>(b->size, 0));
    } else {
      gather_front(*b, wanted);
    }
  }
  *out = b->views.front().begin();
  *out_length = b->views.front().length;
}

void drop(buffer* b, std::int32_t count, int from_back) {
  if (count < 1) return;
  if (count >= b->size) return drop_all(*b);
  b->size -= count;
  while (count >= end_view(*b, from_back).length) {
    count -= end_view(*b, from_back).length;
    pop(*b, from_back);
  }
  view& v = end_view(*b, from_back);
  if (from_back == 0) v.offset += count;
  v.length -= count;
}

void read(buffer* b, char* destination, std::int32_t count, int consume, int from_back) {
  count = std::min(b->size, count);
  if (count < 1) return;
  if (from_back != 0) {
    std::int32_t left = count;
    for (std::size_t i = b->views.size(); left > 0; --i) {
      const view& v = b->views[i - 1];
      const std::int32_t piece = std::min(v.length, left);
      left -= piece;
      std::memcpy(destination + left, v.begin() + v.length - piece,
                  static_cast<std::size_t>(piece));
    }
  } else {
    std::int32_t done = 0;
    for (std::size_t i = 0; done < count; ++i) {
      const view& v = b->views[i];
      const std::int32_t piece = std::min(v.length, count - done);
      std::memcpy(destination + done, v.begin(), static_cast<std::size_t>(piece));
      done += piece;
    }
  }
  if (consume != 0) drop(b, count, from_back);
}

int placeholder1(void*) {
  return 0;
}

void free_mem(void* memory) {
  std::free(memory);
}

void delete_object(void* object) {
  ::operator delete(object);
}

iterator* iter_begin(buffer* b) {
  return new iterator{b, 0};
}

iterator* iter_copy(const iterator* it) {
  return new iterator(*it);
}

bool iter_valid(const iterator* it) {
  return it->at < it->of->views.size();
}

std::int32_t iter_get(const iterator* it, char** out, std::int32_t* out_length) {
  const view& v = it->of->views[it->at];
  *out = v.begin();
  *out_length = v.length;
  return v.length;
}

void iter_next(iterator* it) {
  ++it->at;
}

char* alloc_array(std::int32_t count) {
  return count < 1 ? nullptr : new char[static_cast<std::size_t>(count)];
}

int placeholder2(void*) {
  return 0;
}

std::int32_t find_byte(const buffer* b, unsigned char byte, std::int32_t limit) {
  std::int32_t passed = 0;
  for (std::size_t i = 0; i < b->views.size() && passed < limit; ++i) {
    const view& v = b->views[i];
    const std::int32_t piece = std::min(v.length, limit - passed);
    if (const void* found = std::memchr(v.begin(), byte, static_cast<std::size_t>(piece))) {
      return passed + static_cast<std::int32_t>(static_cast<const char*>(found) - v.begin());
    }
    passed += piece;
  }
  return -1;
}

int compare(const buffer* b, const char* bytes, std::int32_t count) {
  std::int32_t done = 0;
  for (std::size_t i = 0; i < b->views.size() && done < count; ++i) {
    const view& v = b->views[i];
    const std::int32_t piece = std::min(v.length, count - done);
    const int order = std::memcmp(v.begin(), bytes + done, static_cast<std::size_t>(piece));
    if (order != 0) return order;
    done += piece;
  }
  return b->size > count ? 1 : b->size < count ? -1 : 0;
}

void add_external(buffer* b, char* data, std::int32_t length, int at_end, int writable,
                  release_callback release, void* context, int compact_it) {
  if (length < 1) {
    if (release != nullptr) release(context);
    return;
  }
  const std::int32_t new_size = grown(*b, length);
  b->views.reserve(1);
  view* const neighbour = b->views.empty() ? nullptr : &end_view(*b, at_end);
  std::unique_ptr<nchunk> copy;
  if (neighbour != nullptr && neighbour->chunk->capacity / neighbour->length >= 2) {
    // It must not pin a block more than twice its size for as long as the new view lies on it.
    const std::int64_t limit = std::int64_t{neighbour->length} * 2;
    copy = std::make_unique<nchunk>(neighbour->length,
                                    static_cast<std::int32_t>(std::min<std::int64_t>(limit, all)));
    std::copy_n(neighbour->begin(), neighbour->length, copy->data);
  }
  auto room = compact_it != 0 ? room_to_compact(b->views.size() + 1, new_size) : nullptr;
  auto made = std::make_unique<cchunk>(data, length, writable != 0, release, context);
  if (copy != nullptr) {
    const view wasteful = *neighbour;
    *neighbour = {copy.release(), 0, wasteful.length};
    wasteful.dec();
  }
  push(*b, {made.release(), 0, length}, at_end);
  b->size = new_size;
  compact(*b, std::move(room));
}

void add_external_compact(buffer* b, char* data, std::int32_t length, int at_end, int writable,
                          release_callback release, void* context) {
  add_external(b, data, length, at_end, writable, release, context, 1);
}

void move_buffer(buffer* to, buffer* from, int at_end) {
  if (from->size == 0 || to == from) return check_compaction(*to);
  const std::int32_t new_size = grown(*to, from->size);
  const std::size_t count = from->views.size();
  auto room = room_to_compact(to->views.size() + count, new_size);
  if (to->views.empty()) {
    to->views.swap(from->views);
  } else {
    to->views.reserve(count);
    for (std::size_t i = 0; i < count; ++i) {
      push(*to, from->views[at_end != 0 ? i : count - 1 - i], at_end);
    }
    from->views.clear();
  }
  to->size = new_size;
  from->size = 0;
  compact(*to, std::move(room));
}

template <class Function>
void* slot(Function* function) {
  return reinterpret_cast<void*>(function);
}

}  // namespace
}  // namespace netbuf_imp

void* _netbuf_impl[29] = {
    netbuf_imp::slot(netbuf_imp::setup_default),
    netbuf_imp::slot(netbuf_imp::destroy),
    netbuf_imp::slot(netbuf_imp::create),
    netbuf_imp::slot(netbuf_imp::sub),
    netbuf_imp::slot(netbuf_imp::size),
    netbuf_imp::slot(netbuf_imp::add_shared),
    netbuf_imp::slot(netbuf_imp::add_array),
    netbuf_imp::slot(netbuf_imp::reserve),
    netbuf_imp::slot(netbuf_imp::reserve_any),
    netbuf_imp::slot(netbuf_imp::pullup),
    netbuf_imp::slot(netbuf_imp::drop),
    netbuf_imp::slot(netbuf_imp::read),
    netbuf_imp::slot(netbuf_imp::placeholder1),
    netbuf_imp::slot(netbuf_imp::free_mem),
    netbuf_imp::slot(netbuf_imp::delete_object),
    netbuf_imp::slot(netbuf_imp::iter_begin),
    netbuf_imp::slot(netbuf_imp::iter_copy),
    netbuf_imp::slot(netbuf_imp::iter_valid),
    netbuf_imp::slot(netbuf_imp::iter_get),
    netbuf_imp::slot(netbuf_imp::iter_next),
    netbuf_imp::slot(netbuf_imp::alloc_array),
    netbuf_imp::slot(netbuf_imp::placeholder2),
    netbuf_imp::slot(netbuf_imp::add_external_compact),
    netbuf_imp::slot(netbuf_imp::find_byte),
    netbuf_imp::slot(netbuf_imp::compare),
    netbuf_imp::slot(netbuf_imp::add_external),
    netbuf_imp::slot(netbuf_imp::move_buffer),
    netbuf_imp::slot(netbuf_imp::setup_with),
    netbuf_imp::slot(netbuf_imp::setup),
};
