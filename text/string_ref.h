// Non-owning views of characters, for parameters that only read.
//
// Ownership: a view borrows; whoever makes it keeps the characters alive while it is used.
// Threads: a view is a plain value; reading the same characters from several threads is safe.
#pragma once

#include <cstddef>
#include <cstring>
#include <string>

namespace mirt {

/// Characters that need not end in a NUL.
class string_ref {
 public:
  string_ref(const char* data, std::size_t size) : data_(data), size_(size) {}
  string_ref(const std::string& text) : data_(text.data()), size_(text.size()) {}
  /// Requires: `text` ends in a NUL.
  string_ref(const char* text) : data_(text), size_(std::strlen(text)) {}

  const char* data() const { return data_; }
  std::size_t size() const { return size_; }
  const char* begin() const { return data_; }
  const char* end() const { return data_ + size_; }

 private:
  const char* data_;
  std::size_t size_;
};

/// Characters with a NUL after the last one, so that `data()` can go to a system call as it is.
class cstring_ref : public string_ref {
 public:
  cstring_ref(const std::string& text) : string_ref(text) {}
  cstring_ref(const char* text) : string_ref(text) {}
};

}  // namespace mirt
