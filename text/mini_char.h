// A text under construction that stays on the stack while it is short.
//
// Ownership: the accumulator owns its characters, inline or on the heap; it is never copied.
// Threads: one accumulator belongs to one thread at a time.
#pragma once

#include <cstddef>
#include <memory>
#include <string>

/// Collects characters, the first N inline; the (N+1)-th moves all of them to the heap.
/// Appending throws std::bad_alloc when that heap string cannot be made or grown.
template <std::size_t N>
class mini_char {
 public:
  mini_char() = default;
  mini_char(const mini_char&) = delete;
  mini_char& operator=(const mini_char&) = delete;

  void append(char c) { append(&c, 1); }

  /// Appends `size` characters that lie outside this accumulator.
  void append(const char* text, std::size_t size) {
    if (!spill_) {
      if (size <= N - inline_size()) {
        end_ = std::char_traits<char>::copy(end_, text, size) + size;
        return;
      }
      spill_ = std::make_unique<std::string>(buf_, inline_size());
    }
    spill_->append(text, size);
  }

  /// Back to the empty text; gives the heap string back.
  void clear() {
    spill_.reset();
    end_ = buf_;
  }

  operator std::string() const { return spill_ ? *spill_ : std::string(buf_, inline_size()); }

 private:
  std::size_t inline_size() const { return static_cast<std::size_t>(end_ - buf_); }

  char buf_[N];
  char* end_ = buf_;                    // one past the last inline character
  std::unique_ptr<std::string> spill_;  // once set, it holds the whole text
};
