// The machine-wide registry, in a private /etc.
#include "flag/system.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <new>

#include "tests/support/access_recorder.h"
#include "tests/support/private_etc.h"
#include "tests/support/scratch_dir.h"
#include "xstd/config.h"

namespace {

void (*g_on_allocation)() = nullptr;

}  // namespace

// The only way in while the registry attaches an item: it allocates. Not inlined, or compilers
// mistake the pairs of these for mismatched ones.
[[gnu::noinline]] void* operator new(std::size_t size) {
  if (g_on_allocation) g_on_allocation();
  void* const memory = std::malloc(size == 0 ? 1 : size);
  if (!memory) throw std::bad_alloc();
  return memory;
}
[[gnu::noinline]] void operator delete(void* memory) noexcept {
  std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}

namespace {

using tests::content;
using tests::in_private_etc;

const std::string g_flags = "/etc/tarnwick/Quorvex/flags";

void make_flag(const std::string& name, const std::string& text) {
  std::filesystem::create_directories(g_flags);
  tests::make_file(g_flags + "/" + name, text);
}

TEST(mirt_flag_init_system, reads_and_writes_the_flags_of_the_product) {
  in_private_etc([] {
    xstd::init_storage();
    make_flag("on", "true");
    flag::init_item_api* const registry = mirt_flag_init_system();
    EXPECT_TRUE(registry->attach("On", false)->value());
    registry->attach("off", true)->set(false, false);
    EXPECT_EQ("false", content(g_flags + "/off"));
  });
}

TEST(mirt_flag_init_system, gives_the_same_registry_each_time_and_reads_the_store_once) {
  in_private_etc([] {
    xstd::init_storage();
    make_flag("x", "true");
    const tests::access_recorder recorder;
    flag::init_item_api* const registry = mirt_flag_init_system();
    EXPECT_EQ(1, std::count(recorder.seen().begin(), recorder.seen().end(),
                            tests::access_recorder::access(2, g_flags)));
    const std::size_t accesses = recorder.seen().size();
    make_flag("x", "false");
    EXPECT_EQ(registry, mirt_flag_init_system());
    EXPECT_EQ(accesses, recorder.seen().size());
    EXPECT_TRUE(registry->attach("x", false)->value());
  });
}

TEST(mirt_flag_init_system, creates_nothing_on_disk) {
  in_private_etc([] {
    xstd::init_storage();
    mirt_flag_init_system();
    EXPECT_THAT(tests::tree("/etc"), testing::IsEmpty());
  });
}

TEST(mirt_flag_init_system, registers_the_declared_flags_with_their_stored_values) {
  in_private_etc([] {
    static flag::item declared("Declared Flag", false);
    static flag::item other("Other Flag", true);
    xstd::init_storage();
    make_flag("declared_flag", "true");
    flag::init_item_api* const registry = mirt_flag_init_system();
    EXPECT_EQ(nullptr, flag::item::first());
    ASSERT_NE(nullptr, declared.api);
    EXPECT_EQ(registry->find("declared flag"), declared.api);
    EXPECT_TRUE(declared.api->value());
    EXPECT_FALSE(declared.api->is_default());
    EXPECT_TRUE(other.api->is_default());
    EXPECT_TRUE(other.api->value());
  });
}

TEST(mirt_flag_init_system, a_flag_that_asks_while_it_is_registered_gets_the_same_registry) {
  in_private_etc([] {
    static flag::item declared("Declared Flag", false);
    static flag::init_item_api* asked = nullptr;
    xstd::init_storage();
    // The list is empty and the item not filled in only while the last flag is being attached.
    g_on_allocation = [] {
      if (flag::item::first() || declared.api) return;
      g_on_allocation = nullptr;
      asked = mirt_flag_init_system();
    };
    flag::init_item_api* const registry = mirt_flag_init_system();
    ASSERT_EQ(nullptr, g_on_allocation) << "nobody asked";
    EXPECT_EQ(registry, asked);
    EXPECT_EQ(registry->find("declared flag"), declared.api);
    EXPECT_EQ(1u, declared.api->use_count());
  });
}

}  // namespace
