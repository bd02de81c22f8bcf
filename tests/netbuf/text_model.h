// Buffers beside the plain texts that they should hold, and one step on them that somebody's
// choices determine. For what cannot know the views: fuzzing, and threads that share chunks.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "netbuf/netbuf.h"
#include "tests/netbuf/checkers.h"

namespace tests {

/// Memory that a buffer gives back to nobody but this. Giving back twice frees it twice.
struct counted_memory {
  std::string bytes;

  static inline std::atomic<int> live = 0;

  explicit counted_memory(std::string text) : bytes(std::move(text)) { ++live; }
  ~counted_memory() { --live; }
  counted_memory(const counted_memory&) = delete;
  counted_memory& operator=(const counted_memory&) = delete;

  static void release(void* context) { delete static_cast<counted_memory*>(context); }
};

struct text_buffer {
  std::unique_ptr<netbuf::buffer> real = std::make_unique<netbuf::buffer>();
  std::string text;

  std::string contents() const {
    std::string result;
    real->for_each([&result](netbuf::span piece) {
      result.append(piece.data, static_cast<std::size_t>(piece.length));
    });
    return result;
  }

  std::string fault() const {
    void* handle;
    static_assert(sizeof(netbuf::buffer) == sizeof handle);
    std::memcpy(&handle, real.get(), sizeof handle);
    const std::string of_views = fault_of_buffer(handle);
    if (!of_views.empty()) return of_views;
    if (real->size() != static_cast<std::int32_t>(text.size())) return "another size";
    return contents() == text ? "" : "other bytes";
  }
};

/// Works on some buffers as `choose(n)`, a number from 0 to n - 1, says.
template <class Choose>
class text_steps {
 public:
  text_steps(std::vector<text_buffer>& buffers, Choose& choose)
      : buffers_(buffers), choose_(choose) {}

  text_buffer& any() { return buffers_[choose_(static_cast<unsigned>(buffers_.size()))]; }

  /// What went wrong; empty if nothing did.
  std::string step() {
    text_buffer &a = any(), &b = any();
    if (!apply(a, b)) return "another result";
    if (a.text.size() > 20000) {
      a.real->drop(netbuf::all);
      a.text.clear();
    }
    const std::string fault = a.fault();
    return fault.empty() ? b.fault() : fault;
  }

 private:
  netbuf::end end() {
    back_ = choose_(2) == 1;
    return back_ ? netbuf::end::back : netbuf::end::front;
  }

  /// Of any sign, mostly small.
  std::int32_t count() {
    switch (choose_(16)) {
      case 0:
        return netbuf::all;
      case 1:
        return -static_cast<std::int32_t>(choose_(3));
      case 2:
        return static_cast<std::int32_t>(choose_(5000));
      default:
        return static_cast<std::int32_t>(choose_(200));
    }
  }

  std::string some_text(std::int32_t length) {
    std::string result(static_cast<std::size_t>(length), '\0');
    unsigned next = choose_(256);
    for (char& c : result) c = static_cast<char>(next++ * 7);
    return result;
  }

  void put(std::string& text, const std::string& more) const {
    text.insert(back_ ? text.size() : 0, more);
  }

  void write(text_buffer& b, netbuf::span at) {
    const std::string bytes = some_text(at.length);
    std::copy(bytes.begin(), bytes.end(), at.data);
    put(b.text, bytes);
  }

  std::size_t clipped(const text_buffer& b, std::int32_t n) const {
    return std::min(b.text.size(), static_cast<std::size_t>(std::max(n, 0)));
  }

  void shorten(std::string& text, std::size_t n) const {
    text.erase(back_ ? text.size() - n : 0, n);
  }

  bool apply(text_buffer& a, text_buffer& b) {
    switch (choose_(13)) {
      case 0:
        return sub(a, b);
      case 1: {
        const std::string more = b.text;
        a.real->add_shared(*b.real, end());
        put(a.text, more);
        return true;
      }
      case 2: {
        const std::string bytes = some_text(static_cast<std::int32_t>(choose_(300)));
        const auto length = static_cast<std::int32_t>(bytes.size());
        char* const array = netbuf::buffer::alloc_array(length);
        std::copy(bytes.begin(), bytes.end(), array);
        a.real->add_array(array, length, end());
        put(a.text, bytes);
        return true;
      }
      case 3: {
        const std::int32_t n = std::min(count(), 10000);
        char* const at = a.real->reserve(n, end());
        if (n < 1) return at == nullptr;
        write(a, {at, n});
        return true;
      }
      case 4: {
        const std::int32_t n = std::min(count(), 10000);
        const netbuf::span at = a.real->reserve_any(n, end());
        if (n < 1) return at.data == nullptr && at.length == 0;
        write(a, at);
        return at.length > 0;
      }
      case 5:
        return pullup(a);
      case 6: {
        const std::int32_t n = count();
        a.real->drop(n, end());
        shorten(a.text, clipped(a, n));
        return true;
      }
      case 7:
        return read(a);
      case 8: {
        const auto byte = static_cast<unsigned char>(choose_(256));
        const std::int32_t limit = count();
        const std::size_t at = a.text.substr(0, clipped(a, limit)).find(static_cast<char>(byte));
        return a.real->find_byte(byte, limit) ==
               (at == std::string::npos ? -1 : static_cast<std::int32_t>(at));
      }
      case 9: {
        const int seen = a.real->compare(b.text.data(), static_cast<std::int32_t>(b.text.size()));
        const int order = a.text.compare(b.text);
        return (seen > 0) == (order > 0) && (seen < 0) == (order < 0);
      }
      case 10:
      case 11: {
        auto* const memory = new counted_memory(some_text(static_cast<std::int32_t>(choose_(90))));
        const std::string bytes = memory->bytes;
        const bool writable = choose_(2) == 1, compact = choose_(2) == 1;
        a.real->add_external(memory->bytes.data(), static_cast<std::int32_t>(bytes.size()),
                             writable, counted_memory::release, memory, end(), compact);
        put(a.text, bytes);
        return true;
      }
      default: {
        a.real->move_from(*b.real, end());
        if (&a == &b) return true;
        put(a.text, std::exchange(b.text, ""));
        return true;
      }
    }
  }

  bool sub(text_buffer& to, const text_buffer& from) {
    const std::int32_t offset = choose_(2) == 0 ? 0 : count(), length = count();
    const std::size_t begin = clipped(from, offset);
    const std::string text =
        length < 1 ? "" : from.text.substr(begin, static_cast<unsigned>(length));
    std::unique_ptr<netbuf::buffer> made(new netbuf::buffer(from.real->sub(offset, length)));
    to.real = std::move(made);
    to.text = text;
    return true;
  }

  bool pullup(text_buffer& b) {
    const std::int32_t wanted = count();
    const netbuf::span front = b.real->pullup(wanted);
    if (b.text.empty()) return front.data == nullptr && front.length == 0;
    const auto length = static_cast<std::size_t>(front.length);
    return length <= b.text.size() && std::string(front.data, length) == b.text.substr(0, length) &&
           (wanted < front.length || wanted < static_cast<std::int32_t>(b.text.size()) ||
            length == b.text.size());
  }

  bool read(text_buffer& b) {
    const std::int32_t n = count();
    const std::size_t length = clipped(b, n);
    const bool consume = choose_(2) == 1;
    const netbuf::end from = end();
    std::string copy(length, '\0');
    b.real->read(copy.data(), n, consume, from);
    const bool same =
        copy == (back_ ? b.text.substr(b.text.size() - length) : b.text.substr(0, length));
    if (consume) shorten(b.text, length);
    return same;
  }

  std::vector<text_buffer>& buffers_;
  Choose& choose_;
  bool back_ = false;
};

}  // namespace tests
