// The naive model: slow, and as plain as can be.
#include "tests/netbuf/view_model.h"

#include <algorithm>

namespace tests {
namespace {

void fill(model_view& v, int from, int count, const std::string& text) {
  for (int i = 0; i < count; ++i) {
    v.chunk->bytes[static_cast<std::size_t>(v.offset + from + i)] =
        text[static_cast<std::size_t>(i) % text.size()];
  }
}

int capacity(const model_view& v) {
  return static_cast<int>(v.chunk->bytes.size());
}

bool writable(const model_view& v) {
  return v.chunk->may_write && v.chunk.use_count() == 1;
}

std::shared_ptr<model_chunk> new_chunk(int size) {
  auto made = std::make_shared<model_chunk>();
  made->bytes.resize(static_cast<std::size_t>(size));
  return made;
}

}  // namespace

int model_buffer::size() const {
  int sum = 0;
  for (const model_view& v : views) sum += v.length;
  return sum;
}

std::string model_buffer::bytes() const {
  std::string all;
  for (const model_view& v : views) all += v.bytes();
  return all;
}

int model_buffer::capacity_for(int size, int limit) const {
  if (!caches_) return size;
  for (const int block : {128, 512, 2048, 8192, 65536}) {
    if (block >= size) return limit == 0 || block < limit ? block : size;
  }
  return size;
}

void model_buffer::push(const model_view& v, bool at_end) {
  views.insert(at_end ? views.end() : views.begin(), v);
}

void model_buffer::join(std::size_t count) {
  std::string joined;
  for (std::size_t i = 0; i < count; ++i) {
    joined += views.front().bytes();
    views.pop_front();
  }
  const int length = static_cast<int>(joined.size());
  const auto chunk = new_chunk(capacity_for(length, 0));
  chunk->bytes.replace(0, joined.size(), joined);
  views.push_front({chunk, 0, length});
}

void model_buffer::check_compaction() {
  if (views.size() >= 129) join(views.size());
}

model_buffer model_buffer::sub(int offset, int length) const {
  model_buffer result(caches_);
  int at = 0;
  for (const model_view& v : views) {
    const int begin = std::max(offset, at);
    const auto end = static_cast<int>(
        std::min<std::int64_t>(std::int64_t{std::max(offset, 0)} + length, at + v.length));
    if (begin < end) result.views.push_back({v.chunk, v.offset + begin - at, end - begin});
    at += v.length;
  }
  result.check_compaction();
  return result;
}

void model_buffer::add_shared(const model_buffer& from, bool at_end) {
  const std::deque<model_view> copies = from.views;
  views.insert(at_end ? views.end() : views.begin(), copies.begin(), copies.end());
  check_compaction();
}

void model_buffer::add_array(const std::string& bytes, bool at_end) {
  const auto chunk = new_chunk(0);
  chunk->bytes = bytes;
  push({chunk, 0, static_cast<int>(bytes.size())}, at_end);
  check_compaction();
}

void model_buffer::add_external(const std::string& bytes, bool may_write, int* released,
                                bool at_end, bool compact) {
  if (bytes.empty()) {
    ++*released;
    return;
  }
  if (!views.empty() && capacity(end(at_end)) / end(at_end).length >= 2) {
    model_view& v = end(at_end);
    const auto copy = new_chunk(capacity_for(v.length, 2 * v.length));
    copy->bytes.replace(0, static_cast<std::size_t>(v.length), v.bytes());
    v = {copy, 0, v.length};
  }
  const auto chunk = new_chunk(0);
  chunk->bytes = bytes;
  chunk->may_write = may_write;
  chunk->released = released;
  push({chunk, 0, static_cast<int>(bytes.size())}, at_end);
  if (compact) check_compaction();
}

void model_buffer::push_new(int wanted, int count, bool at_end) {
  const int room = capacity_for(wanted, 0);
  push({new_chunk(room), at_end ? 0 : room - count, count}, at_end);
}

int model_buffer::reserve(int count, bool at_end, const std::string& text) {
  if (count < 1) return 0;
  check_compaction();
  const int new_size = size() + count;
  if (!views.empty() && writable(end(at_end)) &&
      (at_end ? capacity(end(true)) - end(true).offset - end(true).length : end(false).offset) >=
          count) {
    if (!at_end) end(false).offset -= count;
    end(at_end).length += count;
  } else {
    const int growth = std::min(128 * static_cast<int>(views.size()) + new_size / 4 + 128, 1048576);
    push_new(std::max(growth, count), count, at_end);
  }
  fill(end(at_end), at_end ? end(true).length - count : 0, count, text);
  return count;
}

int model_buffer::reserve_any(int count, bool at_end, const std::string& text) {
  if (count < 1) return 0;
  check_compaction();
  int taken = 0;
  if (!views.empty() && writable(end(at_end))) {
    model_view& v = end(at_end);
    taken = at_end ? capacity(v) - v.offset - v.length : v.offset;
    if (!at_end) v.offset = 0;
    v.length += taken;
  }
  if (taken == 0) {
    push_new(count, count, at_end);
    taken = count;
  }
  fill(end(at_end), at_end ? end(true).length - taken : 0, taken, text);
  return taken;
}

void model_buffer::pullup(int wanted) {
  if (views.size() < 2) return;
  if (size() <= wanted) return join(views.size());
  if (views.front().length > wanted / 2) return;
  std::size_t run = 1;
  for (int total = views[0].length; run < views.size() && total < wanted; ++run) {
    if (views[run].length > wanted / 2) break;
    total += views[run].length;
  }
  join(run);
}

void model_buffer::drop(int count, bool from_back) {
  while (count > 0 && !views.empty()) {
    model_view& v = end(from_back);
    if (count < v.length) {
      if (!from_back) v.offset += count;
      v.length -= count;
      return;
    }
    count -= v.length;
    from_back ? views.pop_back() : views.pop_front();
  }
}

void model_buffer::move_from(model_buffer& from, bool at_end) {
  if (&from != this) {
    views.insert(at_end ? views.end() : views.begin(), from.views.begin(), from.views.end());
    from.views.clear();
  }
  check_compaction();
}

}  // namespace tests
