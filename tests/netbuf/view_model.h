// A naive model of buffers: it knows every chunk, which views lie where on it, and all bytes.
// References are what shared_ptr counts.
#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <vector>

namespace tests {

struct model_chunk {
  std::string bytes;  // as many as the chunk's capacity
  bool may_write = true;
  int* released = nullptr;     // counted up at the chunk's end
  const void* real = nullptr;  // the chunk that it stands for, once seen

  ~model_chunk() {
    if (released != nullptr) ++*released;
  }
};

struct model_view {
  std::shared_ptr<model_chunk> chunk;
  int offset;
  int length;

  std::string bytes() const {
    return chunk->bytes.substr(static_cast<std::size_t>(offset), static_cast<std::size_t>(length));
  }
};

class model_buffer {
 public:
  explicit model_buffer(bool caches) : caches_(caches) {}

  std::deque<model_view> views;

  int size() const;
  std::string bytes() const;

  model_buffer sub(int offset, int length) const;
  void add_shared(const model_buffer& from, bool at_end);
  void add_array(const std::string& bytes, bool at_end);
  void add_external(const std::string& bytes, bool may_write, int* released, bool at_end,
                    bool compact);
  /// Both make as many bytes part of the buffer as the text has or, for `any`, as there is room,
  /// and fill them from the text, over and over. How many bytes that were.
  int reserve(int count, bool at_end, const std::string& text);
  int reserve_any(int count, bool at_end, const std::string& text);
  void pullup(int wanted);
  void drop(int count, bool from_back);
  void move_from(model_buffer& from, bool at_end);

 private:
  int capacity_for(int size, int limit) const;
  model_view& end(bool back) { return back ? views.back() : views.front(); }
  void push(const model_view& v, bool at_end);
  void push_new(int wanted, int count, bool at_end);
  void join(std::size_t count);
  void check_compaction();

  bool caches_;
};

}  // namespace tests
