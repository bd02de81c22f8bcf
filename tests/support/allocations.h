// Counts the program's allocations, and makes them fail. A program that wants either lists
// allocations.cpp among its sources, which replaces operator new for all of it.
// Threads: for tests with one thread.
#pragma once

#include <cstddef>
#include <new>

namespace tests {

/// Counts from its construction on.
class allocation_count {
 public:
  allocation_count();

  /// Allocations that were made.
  long made() const;
  /// Those of them that were not yet given back, less older ones that were.
  long live() const;

 private:
  long made_before_;
  long live_before_;
};

/// While it lives, `good` allocations of more than `larger_than` bytes succeed; each one after
/// them throws std::bad_alloc.
class failing_allocations {
 public:
  explicit failing_allocations(long good, std::size_t larger_than = 0);
  ~failing_allocations();
  failing_allocations(const failing_allocations&) = delete;
  failing_allocations& operator=(const failing_allocations&) = delete;
};

/// While it lives, every allocation sets errno to this number.
class errno_spoiling_allocations {
 public:
  explicit errno_spoiling_allocations(int number);
  ~errno_spoiling_allocations();
  errno_spoiling_allocations(const errno_spoiling_allocations&) = delete;
  errno_spoiling_allocations& operator=(const errno_spoiling_allocations&) = delete;
};

/// Calls `action` again and again, each time with one more allocation that succeeds, until it no
/// longer throws std::bad_alloc. Returns how often it threw, or -1 when a failed call left memory
/// behind.
template <class Action>
long exhaust(Action action) {
  for (long good = 0;; ++good) {
    const allocation_count count;
    try {
      const failing_allocations failing(good);
      action();
      return good;
    } catch (const std::bad_alloc&) {
    }
    if (count.live() != 0) return -1;
  }
}

}  // namespace tests
