// A million random operations on buffers that share chunks, against the naive model: every view
// lies where the rules put it, on the right chunk, with the right bytes and references.
#include <gtest/gtest.h>

#include <algorithm>
#include <deque>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "tests/netbuf/tested_buffer.h"
#include "tests/netbuf/view_model.h"

namespace {

using tests::external_memory;
using tests::model_buffer;
using tests::model_view;
using tests::tested_buffer;

constexpr int steps = 250000;  // for each of four seeds, with caches and without
constexpr int largest = 300000;

struct twin {
  std::unique_ptr<tested_buffer> real;
  model_buffer model;
};

struct external_piece {
  external_memory memory;
  int model_released = 0;
};

/// What differs between a buffer and its model; empty if nothing does.
std::string difference(twin& t) {
  if (t.real->views() != t.model.views.size()) {
    return "views: " + std::to_string(t.real->views()) + ", not " +
           std::to_string(t.model.views.size());
  }
  for (std::size_t i = 0; i < t.real->views(); ++i) {
    const netbuf_imp::view& seen = t.real->view(i);
    const model_view& v = t.model.views[i];
    const auto differs = [i](const std::string& what, auto one, auto other) {
      return "view " + std::to_string(i) + ": " + what + " " + std::to_string(one) + ", not " +
             std::to_string(other);
    };
    if (seen.offset != v.offset) return differs("offset", seen.offset, v.offset);
    if (seen.length != v.length) return differs("length", seen.length, v.length);
    const auto capacity = static_cast<int>(v.chunk->bytes.size());
    if (seen.chunk->capacity != capacity) {
      return differs("capacity", seen.chunk->capacity, capacity);
    }
    if (seen.chunk->references != v.chunk.use_count()) {
      return differs("references", seen.chunk->references, v.chunk.use_count());
    }
    if (v.chunk->real == nullptr) v.chunk->real = seen.chunk;
    if (v.chunk->real != seen.chunk) return "view " + std::to_string(i) + ": another chunk";
    if (std::memcmp(seen.begin(), v.chunk->bytes.data() + v.offset,
                    static_cast<std::size_t>(v.length)) != 0) {
      return "view " + std::to_string(i) + ": other bytes";
    }
  }
  return "";
}

class pair_of_worlds {
 public:
  pair_of_worlds(bool caches, unsigned seed)
      : through_(seed % 2 == 0 ? tests::face::typed : tests::face::table), random_(seed) {
    for (int i = 0; i < 6; ++i) twins_.push_back({new_buffer(), model_buffer(caches)});
  }

  /// One random operation. What went wrong; empty if nothing did.
  std::string step(int number) {
    twin &a = any(), &b = any();
    apply(a, b);
    for (twin* t : {&a, &b}) {
      if (t->model.size() > largest) drop(*t, largest, false);
    }
    std::string fault = difference(a);
    if (fault.empty()) fault = difference(b);
    for (std::size_t i = 0; number % 64 == 0 && i < twins_.size() && fault.empty(); ++i) {
      fault = difference(twins_[i]);
    }
    for (std::size_t i = 0; number % 64 == 0 && i < live_.size() && fault.empty();) {
      const external_piece& piece = *live_[i];
      if (piece.memory.released != piece.model_released) fault = "external memory not given back";
      if (piece.memory.released == 0) {
        ++i;
      } else {
        live_[i] = live_.back();
        live_.pop_back();
      }
    }
    return fault.empty() ? "" : done_ + ": " + fault;
  }

  /// Ends all buffers. How many pieces of external memory were not given back exactly once.
  int end() {
    twins_.clear();
    return static_cast<int>(std::count_if(pieces_.begin(), pieces_.end(),
                                          [](const auto& p) { return p.memory.released != 1; }));
  }

 private:
  int below(int n) { return static_cast<int>(random_() % static_cast<unsigned>(n)); }
  bool chance(int one_in) { return below(one_in) == 0; }
  twin& any() { return twins_[static_cast<std::size_t>(below(static_cast<int>(twins_.size())))]; }
  std::unique_ptr<tested_buffer> new_buffer() const {
    return std::make_unique<tested_buffer>(through_);
  }

  /// Mostly small, now and then around a class's size or what the rules halve.
  int count() {
    if (chance(400)) return below(70000);
    if (chance(100)) return (128 << 2 * below(4)) - 1 + below(3);
    if (chance(12)) return 1 + below(1000);
    if (chance(50)) return -below(2);
    return 1 + below(40);
  }

  int offset_in(const twin& t) { return below(t.model.size() + 2) - (chance(20) ? 1 : 0); }

  std::string text(int length) {
    std::string result(static_cast<std::size_t>(length), '\0');
    for (char& c : result) c = static_cast<char>(random_());
    return result;
  }

  static void fill(char* to, int length, const std::string& with) {
    for (int i = 0; i < length; ++i) to[i] = with[static_cast<std::size_t>(i) % with.size()];
  }

  void drop(twin& t, int n, bool back) {
    t.real->drop(n, back);
    t.model.drop(n, back);
  }

  void add_external(twin& t, bool back) {
    pieces_.push_back({{text(chance(30) ? 0 : 1 + below(60))}});
    external_piece& piece = pieces_.back();
    live_.push_back(&piece);
    const bool writable = chance(2), compact = chance(2);
    t.real->add_external(piece.memory, writable, back, compact);
    t.model.add_external(piece.memory.bytes, writable, &piece.model_released, back, compact);
  }

  void reserve(twin& t, int n, bool back) {
    const std::string with = text(7);
    char* const at = t.real->reserve(n, back);
    fill(at, t.model.reserve(n, back, with), with);
    EXPECT_EQ(at == nullptr, n < 1);
  }

  void reserve_any(twin& t, int n, bool back) {
    const std::string with = text(7);
    const netbuf::span at = t.real->reserve_any(n, back);
    EXPECT_EQ(t.model.reserve_any(n, back, with), at.length);
    fill(at.data, at.length, with);
  }

  void read(twin& t, int n, bool back, bool consume) {
    const std::string all = t.model.bytes();
    std::string copy(static_cast<std::size_t>(std::max(n, 0)), '-');
    t.real->read(copy.data(), n, consume, back);
    const std::size_t length = std::min(all.size(), copy.size());
    EXPECT_EQ(copy.substr(0, length),
              back ? all.substr(all.size() - length) : all.substr(0, length));
    EXPECT_EQ(copy.substr(length), std::string(copy.size() - length, '-'));
    if (consume) t.model.drop(n, back);
  }

  void look(twin& t) {
    std::string all = t.model.bytes();
    const int limit = chance(2) ? netbuf::all : offset_in(t);
    const char byte = static_cast<char>(random_());
    const std::size_t found = all.find(byte);
    EXPECT_EQ(t.real->find_byte(static_cast<unsigned char>(byte), limit),
              found != std::string::npos && static_cast<int>(found) < limit
                  ? static_cast<int>(found)
                  : -1);
    if (chance(3) && !all.empty()) ++all[static_cast<std::size_t>(below(t.model.size()))];
    if (chance(3)) all.resize(static_cast<std::size_t>(std::max(offset_in(t), 0)));
    const int order = t.model.bytes().compare(all);
    const int seen = t.real->compare(all.data(), static_cast<int>(all.size()));
    EXPECT_EQ((seen > 0) - (seen < 0), (order > 0) - (order < 0));
  }

  void pullup(twin& t) {
    const int wanted = chance(3) ? netbuf::all : chance(4) ? offset_in(t) : count();
    const netbuf::span front = t.real->pullup(wanted);
    t.model.pullup(wanted);
    EXPECT_EQ(front.length, t.model.views.empty() ? 0 : t.model.views.front().length);
  }

  void sub(twin& to, const twin& from) {
    const int offset = chance(3) ? 0 : offset_in(from);
    const int length = chance(3) ? netbuf::all : count();
    std::unique_ptr<tested_buffer> made(new tested_buffer(from.real->sub(offset, length)));
    model_buffer model = from.model.sub(offset, length);
    to.real = std::move(made);
    to.model = std::move(model);
  }

  void apply(twin& a, twin& b) {
    static const char* const names[] = {"sub",  "add_shared", "add_array",    "add_array",
                                        "drop", "read",       "add_external", "add_external",
                                        "move", "pullup",     "reserve",      "reserve",
                                        "any",  "find",       "drop half",    "add_external"};
    const int operation = below(16), n = count();
    const bool back = chance(2);
    done_ = std::string(names[operation]) + " " + std::to_string(n) + (back ? " back" : " front");
    switch (operation) {
      case 0:
        return sub(a, b);
      case 1:
        // Doubling and doubling again would leave no time for anything else.
        if (a.model.views.size() + b.model.views.size() > 140 && !chance(10)) return;
        a.real->add_shared(*b.real, back);
        return a.model.add_shared(b.model, back);
      case 2:
      case 3: {
        if (n < 1) return a.real->add_array(nullptr, n, back);
        const std::string bytes = text(n);
        a.real->add(bytes, back);
        return a.model.add_array(bytes, back);
      }
      case 4:
        return drop(a, n, back);
      case 5:
        return read(a, n, back, chance(2));
      case 8:
        a.real->move_from(*b.real, back);
        return a.model.move_from(b.model, back);
      case 9:
        if (chance(4)) pullup(a);
        return;
      case 10:
      case 11:
        return reserve(a, n, back);
      case 12:
        return reserve_any(a, n, back);
      case 13:
        return look(a);
      case 14:
        return drop(a, chance(20) ? netbuf::all : a.model.size() / 2, back);
      default:
        return add_external(a, back);
    }
  }

  const tests::face through_;
  std::mt19937 random_;  // fixed by the standard: the same numbers everywhere
  std::deque<external_piece> pieces_;
  std::vector<external_piece*> live_;
  std::vector<twin> twins_;
  std::string done_;
};

struct world {
  bool caches;
  unsigned seed;
};

class random_operations : public ::testing::TestWithParam<world> {};

INSTANTIATE_TEST_SUITE_P(each, random_operations,
                         ::testing::Values(world{true, 1}, world{true, 2}, world{true, 3},
                                           world{true, 4}, world{false, 1}, world{false, 2},
                                           world{false, 3}, world{false, 4}),
                         [](const auto& row) {
                           return (row.param.caches ? "caches_" : "plain_blocks_") +
                                  std::to_string(row.param.seed);
                         });

TEST_P(random_operations, leave_what_the_model_has) {
  netbuf::install(_netbuf_impl);
  netbuf::init({false, true});
  netbuf_imp::use_cache = GetParam().caches;
  pair_of_worlds both(GetParam().caches, GetParam().seed);
  for (int number = 0; number < steps; ++number) {
    const std::string fault = both.step(number);
    ASSERT_EQ(fault, "") << "seed " << GetParam().seed << ", step " << number;
    ASSERT_FALSE(HasFailure()) << "seed " << GetParam().seed << ", step " << number;
  }
  EXPECT_EQ(both.end(), 0);
  for (const netbuf_imp::size_class& row : netbuf_imp::size_classes) {
    if (row.cache == nullptr) continue;
    EXPECT_EQ(tests::fault_of_cache(*row.cache), "");
    EXPECT_EQ(row.cache->free_count, row.cache->total) << row.block_size;
  }
}

}  // namespace
