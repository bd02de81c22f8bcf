// The replaced operator new and delete: counted, and failing on demand.
#include "tests/support/allocations.h"

#include <cerrno>
#include <cstdlib>
#include <new>

namespace tests {
namespace {

constexpr long never = -1;

long g_made = 0;
long g_live = 0;
long g_good = never;
std::size_t g_larger_than = 0;
int g_errno = 0;

void* allocate(std::size_t size) noexcept {
  if (g_good != never && size > g_larger_than && g_good-- == 0) {
    g_good = 0;
    return nullptr;
  }
  void* memory = std::malloc(size == 0 ? 1 : size);
  if (memory) {
    ++g_made;
    ++g_live;
  }
  if (g_errno != 0) errno = g_errno;
  return memory;
}

void* allocate_or_throw(std::size_t size) {
  void* memory = allocate(size);
  if (!memory) throw std::bad_alloc();
  return memory;
}

void release(void* memory) noexcept {
  if (!memory) return;
  --g_live;
  std::free(memory);
}

}  // namespace

allocation_count::allocation_count() : made_before_(g_made), live_before_(g_live) {}

long allocation_count::made() const {
  return g_made - made_before_;
}

long allocation_count::live() const {
  return g_live - live_before_;
}

failing_allocations::failing_allocations(long good, std::size_t larger_than) {
  g_larger_than = larger_than;
  g_good = good;
}

failing_allocations::~failing_allocations() {
  g_good = never;
}

errno_spoiling_allocations::errno_spoiling_allocations(int number) {
  g_errno = number;
}

errno_spoiling_allocations::~errno_spoiling_allocations() {
  g_errno = 0;
}

}  // namespace tests

// All forms, since a sanitizer brings its own ones for those that are left out.
void* operator new(std::size_t size) {
  return tests::allocate_or_throw(size);
}
void* operator new[](std::size_t size) {
  return tests::allocate_or_throw(size);
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return tests::allocate(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  return tests::allocate(size);
}
void operator delete(void* memory) noexcept {
  tests::release(memory);
}
void operator delete[](void* memory) noexcept {
  tests::release(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
  tests::release(memory);
}
void operator delete[](void* memory, std::size_t) noexcept {
  tests::release(memory);
}
void operator delete(void* memory, const std::nothrow_t&) noexcept {
  tests::release(memory);
}
void operator delete[](void* memory, const std::nothrow_t&) noexcept {
  tests::release(memory);
}
