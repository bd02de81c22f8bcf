// Network buffers, through their typed face, beside libevent's evbuffer, Abseil's Cord and the
// plain calls on the same bytes; the block caches beside a lock alone and the C library's malloc.

#include <absl/strings/cord.h>
#include <event2/buffer.h>
#include <malloc.h>
#include <time.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "bench/compare.h"
#include "mirt/init.h"
#include "mirt/sys/lock.h"
#include "netbuf/cache.h"
#include "netbuf/netbuf.h"

namespace {

using bench::contender;
using netbuf::buffer;

constexpr std::size_t pieces = 64;  // appended before a buffer is emptied; views of a split buffer
constexpr std::size_t mebibyte = 1 << 20;

std::int32_t narrow(std::size_t size) {
  return static_cast<std::int32_t>(size);
}

/// libevent's buffer with an owner.
class event_buffer {
 public:
  event_buffer() : handle_(evbuffer_new(), evbuffer_free) {}
  operator evbuffer*() const { return handle_.get(); }
  std::size_t size() const { return evbuffer_get_length(*this); }

 private:
  std::unique_ptr<evbuffer, decltype(&evbuffer_free)> handle_;
};

void release_nothing(void*) {}

// The same external memory added to each kind of buffer.

void add_piece(buffer& to, std::string_view piece) {
  to.add_external(const_cast<char*>(piece.data()), narrow(piece.size()), false, release_nothing,
                  nullptr);
}

void add_piece(event_buffer& to, std::string_view piece) {
  evbuffer_add_reference(
      to, piece.data(), piece.size(), [](const void*, std::size_t, void*) {}, nullptr);
}

void add_piece(absl::Cord& to, std::string_view piece) {
  to.Append(absl::MakeCordFromExternal(absl::string_view(piece.data(), piece.size()), [] {}));
}

template <class Buffer>
void add_split(Buffer& to, std::string_view text, std::size_t piece_size) {
  for (; !text.empty(); text.remove_prefix(piece_size)) add_piece(to, text.substr(0, piece_size));
}

template <class Buffer>
std::shared_ptr<Buffer> make_split(std::string_view text, std::size_t piece_size) {
  auto made = std::make_shared<Buffer>();
  add_split(*made, text, piece_size);
  return made;
}

std::string make_text(std::size_t size) {
  std::string text(size, '\0');
  for (std::size_t i = 0; i < size; ++i) text[i] = static_cast<char>('a' + i * 7 % 25);  // no 'z'
  return text;
}

/// A piece that is appended again and again, and where to read the buffer out to; without it the
/// buffer is drained. The answer is the buffer's size in between.
struct append_input {
  std::string piece;
  std::shared_ptr<std::string> out;
};

void add_append(const std::string& row, const append_input& input) {
  bench::add_row(
      row, input, input.piece.size() * pieces,
      contender{"ours",
                [b = std::make_shared<buffer>()](const append_input& in) {
                  for (std::size_t i = 0; i < pieces; ++i) {
                    std::memcpy(b->reserve(narrow(in.piece.size())), in.piece.data(),
                                in.piece.size());
                  }
                  const std::int32_t size = b->size();
                  if (in.out != nullptr) {
                    b->read(in.out->data(), size, true);
                  } else {
                    b->drop(size);
                  }
                  return static_cast<std::size_t>(size);
                }},
      contender{"evbuffer",
                [b = std::make_shared<event_buffer>()](const append_input& in) {
                  for (std::size_t i = 0; i < pieces; ++i) {
                    evbuffer_add(*b, in.piece.data(), in.piece.size());
                  }
                  const std::size_t size = b->size();
                  if (in.out != nullptr) {
                    evbuffer_remove(*b, in.out->data(), size);
                  } else {
                    evbuffer_drain(*b, size);
                  }
                  return size;
                }},
      contender{"Cord",
                [b = std::make_shared<absl::Cord>()](const append_input& in) {
                  for (std::size_t i = 0; i < pieces; ++i) b->Append(in.piece);
                  const std::size_t size = b->size();
                  if (in.out != nullptr) {
                    char* to = in.out->data();
                    for (const absl::string_view piece : b->Chunks()) {
                      to = std::copy(piece.begin(), piece.end(), to);
                    }
                  }
                  b->Clear();
                  return size;
                }},
      contender{"plain", [b = std::make_shared<std::string>(input.piece.size() * pieces, '\0')](
                             const append_input& in) {
                  std::size_t size = 0;
                  for (; size < b->size(); size += in.piece.size()) {
                    std::memcpy(b->data() + size, in.piece.data(), in.piece.size());
                    benchmark::ClobberMemory();
                  }
                  if (in.out != nullptr) std::memcpy(in.out->data(), b->data(), size);
                  benchmark::ClobberMemory();
                  return size;
                }});
}

void add_appends() {
  for (const std::size_t size : {16, 64, 256}) {
    add_append("append " + std::to_string(size) + " and drain", {make_text(size), nullptr});
  }
  add_append("append 256 and read out",
             {make_text(256), std::make_shared<std::string>(256 * pieces, '\0')});

  bench::add_row("append external 1 KiB and drain", make_text(1024), 1024 * pieces,
                 contender{"ours",
                           [b = std::make_shared<buffer>()](const std::string& text) {
                             for (std::size_t i = 0; i < pieces; ++i) add_piece(*b, text);
                             const std::int32_t size = b->size();
                             b->drop(size);
                             return static_cast<std::size_t>(size);
                           }},
                 contender{"evbuffer",
                           [b = std::make_shared<event_buffer>()](const std::string& text) {
                             for (std::size_t i = 0; i < pieces; ++i) add_piece(*b, text);
                             const std::size_t size = b->size();
                             evbuffer_drain(*b, size);
                             return size;
                           }},
                 contender{"Cord", [b = std::make_shared<absl::Cord>()](const std::string& text) {
                             for (std::size_t i = 0; i < pieces; ++i) add_piece(*b, text);
                             const std::size_t size = b->size();
                             b->Clear();
                             return size;
                           }});
}

/// Three headers before a payload that stays, and away with them again. The answer is the size with
/// them.
void add_prepend() {
  static const std::array<std::string, 3> headers{make_text(20), make_text(40), make_text(14)};
  constexpr std::size_t all_headers = 20 + 40 + 14;
  const std::string payload = make_text(1024);

  const auto ours = std::make_shared<buffer>();
  std::memcpy(ours->reserve(narrow(payload.size())), payload.data(), payload.size());
  const auto event = std::make_shared<event_buffer>();
  evbuffer_add(*event, payload.data(), payload.size());

  bench::add_row("prepend three headers", payload, all_headers,
                 contender{"ours",
                           [b = ours](const std::string&) {
                             for (const std::string& header : headers) {
                               std::memcpy(b->reserve(narrow(header.size()), netbuf::end::front),
                                           header.data(), header.size());
                             }
                             const auto size = static_cast<std::size_t>(b->size());
                             b->drop(all_headers);
                             return size;
                           }},
                 contender{"evbuffer",
                           [b = event](const std::string&) {
                             for (const std::string& header : headers) {
                               evbuffer_prepend(*b, header.data(), header.size());
                             }
                             const std::size_t size = b->size();
                             evbuffer_drain(*b, all_headers);
                             return size;
                           }},
                 contender{"Cord", [b = std::make_shared<absl::Cord>(payload)](const std::string&) {
                             for (const std::string& header : headers) b->Prepend(header);
                             const std::size_t size = b->size();
                             b->RemovePrefix(all_headers);
                             return size;
                           }});
}

/// The middle half of a text that lies in pieces of one size. The answer is the half's size.
void add_share(const std::string& row, std::size_t piece_size) {
  static const std::string text = make_text(mebibyte);
  bench::add_row(
      row, text, mebibyte / 2,
      contender{"ours",
                [b = make_split<buffer>(text, piece_size)](const std::string&) {
                  const buffer half = b->sub(mebibyte / 4, mebibyte / 2);
                  return static_cast<std::size_t>(half.size());
                }},
      contender{"Cord", [b = make_split<absl::Cord>(text, piece_size)](const std::string&) {
                  const absl::Cord half = b->Subcord(mebibyte / 4, mebibyte / 2);
                  return half.size();
                }});
}

/// All of one buffer into another and back. The answer is what the other one held.
void add_move() {
  static const std::string text = make_text(pieces * 1024);
  bench::add_row("move all views there and back", text, text.size(),
                 contender{"ours",
                           [from = make_split<buffer>(text, 1024),
                            to = std::make_shared<buffer>()](const std::string&) {
                             to->move_from(*from);
                             const auto size = static_cast<std::size_t>(to->size());
                             from->move_from(*to);
                             return size;
                           }},
                 contender{"evbuffer", [from = make_split<event_buffer>(text, 1024),
                                        to = std::make_shared<event_buffer>()](const std::string&) {
                             evbuffer_add_buffer(*to, *from);
                             const std::size_t size = to->size();
                             evbuffer_add_buffer(*from, *to);
                             return size;
                           }});
}

std::ptrdiff_t find_in(const absl::Cord& cord, char wanted) {
  std::ptrdiff_t passed = 0;
  for (const absl::string_view piece : cord.Chunks()) {
    if (const void* found = std::memchr(piece.data(), wanted, piece.size())) {
      return passed + (static_cast<const char*>(found) - piece.data());
    }
    passed += static_cast<std::ptrdiff_t>(piece.size());
  }
  return -1;
}

/// The last byte of a text, which stands nowhere else in it, and the whole text against an equal
/// one; the text lies in pieces of one size.
void add_find_and_compare(const std::string& where, const std::string& text,
                          std::size_t piece_size) {
  const auto ours = make_split<buffer>(text, piece_size);
  const auto event = make_split<event_buffer>(text, piece_size);
  const auto cord = make_split<absl::Cord>(text, piece_size);
  bench::add_row(
      "find in " + where, text, text.size(),
      contender{
          "ours",
          [=](const std::string&) { return static_cast<std::ptrdiff_t>(ours->find_byte('z')); }},
      contender{"evbuffer",
                [=](const std::string&) {
                  return static_cast<std::ptrdiff_t>(evbuffer_search(*event, "z", 1, nullptr).pos);
                }},
      contender{"Cord", [=](const std::string&) { return find_in(*cord, 'z'); }},
      contender{"plain", [](const std::string& in) {
                  return static_cast<const char*>(std::memchr(in.data(), 'z', in.size())) -
                         in.data();
                }});
  const auto other = std::make_shared<std::string>(text);
  bench::add_row(
      "compare " + where, text, text.size(),
      contender{"ours",
                [=](const std::string&) {
                  return ours->compare(other->data(), narrow(other->size())) == 0;
                }},
      contender{"evbuffer",  // has no comparison of its own: a search that ends at once
                [=](const std::string&) {
                  return evbuffer_search(*event, other->data(), other->size(), nullptr).pos == 0;
                }},
      contender{"Cord",
                [=](const std::string&) {
                  return *cord == absl::string_view(other->data(), other->size());
                }},
      contender{"plain", [=](const std::string& in) {
                  return std::memcmp(in.data(), other->data(), in.size()) == 0;
                }});
}

void add_searches() {
  static std::string text = make_text(mebibyte);
  text.back() = 'z';
  add_find_and_compare("1 MiB", text, text.size());
  static std::string short_text = make_text(pieces * 1024);
  short_text.back() = 'z';
  add_find_and_compare("64 views of 1 KiB", short_text, 1024);
}

/// Every piece, in order. The answer is the sum of their lengths and first bytes.
void add_walk() {
  static const std::string text = make_text(pieces * 1024);
  bench::add_row(
      "walk 64 views", text, text.size(),
      contender{"ours",
                [b = make_split<buffer>(text, 1024)](const std::string&) {
                  std::size_t sum = 0;
                  b->for_each([&sum](netbuf::span piece) {
                    sum += static_cast<std::size_t>(piece.length) +
                           static_cast<std::size_t>(*piece.data);
                  });
                  return sum;
                }},
      contender{"evbuffer",
                [b = make_split<event_buffer>(text, 1024)](const std::string&) {
                  std::array<evbuffer_iovec, pieces> found;
                  const int count = evbuffer_peek(*b, -1, nullptr, found.data(), pieces);
                  std::size_t sum = 0;
                  for (std::size_t i = 0; i < static_cast<std::size_t>(count); ++i) {
                    sum += found[i].iov_len +
                           static_cast<std::size_t>(*static_cast<const char*>(found[i].iov_base));
                  }
                  return sum;
                }},
      contender{"Cord", [b = make_split<absl::Cord>(text, 1024)](const std::string&) {
                  std::size_t sum = 0;
                  for (const absl::string_view piece : b->Chunks()) {
                    sum += piece.size() + static_cast<std::size_t>(piece.front());
                  }
                  return sum;
                }});
}

/// The calling thread's processor time, in seconds.
double thread_time() {
  timespec now;
  ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

/// Registers what can be done to a buffer only once: each call gets a fresh one, and only the calls
/// are timed. The first few are not: they touch memory of the caches for the first time.
template <class Buffer, class Run>
void add_once(const std::string& name, const std::string& text, std::size_t piece_size, Run run) {
  const auto time_batch = [=](std::size_t size) {
    std::vector<std::shared_ptr<Buffer>> fresh(size);
    for (auto& one : fresh) one = make_split<Buffer>(text, piece_size);
    const double start = thread_time();
    for (auto& one : fresh) run(*one);
    return thread_time() - start;
  };
  const auto body = [=](benchmark::State& state) {
    constexpr std::size_t batch = 16;
    for (int i = 0; i < 40; ++i) time_batch(batch);
    while (state.KeepRunningBatch(batch)) state.SetIterationTime(time_batch(batch));
  };
  benchmark::RegisterBenchmark(name.c_str(), body)->UseManualTime()->MinTime(0.005);
}

/// The start of a text in 128 pieces of 512 bytes, in one piece.
void add_contiguous(const std::string& row, std::size_t wanted) {
  static const std::string text = make_text(65536);
  const auto require = [=](const char* start) {
    if (std::memcmp(start, text.data(), wanted) != 0) std::abort();
  };
  const auto ours = [=](buffer& b) { return b.pullup(narrow(wanted)).data; };
  const auto event = [=](event_buffer& b) {
    return reinterpret_cast<const char*>(evbuffer_pullup(b, static_cast<ev_ssize_t>(wanted)));
  };
  require(ours(*make_split<buffer>(text, 512)));
  require(event(*make_split<event_buffer>(text, 512)));
  add_once<buffer>(row + "/ours", text, 512, [=](buffer& b) { benchmark::DoNotOptimize(ours(b)); });
  add_once<event_buffer>(row + "/evbuffer", text, 512,
                         [=](event_buffer& b) { benchmark::DoNotOptimize(event(b)); });
  if (wanted != text.size()) return;  // a Cord knows only all of it
  const auto cord = [](absl::Cord& b) { return b.Flatten().data(); };
  require(cord(*make_split<absl::Cord>(text, 512)));
  add_once<absl::Cord>(row + "/Cord", text, 512,
                       [=](absl::Cord& b) { benchmark::DoNotOptimize(cord(b)); });
}

/// All on the heap: a host holds a buffer by its handle.
void add_empty_life() {
  bench::add_row("an empty buffer's life", 0, 0,
                 contender{"ours",
                           [](int) {
                             const buffer b;
                             benchmark::DoNotOptimize(&b);
                             return true;
                           }},
                 contender{"evbuffer",
                           [](int) {
                             const event_buffer b;
                             benchmark::DoNotOptimize(&b);
                             return true;
                           }},
                 contender{"Cord", [](int) {
                             const auto b = std::make_unique<absl::Cord>();
                             benchmark::DoNotOptimize(b.get());
                             return true;
                           }});
}

/// One block out of its cache and back, beside what the two locks cost, and malloc with free.
void add_cache() {
  static mirt::rec_mutex lock;
  for (const netbuf_imp::size_class& row : netbuf_imp::size_classes) {
    if (row.block_size == 0) continue;
    bench::add_row("cache get and put " + std::to_string(row.block_size), row.block_size, 0,
                   contender{"ours",
                             [cache = row.cache](std::size_t) {
                               netbuf_imp::cache_mem* block = cache->pop();
                               benchmark::DoNotOptimize(block);
                               cache->push(block);
                               return true;
                             }},
                   contender{"lock",
                             [](std::size_t) {
                               for (int i = 0; i < 2; ++i) {
                                 const mirt::rec_lock guard(lock);
                                 benchmark::ClobberMemory();
                               }
                               return true;
                             }},
                   contender{"malloc", [](std::size_t size) {
                               void* block = std::malloc(size);
                               benchmark::DoNotOptimize(block);
                               std::free(block);
                               return true;
                             }});
  }
}

/// Hands pointers from one thread to one other.
class hand_over {
 public:
  void put(void* one) {
    const std::size_t at = written_.load(std::memory_order_relaxed);
    while (at - read_.load(std::memory_order_acquire) == slots_.size()) std::this_thread::yield();
    slots_[at % slots_.size()] = one;
    written_.store(at + 1, std::memory_order_release);
  }

  void* get() {
    const std::size_t at = read_.load(std::memory_order_relaxed);
    while (at == written_.load(std::memory_order_acquire)) std::this_thread::yield();
    void* const one = slots_[at % slots_.size()];
    read_.store(at + 1, std::memory_order_release);
    return one;
  }

 private:
  std::array<void*, 256> slots_;
  alignas(64) std::atomic<std::size_t> written_ = 0;
  alignas(64) std::atomic<std::size_t> read_ = 0;
};

/// One thread gets blocks, another puts them back; the time is that of one block's way.
template <class Get, class Put>
void add_threads(const std::string& name, Get get, Put put) {
  const auto body = [=](benchmark::State& state) {
    hand_over blocks;
    std::thread other([&] {
      while (void* const block = blocks.get()) put(block);
    });
    for (auto _ : state) blocks.put(get());
    blocks.put(nullptr);
    other.join();
  };
  benchmark::RegisterBenchmark(name.c_str(), body)->UseRealTime();
}

void add_two_threads(const netbuf_imp::size_class& row) {
  const std::string name = "two threads, get and put " + std::to_string(row.block_size);
  const auto cache = row.cache;
  add_threads(
      name + "/ours", [=] { return cache->pop(); },
      [=](void* block) { cache->push(static_cast<netbuf_imp::cache_mem*>(block)); });
  add_threads(
      name + "/malloc", [size = row.block_size] { return std::malloc(size); }, std::free);
}

}  // namespace

int main(int argc, char** argv) {
  ::mallopt(M_TRIM_THRESHOLD, 256 << 20);  // the C library's memory is warm, too
  new mirt::init(nullptr);  // installs the operations; stays up until the process ends
  add_appends();
  add_prepend();
  add_share("share half of 1 MiB", mebibyte);
  add_share("share half of 1 MiB in 64 views", mebibyte / pieces);
  add_move();
  add_searches();
  add_walk();
  add_contiguous("make 64 KiB contiguous", 65536);
  add_contiguous("make 1 KiB of it contiguous", 1024);
  add_empty_life();
  add_cache();
  add_two_threads(netbuf_imp::size_classes[2]);
  return bench::run(argc, argv);
}
