// netbuf/netbuf.h: the installation of a table, its start, and which word each typed call reaches.
#include "netbuf/netbuf.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

#include "netbuf/cache.h"
#include "netbuf/operations.h"
#include "tests/support/new_process.h"

namespace {

using ::testing::ElementsAre;
using tests::in_new_process;

static_assert(sizeof(netbuf::init_args) == 2);
static_assert(offsetof(netbuf::init_args, first) == 0);
static_assert(offsetof(netbuf::init_args, use_cache) == 1);
static_assert(std::extent_v<decltype(_netbuf_impl)> == 29);
static_assert(std::extent_v<decltype(netbuf::dispatch)> == 28);
static_assert(std::is_same_v<decltype(netbuf::install), bool(void**)>);
static_assert(std::is_same_v<decltype(netbuf::init), void(const netbuf::init_args&)>);
static_assert(!std::is_copy_constructible_v<netbuf::buffer>);

char g_words[29];  // what a host's table holds, as long as nobody calls it

std::vector<void*> words_of_a_host() {
  std::vector<void*> table;
  for (char& word : g_words) table.push_back(&word);
  return table;
}

TEST(install, has_not_happened_before_its_first_call) {
  in_new_process([] {
    for (const void* word : netbuf::dispatch) EXPECT_EQ(word, nullptr);
  });
}

TEST(install, copies_the_words_but_the_22nd_in_order) {
  in_new_process([] {
    std::vector<void*> table = words_of_a_host();
    const std::vector<void*> before = table;
    EXPECT_TRUE(netbuf::install(table.data()));
    for (int i = 0; i < 28; ++i) {
      SCOPED_TRACE(i);
      EXPECT_EQ(netbuf::dispatch[i], &g_words[i < 22 ? i : i + 1]);
    }
    EXPECT_EQ(table, before);
  });
}

TEST(install, is_refused_once_a_table_is_there) {
  in_new_process([] {
    std::vector<void*> table = words_of_a_host();
    ASSERT_TRUE(netbuf::install(table.data()));
    EXPECT_FALSE(netbuf::install(_netbuf_impl));
    EXPECT_FALSE(netbuf::install(table.data()));
    EXPECT_FALSE(netbuf::install(nullptr));
    EXPECT_EQ(netbuf::dispatch[0], &g_words[0]);
    EXPECT_EQ(netbuf::dispatch[27], &g_words[28]);
  });
}

TEST(install, of_a_table_without_a_first_word_does_not_count) {
  in_new_process([] {
    std::vector<void*> table = words_of_a_host();
    table[0] = nullptr;
    EXPECT_TRUE(netbuf::install(table.data()));
    EXPECT_TRUE(netbuf::install(_netbuf_impl));
    EXPECT_EQ(netbuf::dispatch[0], _netbuf_impl[0]);
    EXPECT_EQ(netbuf::dispatch[27], _netbuf_impl[28]);
  });
}

TEST(install, starts_nothing) {
  in_new_process([] {
    EXPECT_TRUE(netbuf::install(_netbuf_impl));
    EXPECT_FALSE(netbuf_imp::caches_built);
  });
}

TEST(own_table, has_29_different_operations) {
  for (void* const& word : _netbuf_impl) {
    ASSERT_NE(word, nullptr);
    for (void* const* other = _netbuf_impl; other != &word; ++other) {
      // The two placeholders may be one.
      if (&word != &_netbuf_impl[21] || other != &_netbuf_impl[12]) {
        EXPECT_NE(word, *other);
      }
    }
  }
}

TEST(own_table, is_started_with_caches_or_without) {
  for (const bool caches : {true, false}) {
    in_new_process([caches] {
      netbuf::install(_netbuf_impl);
      netbuf::init({true, caches});
      EXPECT_TRUE(netbuf_imp::caches_built);
      EXPECT_EQ(netbuf_imp::use_cache, caches);
      EXPECT_EQ(netbuf_imp::size_classes[0].cache != nullptr, caches);
    });
  }
}

std::vector<std::string> g_calls;  // "word: argument argument"
char g_handle, g_other, g_bytes[4];

std::string shown(int number) {
  return std::to_string(number);
}
std::string shown(const void* pointer) {
  return pointer == &g_handle  ? "buffer"
         : pointer == &g_other ? "other"
         : pointer == g_bytes  ? "bytes"
         : pointer == nullptr  ? "null"
                               : "out";
}

template <class... Arguments>
void record(int word, Arguments... arguments) {
  std::string call = std::to_string(word) + ":";
  (call.append(1, ' ').append(shown(arguments)), ...);
  g_calls.push_back(call);
}

template <class F>
void* address(F* function) {
  return reinterpret_cast<void*>(function);
}

void release_callback(void*) {}

int g_pieces_left = 0;

/// A host's table that writes down what is called. Its results can be told from each other.
std::vector<void*> recording_table() {
  std::vector<void*> table = words_of_a_host();
  table[1] = address(+[](void* b) { record(1, b); });
  table[2] = address(+[]() -> void* {
    record(2);
    return &g_handle;
  });
  table[3] = address(+[](void* b, int offset, int length) -> void* {
    record(3, b, offset, length);
    return &g_other;
  });
  table[4] = address(+[](void* b) {
    record(4, b);
    return 104;
  });
  table[5] = address(+[](void* b, void* from, int end) { record(5, b, from, end); });
  table[6] = address(+[](void* b, char* a, int n, int end) { record(6, b, a, n, end); });
  table[7] = address(+[](void* b, int n, int end) {
    record(7, b, n, end);
    return g_bytes;
  });
  table[8] = address(+[](void* b, int n, int end, char** out, int* length) {
    record(8, b, n, end);
    *out = g_bytes;
    *length = 108;
  });
  table[9] = address(+[](void* b, char** out, int* length, int wanted) {
    record(9, b, wanted);
    *out = g_bytes;
    *length = 109;
  });
  table[10] = address(+[](void* b, int n, int back) { record(10, b, n, back); });
  table[11] = address(+[](void* b, char* to, int n, int consume, int back) {
    record(11, b, to, n, consume, back);
  });
  table[14] = address(+[](void* it) { record(14, it); });
  table[15] = address(+[](void* b) -> void* {
    record(15, b);
    return &g_other;
  });
  // As a host may: only the lowest byte of the result is a promise.
  table[17] =
      address(+[](void*) -> std::uint64_t { return 0xABCDEF00U + (g_pieces_left > 0 ? 1U : 0U); });
  table[18] = address(+[](void* it, char** out, int* length) {
    record(18, it);
    *out = g_bytes;
    return *length = 118;
  });
  table[19] = address(+[](void* it) {
    --g_pieces_left;
    record(19, it);
  });
  table[20] = address(+[](int n) {
    record(20, n);
    return g_bytes;
  });
  table[23] = address(+[](void* b, unsigned char byte, int limit) {
    record(23, b, byte, limit);
    return 123;
  });
  table[24] = address(+[](void* b, const char* bytes, int n) {
    record(24, b, bytes, n);
    return -124;
  });
  table[25] = address(+[](void* b, char* data, int n, int end, int writable, void (*release)(void*),
                          void* context, int compact) {
    EXPECT_EQ(release, release_callback);
    record(25, b, data, n, end, writable, context, compact);
  });
  table[26] = address(+[](void* to, void* from, int end) { record(26, to, from, end); });
  table[28] = address(+[](int first, int use_cache) { record(28, first, use_cache); });
  return table;
}

class typed_face : public ::testing::Test {
 protected:
  void SetUp() override {
    static std::vector<void*> table = recording_table();
    netbuf::dispatch[0] = nullptr;
    ASSERT_TRUE(netbuf::install(table.data()));
    g_calls.clear();
  }
};

TEST_F(typed_face, starts_the_implementation_with_both_flags) {
  for (const bool first : {false, true}) {
    for (const bool use_cache : {false, true}) netbuf::init({first, use_cache});
  }
  EXPECT_THAT(g_calls, ElementsAre("28: 0 0", "28: 0 1", "28: 1 0", "28: 1 1"));
}

TEST_F(typed_face, makes_and_destroys_buffers) {
  {
    netbuf::buffer b;
    const netbuf::buffer part = b.sub(3, 5);
  }
  EXPECT_THAT(g_calls, ElementsAre("2:", "3: buffer 3 5", "1: other", "1: buffer"));
}

TEST_F(typed_face, passes_every_call_on) {
  netbuf::buffer b;
  netbuf::buffer other = b.sub(0, 0);
  g_calls.clear();
  EXPECT_EQ(b.size(), 104);
  b.add_shared(other);
  b.add_shared(other, netbuf::end::front);
  b.add_array(g_bytes, 4);
  b.add_array(g_bytes, 4, netbuf::end::front);
  EXPECT_EQ(b.reserve(7), g_bytes);
  EXPECT_EQ(b.reserve(7, netbuf::end::front), g_bytes);
  b.drop(10);
  b.drop(10, netbuf::end::back);
  b.read(g_bytes, 3, true);
  b.read(g_bytes, 3, false, netbuf::end::back);
  EXPECT_EQ(netbuf::buffer::alloc_array(20), g_bytes);
  EXPECT_EQ(b.find_byte(0xff), 123);
  EXPECT_EQ(b.find_byte('a', 9), 123);
  EXPECT_EQ(b.compare(g_bytes, 4), -124);
  b.add_external(g_bytes, 4, true, release_callback, &g_other);
  b.add_external(g_bytes, 4, false, release_callback, nullptr, netbuf::end::front, false);
  b.move_from(other);
  b.move_from(other, netbuf::end::front);
  EXPECT_THAT(
      g_calls,
      ElementsAre("4: buffer", "5: buffer other 1", "5: buffer other 0", "6: buffer bytes 4 1",
                  "6: buffer bytes 4 0", "7: buffer 7 1", "7: buffer 7 0", "10: buffer 10 0",
                  "10: buffer 10 1", "11: buffer bytes 3 1 0", "11: buffer bytes 3 0 1", "20: 20",
                  "23: buffer 255 2147483647", "23: buffer 97 9", "24: buffer bytes 4",
                  "25: buffer bytes 4 1 1 other 1", "25: buffer bytes 4 0 0 null 0",
                  "26: buffer other 1", "26: buffer other 0"));
}

TEST_F(typed_face, returns_spans) {
  netbuf::buffer b;
  const netbuf::span any = b.reserve_any(8), front = b.pullup(9), whole = b.pullup();
  EXPECT_EQ(any.data, g_bytes);
  EXPECT_EQ(any.length, 108);
  EXPECT_EQ(front.data, g_bytes);
  EXPECT_EQ(front.length, 109);
  EXPECT_EQ(whole.length, 109);
  b.reserve_any(8, netbuf::end::front);
  EXPECT_THAT(g_calls, ElementsAre("2:", "8: buffer 8 1", "9: buffer 9", "9: buffer 2147483647",
                                   "8: buffer 8 0"));
}

TEST_F(typed_face, walks_by_the_hosts_iterator) {
  const netbuf::buffer b;
  g_pieces_left = 2;
  int seen = 0;
  b.for_each([&seen](netbuf::span piece) {
    if (++seen > 2) throw std::runtime_error("the end was not seen");
    EXPECT_EQ(piece.data, g_bytes);
    EXPECT_EQ(piece.length, 118);
  });
  EXPECT_EQ(seen, 2);
  EXPECT_THAT(g_calls, ElementsAre("2:", "15: buffer", "18: other", "19: other", "18: other",
                                   "19: other", "14: other"));
}

}  // namespace
