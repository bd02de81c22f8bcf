// Network buffers for programs: the operations that are installed in this process, with types.
//
// Ownership: a `buffer` owns its views and gives them back at its end. Pointers into it are good
// until its next change. See netbuf/operations.h for what each operation takes over or shares.
// Threads: installation belongs to start-up; then a buffer belongs to one thread at a time.
// Errors: an operation that runs out of memory throws std::bad_alloc; the bytes are unchanged then.
#pragma once

#include <cstdint>

namespace netbuf {

/// What an implementation is started with.
struct init_args {
  bool first;      ///< passed through; our own implementation ignores it
  bool use_cache;  ///< take blocks from caches of common sizes
};

/// Installs a table of 29 operations, laid out as `_netbuf_impl`, if none is installed yet. Whether
/// it was. Requires: the table is complete; nothing of it is checked.
bool install(void** table);

/// Starts the installed implementation. Requires: one is installed.
void init(const init_args& args);

/// The installed operations by dispatch word: a table's words but its 22nd.
extern void* dispatch[28];

/// All bytes, of a buffer whatever its size.
constexpr std::int32_t all = 2147483647;

enum class end : int { front = 0, back = 1 };

/// Bytes inside a buffer.
struct span {
  char* data;
  std::int32_t length;
};

/// A sequence of bytes that may share its parts with others. Requires, for each call: an
/// implementation is installed and started.
class buffer {
 public:
  using release_callback = void (*)(void* context);

  buffer() : handle_(call<2, void*>()) {}
  ~buffer() { call<1, void>(handle_); }
  buffer(const buffer&) = delete;
  buffer& operator=(const buffer&) = delete;

  /// A buffer that shares a range of this one.
  buffer sub(std::int32_t offset, std::int32_t length) const {
    return buffer(call<3, void*>(handle_, offset, length));
  }

  std::int32_t size() const { return call<4, std::int32_t>(handle_); }

  /// Shares all of `other`, which stays as it is.
  void add_shared(const buffer& other, end at = end::back) {
    call<5, void>(handle_, other.handle_, static_cast<int>(at));
  }

  /// Takes an array from `alloc_array` over.
  void add_array(char* array, std::int32_t length, end at = end::back) {
    call<6, void>(handle_, array, length, static_cast<int>(at));
  }

  /// Makes `count` writable bytes part of the buffer; null for a count below 1.
  char* reserve(std::int32_t count, end at = end::back) {
    return call<7, char*>(handle_, count, static_cast<int>(at));
  }

  /// The same with as many bytes as are at hand, or `count`; `drop` what was not filled.
  span reserve_any(std::int32_t count, end at = end::back) {
    span result;
    call<8, void>(handle_, count, static_cast<int>(at), &result.data, &result.length);
    return result;
  }

  /// Joins short pieces at the front; what is together there now. A piece of more than half of
  /// `wanted` bytes is not copied and ends that, so it may be far less: pieces of 1 and 1000 bytes,
  /// `pullup(100)` gives 1.
  span pullup(std::int32_t wanted = all) {
    span result;
    call<9, void>(handle_, &result.data, &result.length, wanted);
    return result;
  }

  void drop(std::int32_t count, end from = end::front) {
    call<10, void>(handle_, count, static_cast<int>(from));
  }

  /// Copies up to `count` bytes of one end out, and removes them if `consume`.
  void read(char* destination, std::int32_t count, bool consume, end from = end::front) {
    call<11, void>(handle_, destination, count, static_cast<int>(consume), static_cast<int>(from));
  }

  /// The position of a byte among the first `limit`, or -1.
  std::int32_t find_byte(unsigned char byte, std::int32_t limit = all) const {
    return call<22, std::int32_t>(handle_, byte, limit);
  }

  /// Negative, 0 or positive, as memcmp; a tie goes to the longer side.
  int compare(const char* bytes, std::int32_t count) const {
    return call<23, int>(handle_, bytes, count);
  }

  /// Adds memory without copying it; `release(context)` gives it back, and must not throw or touch
  /// this buffer.
  void add_external(char* data, std::int32_t length, bool writable, release_callback release,
                    void* context, end at = end::back, bool compact = true) {
    call<24, void>(handle_, data, length, static_cast<int>(at), static_cast<int>(writable), release,
                   context, static_cast<int>(compact));
  }

  /// Takes all of `other` over, which is empty then.
  void move_from(buffer& other, end at = end::back) {
    call<25, void>(handle_, other.handle_, static_cast<int>(at));
  }

  /// Calls `visit` with each contiguous piece, front to back. It must not change the buffer.
  template <class Visit>
  void for_each(Visit visit) const {
    const iterator it(call<15, void*>(handle_));
    while (call<17, bool>(it.handle)) {
      span piece;
      call<18, std::int32_t>(it.handle, &piece.data, &piece.length);
      visit(piece);
      call<19, void>(it.handle);
    }
  }

  /// An array for `add_array`; null for a count below 1.
  static char* alloc_array(std::int32_t count) { return call<20, char*>(count); }

 private:
  explicit buffer(void* handle) : handle_(handle) {}

  struct iterator {
    explicit iterator(void* begin) : handle(begin) {}
    ~iterator() { call<14, void>(handle); }
    iterator(const iterator&) = delete;
    iterator& operator=(const iterator&) = delete;
    void* const handle;
  };

  template <int Word, class Result, class... Args>
  static Result call(Args... args) {
    return reinterpret_cast<Result (*)(Args...)>(dispatch[Word])(args...);
  }

  void* const handle_;
};

}  // namespace netbuf
