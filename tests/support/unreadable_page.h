// Text that ends right before a page that cannot be read: looking one byte too far is a crash.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstring>
#include <stdexcept>
#include <string_view>

#include "text/string_ref.h"

namespace tests {

class unreadable_page {
 public:
  unreadable_page() : size_(static_cast<std::size_t>(::sysconf(_SC_PAGESIZE))) {
    void* pages = ::mmap(nullptr, 2 * size_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANON, -1, 0);
    if (pages == MAP_FAILED) throw std::runtime_error("no pages");
    begin_ = static_cast<char*>(pages);
    if (::mprotect(end(), size_, PROT_NONE) != 0) throw std::runtime_error("no protection");
  }
  ~unreadable_page() { ::munmap(begin_, 2 * size_); }
  unreadable_page(const unreadable_page&) = delete;
  unreadable_page& operator=(const unreadable_page&) = delete;

  /// A view of the text before the page, good until the next call. Requires: less than a page.
  mirt::string_ref put(std::string_view text) {
    std::memcpy(end() - text.size(), text.data(), text.size());
    return {end() - text.size(), text.size()};
  }

  /// The first byte that cannot be read.
  char* end() const { return begin_ + size_; }

 private:
  std::size_t size_;
  char* begin_;
};

}  // namespace tests
