// A double-ended queue of views, the first few of them inside the queue itself: most buffers hold
// one or two, and an empty one must cost nothing.
//
// Ownership: the queue stores views and nothing more; their references are its user's business.
// Threads: one queue belongs to one thread at a time.
#pragma once

#include <cstddef>
#include <cstring>
#include <memory>
#include <utility>

#include "netbuf/chunk.h"

namespace netbuf_imp {

/// A ring whose capacity is a power of two.
class view_queue {
 public:
  view_queue() = default;
  view_queue(const view_queue&) = delete;
  view_queue& operator=(const view_queue&) = delete;

  std::size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }

  view& operator[](std::size_t i) { return items()[(first_ + i) & mask_]; }
  const view& operator[](std::size_t i) const { return items()[(first_ + i) & mask_]; }
  view& front() { return (*this)[0]; }
  view& back() { return (*this)[size_ - 1]; }

  /// Makes room for `more` further views, so that adding them cannot fail. Throws std::bad_alloc.
  void reserve(std::size_t more) {
    if (size_ + more > mask_ + 1) grow(size_ + more);
  }

  /// Requires: room, by `reserve`.
  void push_back(const view& v) {
    ++size_;
    back() = v;
  }
  void push_front(const view& v) {
    --first_;
    ++size_;
    front() = v;
  }

  void pop_front() {
    ++first_;
    --size_;
  }
  void pop_back() { --size_; }

  void clear() { size_ = 0; }

  void swap(view_queue& other) noexcept {
    std::swap(inline_, other.inline_);
    std::swap(heap_, other.heap_);
    std::swap(mask_, other.mask_);
    std::swap(first_, other.first_);
    std::swap(size_, other.size_);
  }

 private:
  static constexpr std::size_t inline_capacity = 4;

  view* items() { return heap_ != nullptr ? heap_.get() : inline_; }
  const view* items() const { return heap_ != nullptr ? heap_.get() : inline_; }

  void grow(std::size_t needed) {
    std::size_t capacity = mask_ + 1;
    while (capacity < needed) capacity *= 2;
    std::unique_ptr<view[]> grown(new view[capacity]);
    for (std::size_t i = 0; i < size_; ++i) grown[i] = (*this)[i];
    heap_ = std::move(grown);
    mask_ = capacity - 1;
    first_ = 0;
  }

  view inline_[inline_capacity] = {};
  std::unique_ptr<view[]> heap_;  // in place of inline_ once that was too small
  std::size_t mask_ = inline_capacity - 1;
  std::size_t first_ = 0;  // counts on past the capacity; masked when used
  std::size_t size_ = 0;
};

}  // namespace netbuf_imp
