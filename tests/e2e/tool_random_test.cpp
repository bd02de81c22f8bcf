// Random arguments on random stores: the tool and a naive model of it must agree.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "tests/e2e/naive_model.h"
#include "tests/e2e/tool.h"
#include "tests/support/private_etc.h"

namespace {

using tests::store_tree;

/// The same numbers everywhere: the engine is fixed by the standard, its distributions are not.
class dice {
 public:
  explicit dice(unsigned seed) : engine_(seed) {}

  unsigned below(unsigned bound) { return static_cast<unsigned>(engine_() % bound); }
  bool one_in(unsigned n) { return below(n) == 0; }

  template <class T>
  const T& one_of(const std::vector<T>& choices) {
    return choices[below(static_cast<unsigned>(choices.size()))];
  }

 private:
  std::mt19937 engine_;
};

/// Anything that the grammar knows, in any order.
std::string wild_argument(dice& random) {
  static const std::vector<std::string> pieces = {
      "&", "&",   "=",   "=",   "=CT", "=CT", "=CF", "=DT", "=DF", "C",   "D",   "T",   "F",
      "_", "_",   "a",   "b",   "x",   "p",   "0",   "9",   "z",   "A",   "Z",   "%",   "%",
      "+", "%61", "%5f", "%5F", "%26", "%3d", "%4",  "%7g", "%zz", "%00", "%2f", "%43", "%54",
      " ", "/",   "\\",  "-",   ".",   ";",   "`",   "{",   ":",   "@",   "\n",  "\x7f"};
  std::string result;
  for (unsigned i = random.below(12); i > 0; --i) {
    result += random.one_in(20) ? std::string(1, static_cast<char>(1 + random.below(255)))
                                : random.one_of(pieces);
  }
  return result;
}

/// Pairs as they should be, now and then with one byte that should not.
std::string likely_argument(dice& random) {
  static const std::vector<std::string> letters = {"a", "b", "x", "p", "0",   "9",
                                                   "_", "_", "%", "z", "%5f", "%61"};
  static const std::vector<std::string> codes = {"CT", "CF", "DT", "DF", "%43T", "C%54", "CT%"};
  std::string result;
  for (unsigned pairs = 1 + random.below(6); pairs > 0; --pairs) {
    if (random.one_in(100)) result.append(250 + random.below(10), 'k');
    for (unsigned i = 1 + random.below(3); i > 0; --i) result += random.one_of(letters);
    result += "=" + random.one_of(codes) + (random.one_in(10) ? "&&" : "&");
  }
  if (random.one_in(2)) result.pop_back();
  if (random.one_in(5)) {
    const unsigned at = random.below(static_cast<unsigned>(result.size()));
    result[at] = static_cast<char>(1 + random.below(255));
  }
  return result;
}

/// A store with some flags in any state, and other things, also where they do not belong.
store_tree random_store(dice& random) {
  static const std::vector<std::string> texts = {"true", "false", "odd text", "", "<dir>"};
  store_tree store;
  if (random.one_in(8)) return store;
  store["other"] = "untouched";
  store["tarnwick"] = random.one_in(20) ? "file" : "<dir>";
  if (store["tarnwick"] == "file" || random.one_in(20)) return store;
  store["tarnwick/other"] = "untouched";
  store["tarnwick/Quorvex"] = random.one_in(20) ? "file" : "<dir>";
  if (store["tarnwick/Quorvex"] == "file" || random.one_in(20)) return store;
  store["tarnwick/Quorvex/other"] = "untouched";
  store["tarnwick/Quorvex/flags"] = random.one_in(10) ? random.one_of(texts) : "<dir>";
  if (store["tarnwick/Quorvex/flags"] != "<dir>") return store;
  for (const char* name : {"a", "b", "x", "p", "0", "a_b", "x_x", "aa", "other", "my+key", "%zz"}) {
    if (random.one_in(2)) continue;
    store[std::string("tarnwick/Quorvex/flags/").append(name)] = random.one_of(texts);
  }
  return store;
}

TEST(tool_random, agrees_with_the_naive_model) {
  tests::in_private_etc([] {
    dice random(20250607);
    int rejected = 0, changed = 0, unchanged = 0;
    for (int i = 0; i < 2200; ++i) {
      const std::string argument =
          random.one_in(3) ? wild_argument(random) : likely_argument(random);
      const store_tree before = random_store(random);
      SCOPED_TRACE(testing::Message() << i << ": " << testing::PrintToString(argument) << " on "
                                      << testing::PrintToString(before));
      tests::make_store(before);
      store_tree expected = before;
      const int status = tests::naive_tool(argument, expected);
      ASSERT_EQ(status, tests::run_tool(argument));
      ASSERT_EQ(expected, tests::store());
      ++(status != 0 ? rejected : expected != before ? changed : unchanged);
    }
    // Each kind often enough to mean something.
    EXPECT_GT(rejected, 500);
    EXPECT_GT(changed, 500);
    EXPECT_GT(unchanged, 50);
  });
}

}  // namespace
