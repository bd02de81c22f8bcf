// Memory that runs out in the middle of an operation: every buffer stays as it was and sound,
// nothing leaks, and external memory goes back exactly once.
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "tests/netbuf/tested_buffer.h"
#include "tests/support/allocations.h"

namespace {

using tests::external_memory;
using tests::table_call;
using tests::tested_buffer;

/// Lets `good` allocations of the operations succeed and no further one; those of the test itself
/// are none of them.
class scarce_memory {
 public:
  explicit scarce_memory(long good) : good_(good) {}

  /// Runs an operation. False once memory has run out in one; then no other is run.
  bool operator()(const std::vector<const tested_buffer*>& buffers,
                  const std::function<void()>& operation) {
    if (failed_) return false;
    std::vector<std::string> before, after;
    for (const tested_buffer* b : buffers) before.push_back(b->bytes());
    const tests::allocation_count count;
    try {
      const tests::failing_allocations failing(good_);
      operation();
    } catch (const std::bad_alloc&) {
      failed_ = true;
    }
    good_ -= count.made();
    if (!failed_) return true;
    for (const tested_buffer* b : buffers) after.push_back(b->bytes());
    EXPECT_EQ(after, before);
    for (const tested_buffer* b : buffers) EXPECT_EQ(tests::fault_of_buffer(b->handle()), "");
    return false;
  }

  bool failed() const { return failed_; }

 private:
  long good_;
  bool failed_ = false;
};

std::uint64_t batches() {
  std::uint64_t sum = 0;
  for (const netbuf_imp::size_class& row : netbuf_imp::size_classes) {
    if (row.cache == nullptr) continue;
    sum += row.cache->total / row.cache->items_per_batch;
    EXPECT_EQ(tests::fault_of_cache(*row.cache), "");
  }
  return sum;
}

void make_wasteful(tested_buffer& b) {
  char* const array = tested_buffer::alloc_array(100);
  b.add_array(array, 100);
  b.drop(60, true);
}

/// Every operation that may want memory, each in the cases in which it does. Operations on many
/// views end in a compaction, which may want some more.
bool scenario(long good, bool many) {
  static char digits[] = "0123456789";
  scarce_memory scarce(good);
  external_memory one{"first"}, two{"second"}, compact{"c"};
  bool one_in = false, two_in = false, compact_in = false;
  {
    tested_buffer a(tests::face::table, {"ab", "cd", "ef", "gh"}), b(tests::face::table, {"xy"});
    for (int i = 0; many && i < 124; ++i) a.add_external(digits, 1, false, nullptr, nullptr);
    const std::vector<const tested_buffer*> both = {&a, &b};
    for (const int end : {1, 0}) {
      scarce(both, [&] { a.reserve(3000, end); });
      scarce(both, [&] { a.reserve_any(3000, end); });
      scarce(both, [&] { a.pullup(netbuf::all); });
      scarce(both, [&] { a.add_shared(b, end); });
      scarce(both, [&] { b.add_shared(a, end); });
      scarce(both, [&] { a.add_shared(a, end); });
      scarce(both, [&] { table_call<1, void>(table_call<3, void*>(a.handle(), 1, netbuf::all)); });
      scarce(both, [&] { table_call<1, void>(table_call<2, void*>()); });
      scarce(both, [&] { delete[] tested_buffer::alloc_array(9); });
      char* const array = tested_buffer::alloc_array(7);
      std::memcpy(array, "1234567", 7);
      if (!scarce(both, [&] { b.add_array(array, 7, end); })) delete[] array;
      scarce(both, [&] {
        void* const it = table_call<15, void*>(a.handle());
        const std::unique_ptr<void, void (*)(void*)> guard(it, table_call<14, void, void*>);
        table_call<14, void>(table_call<16, void*>(it));
      });
    }
    tested_buffer wasteful(tests::face::table), few(tests::face::table, {"m", "n", "o"});
    make_wasteful(wasteful);
    one_in = scarce({&wasteful}, [&] { wasteful.add_external(one, true); });
    two_in = scarce({&wasteful}, [&] { wasteful.add_external(two, true, false, true); });
    tested_buffer full(tests::face::table, {"p", "q", "r", "s"});
    for (int i = 0; many && i < 124; ++i) full.add_external(digits, 1, false, nullptr, nullptr);
    compact_in = scarce({&full}, [&] { full.add_external(compact, false, true, true); });
    scarce({&full, &few}, [&] { full.move_from(few); });
    scarce({&full, &wasteful}, [&] { wasteful.move_from(full, false); });
    scarce({&wasteful}, [&] {
      char bytes[10];
      wasteful.drop(1);
      wasteful.read(bytes, 5, true);
      wasteful.drop(1, true);
      wasteful.find_byte('q');
      wasteful.compare("abc", 3);
    });
  }
  EXPECT_EQ(one.released, one_in ? 1 : 0);
  EXPECT_EQ(two.released, two_in ? 1 : 0);
  EXPECT_EQ(compact.released, compact_in ? 1 : 0);
  return !scarce.failed();
}

class out_of_memory : public ::testing::TestWithParam<bool> {
 protected:
  void SetUp() override {
    netbuf_imp::init(false, true);
    netbuf_imp::use_cache = GetParam();
  }
};

INSTANTIATE_TEST_SUITE_P(each, out_of_memory, ::testing::Bool(),
                         [](const auto& row) { return row.param ? "caches" : "plain_blocks"; });

TEST_P(out_of_memory, at_the_nth_allocation_leaves_every_buffer_and_leaks_nothing) {
  for (const bool many : {false, true}) {
    long good = 0;
    for (bool done = false; !done && !HasFailure(); ++good) {
      SCOPED_TRACE(std::to_string(good) + (many ? " of many views" : " of few views"));
      const std::uint64_t batches_before = batches();
      const tests::allocation_count count;
      done = scenario(good, many);
      EXPECT_EQ(count.live(), static_cast<long>(batches() - batches_before));
    }
    EXPECT_GT(good, 20);  // the scenario does want memory
  }
}

TEST(compaction, that_finds_no_memory_ends_the_operation_and_leaves_the_buffer_sound) {
  netbuf_imp::use_cache = false;
  static char digits[] = "0123456789";
  tested_buffer b(tests::face::table), source(tests::face::table);
  for (int i = 0; i < 129; ++i) b.add_external(digits, 1, false, nullptr, nullptr);
  const auto ends_by_exception = [](const std::function<void()>& operation) {
    try {
      const tests::failing_allocations failing(0);
      operation();
    } catch (const std::bad_alloc&) {
      return true;
    }
    return false;
  };
  EXPECT_TRUE(ends_by_exception([&] { b.move_from(source); }));
  EXPECT_TRUE(ends_by_exception([&] { b.add_shared(source); }));
  EXPECT_TRUE(ends_by_exception([&] { b.reserve(1); }));
  EXPECT_TRUE(ends_by_exception([&] { b.reserve_any(1); }));
  EXPECT_TRUE(ends_by_exception([&] { b.pullup(netbuf::all); }));
  EXPECT_EQ(b.bytes(), std::string(129, '0'));
  EXPECT_EQ(b.views(), 129U);
}

}  // namespace
