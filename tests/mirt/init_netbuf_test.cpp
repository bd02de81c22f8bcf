// Start-up and the network buffers: the runtime's own operations, or the host's.
#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "mirt/init.h"
#include "netbuf/cache.h"
#include "netbuf/netbuf.h"
#include "netbuf/operations.h"
#include "tests/support/error_of.h"
#include "tests/support/new_process.h"

namespace {

using tests::error_of;
using tests::in_new_process;

int g_started = 0;

/// A host's table of 29 words: what lies there must not be called, but for the three set-ups,
/// which must not be called by start-up.
std::vector<void*> host_operations() {
  static char words[29];
  std::vector<void*> table;
  for (char& word : words) table.push_back(&word);
  for (const std::size_t set_up : {0, 27, 28}) {
    table[set_up] = reinterpret_cast<void*>(+[] { ++g_started; });
  }
  return table;
}

mirt_api_t host(int version, void** operations) {
  mirt_api_t api;
  std::memset(&api, 0, sizeof api);
  api.version = version;
  api.netbuf_operations = operations;
  return api;
}

std::string start(mirt_api_t* api) {
  return error_of([api] { new mirt::init(api); });
}

void expect_installed(void* const* table) {
  for (int i = 0; i < 28; ++i) {
    EXPECT_EQ(netbuf::dispatch[i], table == nullptr ? nullptr : table[i < 22 ? i : i + 1]) << i;
  }
}

void expect_caches(bool built) {
  EXPECT_EQ(netbuf_imp::caches_built, built);
  EXPECT_EQ(netbuf_imp::use_cache, built);
  for (const netbuf_imp::size_class& row : netbuf_imp::size_classes) {
    EXPECT_EQ(row.cache != nullptr, built && row.block_size != 0) << row.block_size;
  }
}

TEST(startup, without_a_host_installs_the_own_operations_and_builds_the_caches) {
  in_new_process([] {
    ASSERT_EQ(start(nullptr), "no exception");
    expect_installed(_netbuf_impl);
    expect_caches(true);
    EXPECT_FALSE(netbuf::install(_netbuf_impl));
    netbuf::buffer b;
    std::memcpy(b.reserve(3), "abc", 3);
    EXPECT_EQ(b.compare("abc", 3), 0);
  });
}

TEST(startup, keeps_a_hosts_operations_and_does_not_start_them) {
  for (const int version : {16, 23, std::numeric_limits<int>::max()}) {
    in_new_process([version] {
      std::vector<void*> operations = host_operations();
      mirt_api_t api = host(version, operations.data());
      ASSERT_EQ(start(&api), "no exception");
      expect_installed(operations.data());
      EXPECT_EQ(g_started, 0);
      expect_caches(false);
    });
  }
}

TEST(startup, installs_the_operations_also_of_a_host_that_is_too_old) {
  for (const int version : {0, 1, 15}) {
    in_new_process([version] {
      std::vector<void*> operations = host_operations();
      mirt_api_t api = host(version, operations.data());
      EXPECT_EQ(start(&api), "mirt-rpt api missing");
      expect_installed(operations.data());
      EXPECT_EQ(g_started, 0);
      expect_caches(false);
    });
  }
}

TEST(startup, installs_nothing_of_a_host_with_a_negative_version) {
  for (const int version : {-1, -2, std::numeric_limits<int>::min()}) {
    in_new_process([version] {
      std::vector<void*> operations = host_operations();
      mirt_api_t api = host(version, operations.data());
      EXPECT_EQ(start(&api), "mirt-rpt api missing");
      expect_installed(nullptr);
      expect_caches(false);
    });
  }
}

TEST(startup, takes_its_own_operations_where_the_host_brings_none) {
  in_new_process([] {
    mirt_api_t api = host(23, nullptr);
    ASSERT_EQ(start(&api), "no exception");
    expect_installed(_netbuf_impl);
    expect_caches(true);
  });
}

TEST(startup, leaves_operations_that_were_installed_before_it) {
  in_new_process([] {
    std::vector<void*> early = host_operations();
    ASSERT_TRUE(netbuf::install(early.data()));
    mirt_api_t api = host(23, _netbuf_impl);
    ASSERT_EQ(start(&api), "no exception");
    expect_installed(early.data());
    EXPECT_EQ(g_started, 0);
    expect_caches(false);
  });
}

TEST(startup, leaves_the_own_operations_to_a_host_that_hands_them_in) {
  in_new_process([] {
    mirt_api_t api = host(23, _netbuf_impl);
    ASSERT_EQ(start(&api), "no exception");
    expect_installed(_netbuf_impl);
    expect_caches(false);  // it is responsible for starting them
    netbuf::init({false, true});
    expect_caches(true);
  });
}

}  // namespace
