// Flag items: their keys, their state, and the list of those that a program declares.
#include "flag/item.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <future>
#include <stdexcept>
#include <thread>

#include "tests/flag/flag_registry.h"
#include "tests/support/slots.h"

namespace {

using flag::init_item_api;
using flag::item_api;
using flag::impl::desc_to_key;
using testing::NiceMock;
using testing::Return;
using testing::Throw;
using tests::call_slot;
using tests::description_of_only;
using tests::lock_holder;
using tests::storage_mock;
using flag_item = tests::flag_registry;
using flag_item_list = tests::flag_registry;

// Keys.

TEST(flag_key, a_run_of_other_bytes_is_one_underscore_and_none_at_the_ends) {
  const struct {
    std::string description;
    const char* key;
  } rows[] = {
      {"Enable Fast Start", "enable_fast_start"},
      {"  x--Y  ", "x_y"},
      {"__", ""},
      {"", ""},
      {"_", ""},
      {"x_", "x"},
      {"x__", "x"},
      {"_x", "x"},
      {"x", "x"},
      {"a__b", "a_b"},
      {"a_b", "a_b"},
      {"Show Status Panel", "show_status_panel"},
      {"show-status-panel", "show_status_panel"},
      {"az09AZ", "az09az"},
      {"caf\xc3\xa9 2", "caf_2"},
      {std::string("a\0b\0", 4), "a_b"},
  };
  for (const auto& [description, key] : rows) {
    EXPECT_EQ(key, desc_to_key(description)) << testing::PrintToString(description);
  }
}

TEST(flag_key, each_byte_is_kept_lowered_or_folded) {
  const std::string upper = "ABCDEFGHIJKLMNOPQRSTUVWXYZ";
  const std::string lower = "abcdefghijklmnopqrstuvwxyz0123456789";
  for (int byte = 0; byte < 256; ++byte) {
    const char c = static_cast<char>(byte);
    char expected = '_';
    if (lower.find(c) != std::string::npos) expected = c;
    if (upper.find(c) != std::string::npos) expected = lower[upper.find(c)];
    EXPECT_EQ(std::string({'x', expected, 'y'}), desc_to_key({'x', c, 'y'})) << byte;
    EXPECT_EQ(expected == '_' ? "" : std::string(1, expected), desc_to_key({c})) << byte;
  }
}

// Slots, called as a host does that knows nothing but their order.

TEST_F(flag_item, the_operations_have_a_fixed_order) {
  item_api* const item = registry_->declare(true, "a comment", "x", true);
  registry_->attach("x", false);
  registry_->attach("x", false);
  EXPECT_EQ(2, call_slot<int>(item, 0));
  EXPECT_TRUE(call_slot<bool>(item, 1));
  EXPECT_TRUE(call_slot<bool>(item, 2));
  EXPECT_CALL(storage_, put("x", item));
  call_slot<void>(item, 3, false, false);
  EXPECT_FALSE(call_slot<bool>(item, 1));
  EXPECT_FALSE(call_slot<bool>(item, 2));
  EXPECT_STREQ("a comment", call_slot<const char*>(item, 4));
  EXPECT_EQ(2u, call_slot<unsigned>(item, 5));
  EXPECT_FALSE(call_slot<bool>(item, 6));
  registry_->expose(true, "x", false);
  EXPECT_TRUE(call_slot<bool>(item, 6));
  EXPECT_TRUE(call_slot<bool>(item, 7));
}

// Items.

TEST_F(flag_item, the_stored_state_comes_before_the_default) {
  const struct {
    int stored;
    bool default_value;
    bool value;
  } rows[] = {
      {0, false, false},  {0, true, true},   {1, false, true}, {1, true, true},
      {-1, false, false}, {-1, true, false}, {2, false, true}, {-2, true, false},
  };
  for (const auto& [stored, default_value, value] : rows) {
    SCOPED_TRACE(testing::Message() << stored << ' ' << default_value);
    EXPECT_CALL(storage_, get("x")).WillOnce(Return(stored));
    item_api* const item = flag::create_api(&storage_)->attach("x", default_value);
    EXPECT_EQ(value, item->value());
    EXPECT_EQ(stored == 0, item->is_default());
    EXPECT_EQ(default_value, item->default_value());
  }
}

TEST_F(flag_item, a_new_one_is_not_used_not_exposed_and_has_no_comment) {
  item_api* const item = registry_->declare(false, nullptr, "x", false);
  EXPECT_EQ(0u, item->use_count());
  EXPECT_FALSE(item->is_exposed());
  EXPECT_EQ(nullptr, item->comment());
  EXPECT_EQ(2, item->interface_version());
}

TEST_F(flag_item, set_changes_the_state_and_the_storage_sees_the_new_one) {
  const struct {
    bool to_default, value, default_value;
    bool is_default_after, value_after;
  } rows[] = {
      {false, true, false, false, true}, {false, false, true, false, false},
      {true, true, false, true, false},  {true, false, true, true, true},
      {true, false, false, true, false}, {true, true, true, true, true},
  };
  for (const auto& row : rows) {
    NiceMock<storage_mock> storage;
    item_api* const item = flag::create_api(&storage)->attach("My Flag", row.default_value);
    item->set(false, !row.value);
    EXPECT_CALL(storage, put("my_flag", item)).WillOnce([&row](const std::string&, item_api* put) {
      EXPECT_EQ(row.is_default_after, put->is_default());
      EXPECT_EQ(row.value_after, put->value());
    });
    item->set(row.to_default, row.value);
    EXPECT_EQ(row.is_default_after, item->is_default());
    EXPECT_EQ(row.value_after, item->value());
    EXPECT_EQ(row.default_value, item->default_value());
  }
}

TEST_F(flag_item, the_new_state_stays_when_storing_it_throws) {
  item_api* const item = registry_->attach("x", false);
  EXPECT_CALL(storage_, put).WillOnce(Throw(std::runtime_error("full")));
  EXPECT_THROW(item->set(false, true), std::runtime_error);
  EXPECT_TRUE(item->value());
  EXPECT_FALSE(item->is_default());
}

TEST_F(flag_item, the_lock_is_free_after_storing_threw) {
  item_api* const item = registry_->attach("x", false);
  EXPECT_CALL(storage_, put).WillOnce(Throw(std::runtime_error("full")));
  EXPECT_THROW(item->set(false, true), std::runtime_error);
  std::thread([&] { EXPECT_EQ(item, registry_->find("x")); }).join();
}

TEST_F(flag_item, its_key_is_made_anew_from_its_description_each_time) {
  char description[] = "First";
  item_api* const item = registry_->attach(description, false);
  std::strcpy(description, "Other");
  EXPECT_CALL(storage_, put("other", item));
  item->set(false, true);
}

TEST_F(flag_item, a_storage_may_call_the_registry_back) {
  item_api* const item = registry_->attach("x", false);
  item_api* const second = registry_->attach("y", false);
  EXPECT_CALL(storage_, put("y", second));
  EXPECT_CALL(storage_, put("x", item)).WillOnce([&](const std::string&, item_api*) {
    EXPECT_EQ(item, registry_->find("x"));
    registry_->attach("new", false);
    second->set(false, true);
  });
  item->set(false, true);
  EXPECT_NE(nullptr, registry_->find("new"));
  EXPECT_TRUE(second->value());
}

TEST_F(flag_item, the_getters_take_no_lock) {
  item_api* const item = registry_->attach("x", false);
  const lock_holder held(storage_, item);
  EXPECT_TRUE(item->value());
  EXPECT_FALSE(item->is_default());
  EXPECT_FALSE(item->default_value());
  EXPECT_FALSE(item->is_exposed());
  EXPECT_EQ(1u, item->use_count());
  EXPECT_EQ(nullptr, item->comment());
}

TEST_F(flag_item, set_waits_for_the_registrys_lock) {
  item_api* const item = registry_->attach("x", false);
  item_api* const other = registry_->attach("y", false);
  std::promise<void> started;
  std::thread setting;
  {
    testing::InSequence order;
    EXPECT_CALL(storage_, put("x", item)).WillOnce([&](const std::string&, item_api*) {
      setting = std::thread([&] {
        started.set_value();
        other->set(false, true);
      });
      started.get_future().wait();
      for (int i = 0; i < 1000; ++i) {
        std::this_thread::yield();
        ASSERT_TRUE(other->is_default());
      }
    });
    EXPECT_CALL(storage_, put("y", other));
  }
  item->set(false, true);
  setting.join();
  EXPECT_TRUE(other->value());
}

// The list of declared flags.

TEST_F(flag_item_list, a_flag_joins_at_the_head_and_is_not_registered_yet) {
  static flag::item first("First Flag", true);
  EXPECT_EQ(&first, flag::item::first());
  static flag::item second("Second Flag", false);
  EXPECT_EQ(&second, flag::item::first());
  EXPECT_EQ(&first, second.next);
  EXPECT_EQ(nullptr, first.next);
  EXPECT_EQ(nullptr, first.api);
  EXPECT_STREQ("First Flag", first.description);
  EXPECT_TRUE(first.default_value);
  flag::item::init_each_once(registry_);
  EXPECT_EQ(registry_->find("first flag"), first.api);
}

TEST_F(flag_item_list, each_flag_is_attached_once_with_its_default) {
  static flag::item on("On", true);
  static flag::item off("Off", false);
  flag::item::init_each_once(registry_);
  flag::item::init_each_once(registry_);
  EXPECT_EQ(nullptr, flag::item::first());
  EXPECT_EQ(registry_->find("on"), on.api);
  EXPECT_EQ(registry_->find("off"), off.api);
  EXPECT_TRUE(on.api->value());
  EXPECT_FALSE(off.api->value());
  EXPECT_EQ(1u, on.api->use_count());
  EXPECT_EQ(1u, off.api->use_count());
}

TEST_F(flag_item_list, an_empty_list_registers_nothing) {
  EXPECT_CALL(storage_, get).Times(0);
  flag::item::init_each_once(registry_);
  EXPECT_EQ(nullptr, description_of_only(registry_));
}

TEST_F(flag_item_list, a_flag_that_joins_later_is_registered_by_the_next_call) {
  static flag::item early("Early", false);
  flag::item::init_each_once(registry_);
  static flag::item late("Late", false);
  flag::item::init_each_once(registry_);
  EXPECT_EQ(registry_->find("late"), late.api);
  EXPECT_EQ(1u, early.api->use_count());
}

TEST_F(flag_item_list, a_flag_leaves_the_list_before_it_is_attached) {
  static flag::item second("Second", false);
  static flag::item first("First", false);
  EXPECT_CALL(storage_, get("first")).WillOnce([](const std::string&) {
    EXPECT_EQ(&second, flag::item::first());
    return 0;
  });
  EXPECT_CALL(storage_, get("second")).WillOnce([](const std::string&) {
    EXPECT_EQ(nullptr, flag::item::first());
    return 0;
  });
  flag::item::init_each_once(registry_);
}

TEST_F(flag_item_list, two_flags_of_one_key_share_an_item) {
  static flag::item one("Same Flag", true);
  static flag::item two("same-flag", true);
  flag::item::init_each_once(registry_);
  EXPECT_EQ(one.api, two.api);
  EXPECT_EQ(2u, one.api->use_count());
}

}  // namespace
