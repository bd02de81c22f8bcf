// A buffer for tests: reached through the table or through the typed face, with caches on or off,
// and checked after every step.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <memory>
#include <string>

#include "netbuf/netbuf.h"
#include "netbuf/operations.h"
#include "tests/netbuf/checkers.h"

namespace tests {

/// Calls an operation of our own table.
template <int Slot, class Result, class... Arguments>
Result table_call(Arguments... arguments) {
  return reinterpret_cast<Result (*)(Arguments...)>(_netbuf_impl[Slot])(arguments...);
}

enum class face { table, typed };

struct setting {
  bool caches;
  face through;
};

/// Counts how often it was given back.
struct external_memory {
  std::string bytes;
  int released = 0;

  static void release(void* context) { ++static_cast<external_memory*>(context)->released; }
};

class tested_buffer {
 public:
  /// Each piece becomes a view on a chunk of exactly its size.
  explicit tested_buffer(face through, std::initializer_list<const char*> pieces = {})
      : tested_buffer(through == face::typed ? new netbuf::buffer : nullptr,
                      through == face::typed ? nullptr : table_call<2, void*>()) {
    for (const char* piece : pieces) add(piece);
  }
  ~tested_buffer() {
    if (typed_ == nullptr) table_call<1, void>(handle_);
  }
  tested_buffer(const tested_buffer&) = delete;
  tested_buffer& operator=(const tested_buffer&) = delete;

  void* handle() const { return handle_; }
  std::size_t views() const { return record_of(handle_).views.size(); }
  const netbuf_imp::view& view(std::size_t i) const { return record_of(handle_).views[i]; }

  std::string bytes() const {
    std::string result;
    for (std::size_t i = 0; i < views(); ++i) {
      result.append(view(i).begin(), static_cast<std::size_t>(view(i).length));
    }
    return result;
  }

  /// The views as "offset+length/capacity", one after the other.
  std::string layout() const {
    std::string result;
    for (std::size_t i = 0; i < views(); ++i) {
      if (i > 0) result += ' ';
      result += std::to_string(view(i).offset) + "+" + std::to_string(view(i).length) + "/" +
                std::to_string(view(i).chunk->capacity);
    }
    return result;
  }

  tested_buffer sub(std::int32_t offset, std::int32_t length) const {
    if (typed_ != nullptr) {
      return tested_buffer(new netbuf::buffer(typed_->sub(offset, length)), nullptr);
    }
    return tested_buffer(nullptr, table_call<3, void*>(handle_, offset, length));
  }

  std::int32_t size() const {
    return typed_ != nullptr ? typed_->size() : table_call<4, std::int32_t>(handle_);
  }

  void add_shared(const tested_buffer& other, bool at_end = true) {
    const checked step(*this);
    if (typed_ != nullptr) return typed_->add_shared(*other.typed_, where(at_end));
    table_call<5, void>(handle_, other.handle_, flag(at_end));
  }

  void add_array(char* array, std::int32_t length, bool at_end = true) {
    const checked step(*this);
    if (typed_ != nullptr) return typed_->add_array(array, length, where(at_end));
    table_call<6, void>(handle_, array, length, flag(at_end));
  }
  void add(const std::string& bytes, bool at_end = true) {
    const auto length = static_cast<std::int32_t>(bytes.size());
    char* const array = alloc_array(length);
    bytes.copy(array, bytes.size());
    add_array(array, length, at_end);
  }

  char* reserve(std::int32_t count, bool at_end = true) {
    const checked step(*this);
    if (typed_ != nullptr) return typed_->reserve(count, where(at_end));
    return table_call<7, char*>(handle_, count, flag(at_end));
  }

  netbuf::span reserve_any(std::int32_t count, bool at_end = true) {
    const checked step(*this);
    if (typed_ != nullptr) return typed_->reserve_any(count, where(at_end));
    netbuf::span result{handle_dirt(), -1};
    table_call<8, void>(handle_, count, flag(at_end), &result.data, &result.length);
    return result;
  }

  netbuf::span pullup(std::int32_t wanted) {
    const checked step(*this);
    if (typed_ != nullptr) return typed_->pullup(wanted);
    netbuf::span result{handle_dirt(), -1};
    table_call<9, void>(handle_, &result.data, &result.length, wanted);
    return result;
  }

  void drop(std::int32_t count, bool from_back = false) {
    const checked step(*this);
    if (typed_ != nullptr) return typed_->drop(count, where(from_back));
    table_call<10, void>(handle_, count, flag(from_back));
  }

  void read(char* destination, std::int32_t count, bool consume, bool from_back = false) {
    const checked step(*this);
    if (typed_ != nullptr) return typed_->read(destination, count, consume, where(from_back));
    table_call<11, void>(handle_, destination, count, flag(consume), flag(from_back));
  }

  std::int32_t find_byte(unsigned char byte, std::int32_t limit = netbuf::all) const {
    if (typed_ != nullptr) return typed_->find_byte(byte, limit);
    return table_call<23, std::int32_t>(handle_, byte, limit);
  }

  int compare(const char* bytes, std::int32_t count) const {
    if (typed_ != nullptr) return typed_->compare(bytes, count);
    return table_call<24, int>(handle_, bytes, count);
  }

  void add_external(char* data, std::int32_t length, bool writable,
                    netbuf::buffer::release_callback release, void* context, bool at_end = true,
                    bool compact = false) {
    const checked step(*this);
    if (typed_ != nullptr) {
      return typed_->add_external(data, length, writable, release, context, where(at_end), compact);
    }
    table_call<25, void>(handle_, data, length, flag(at_end), flag(writable), release, context,
                         flag(compact));
  }
  void add_external(external_memory& memory, bool writable = false, bool at_end = true,
                    bool compact = false) {
    add_external(memory.bytes.data(), static_cast<std::int32_t>(memory.bytes.size()), writable,
                 external_memory::release, &memory, at_end, compact);
  }

  void move_from(tested_buffer& other, bool at_end = true) {
    const checked step(*this), step_of_other(other);
    if (typed_ != nullptr) return typed_->move_from(*other.typed_, where(at_end));
    table_call<26, void>(handle_, other.handle_, flag(at_end));
  }

  static char* alloc_array(std::int32_t count) { return table_call<20, char*>(count); }

 private:
  tested_buffer(netbuf::buffer* typed, void* handle) : typed_(typed), handle_(handle) {
    static_assert(sizeof(netbuf::buffer) == sizeof(void*));
    if (typed != nullptr) std::memcpy(&handle_, typed, sizeof handle_);
    EXPECT_EQ(fault_of_buffer(handle_), "");
  }

  /// Checks the buffer after the step, also one that ends by an exception.
  class checked {
   public:
    explicit checked(const tested_buffer& b) : b_(b) {}
    ~checked() {
      EXPECT_EQ(fault_of_buffer(b_.handle_), "");
      EXPECT_EQ(b_.size(), record_of(b_.handle_).size);
    }
    checked(const checked&) = delete;
    checked& operator=(const checked&) = delete;

   private:
    const tested_buffer& b_;
  };

  static netbuf::end where(bool back) { return back ? netbuf::end::back : netbuf::end::front; }
  /// Any number but zero means yes.
  static int flag(bool yes) { return yes ? 2 : 0; }
  char* handle_dirt() { return reinterpret_cast<char*>(&handle_); }

  const std::unique_ptr<netbuf::buffer> typed_;  // null: through the table
  void* handle_;
};

/// The fixture of all tests of operations: with and without caches, through both faces.
class buffer_test : public ::testing::TestWithParam<setting> {
 protected:
  void SetUp() override {
    netbuf::install(_netbuf_impl);
    netbuf::init({false, true});
    netbuf_imp::use_cache = GetParam().caches;
  }

  static face through() { return GetParam().through; }

  /// The bytes of the block that a new chunk gets for that many.
  static std::int32_t block(std::int32_t size) {
    if (!GetParam().caches) return size;
    for (const std::int32_t of_class : {128, 512, 2048, 8192, 65536}) {
      if (of_class >= size) return of_class;
    }
    return size;
  }

  /// As in a buffer's layout.
  static std::string view(std::int32_t offset, std::int32_t length, std::int32_t capacity) {
    return std::to_string(offset) + "+" + std::to_string(length) + "/" + std::to_string(capacity);
  }

  /// Appends views of one byte, '0' and on, which stay as they are.
  static void add_views(tested_buffer& b, int count) {
    static char digits[] = "0123456789";
    for (int i = 0; i < count; ++i) b.add_external(digits + i % 10, 1, false, nullptr, nullptr);
  }

  static std::string digits(int count) {
    std::string result;
    for (int i = 0; i < count; ++i) result += static_cast<char>('0' + i % 10);
    return result;
  }
};

inline auto all_settings() {
  return ::testing::Values(setting{true, face::table}, setting{false, face::table},
                           setting{true, face::typed}, setting{false, face::typed});
}

inline std::string setting_name(const ::testing::TestParamInfo<setting>& info) {
  return std::string(info.param.caches ? "caches" : "plain_blocks") +
         (info.param.through == face::typed ? "_typed" : "_table");
}

}  // namespace tests
