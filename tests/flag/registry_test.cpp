// The registry of flags.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "flag/item.h"
#include "tests/flag/flag_registry.h"
#include "tests/support/slots.h"

namespace {

using flag::init_item_api;
using flag::item_api;
using testing::ElementsAre;
using testing::Return;
using testing::Throw;
using tests::call_slot;
using tests::description_of_only;
using tests::flag_registry;
using tests::lock_holder;

TEST_F(flag_registry, the_operations_have_a_fixed_order) {
  const char* const text = "x";
  item_api* const item =
      call_slot<item_api*>(registry_, 1, true, static_cast<const char*>(nullptr), text, true);
  EXPECT_EQ(item, call_slot<item_api*>(registry_, 0, text));
  EXPECT_EQ(item, call_slot<item_api*>(registry_, 2, text, false));
  EXPECT_EQ(1u, item->use_count());
  EXPECT_FALSE(item->is_exposed());
  EXPECT_EQ(item, call_slot<item_api*>(registry_, 3, true, text, false));
  EXPECT_TRUE(item->is_exposed());
  std::vector<item_api*> seen;
  using callback = void (*)(void*, const char*, item_api*);
  const callback collect = [](void* context, const char*, item_api* each) {
    static_cast<std::vector<item_api*>*>(context)->push_back(each);
  };
  call_slot<void>(registry_, 4, static_cast<void*>(&seen), collect);
  EXPECT_THAT(seen, ElementsAre(item));
  EXPECT_CALL(storage_, put("x", item));
  call_slot<void>(registry_, 5, text, item);
}

TEST_F(flag_registry, finding_creates_nothing) {
  EXPECT_CALL(storage_, get).Times(0);
  EXPECT_EQ(nullptr, registry_->find("x"));
  EXPECT_EQ(nullptr, registry_->find("x"));
}

TEST_F(flag_registry, descriptions_that_fold_to_one_key_name_one_item) {
  item_api* const item = registry_->attach("Show Status Panel", false);
  for (const char* same : {"show-status-panel", "SHOW_STATUS__PANEL", " Show\tStatus Panel! "}) {
    EXPECT_EQ(item, registry_->find(same)) << same;
    EXPECT_EQ(item, registry_->declare(false, nullptr, same, true)) << same;
    EXPECT_EQ(item, registry_->attach(same, true)) << same;
    EXPECT_EQ(item, registry_->expose(false, same, true)) << same;
  }
  EXPECT_EQ(nullptr, registry_->find("showstatuspanel"));
}

TEST_F(flag_registry, the_first_mention_decides_and_reads_the_storage_once) {
  EXPECT_CALL(storage_, get("x")).WillOnce(Return(0));
  item_api* const item = registry_->attach("X", true);
  EXPECT_EQ(item, registry_->attach("x", false));
  EXPECT_EQ(item, registry_->declare(false, nullptr, "x", false));
  EXPECT_EQ(item, registry_->expose(false, "x", false));
  EXPECT_TRUE(item->default_value());
  EXPECT_TRUE(item->value());
  EXPECT_EQ(2u, item->use_count());
}

TEST_F(flag_registry, a_later_mention_leaves_the_state) {
  item_api* const item = registry_->attach("x", false);
  item->set(false, true);
  registry_->attach("x", false);
  registry_->declare(true, "comment", "x", false);
  registry_->expose(true, "x", false);
  EXPECT_TRUE(item->value());
  EXPECT_FALSE(item->is_default());
}

TEST_F(flag_registry, declaring_keeps_the_first_comment) {
  item_api* const item = registry_->attach("x", false);
  EXPECT_EQ(item, registry_->declare(false, nullptr, "x", false));
  EXPECT_EQ(nullptr, item->comment());
  registry_->declare(false, "first", "x", false);
  registry_->declare(false, "second", "x", false);
  registry_->declare(true, "third", "x", false);
  EXPECT_STREQ("first", item->comment());
}

TEST_F(flag_registry, an_empty_comment_is_one) {
  item_api* const item = registry_->declare(false, "", "x", false);
  registry_->declare(false, "second", "x", false);
  EXPECT_STREQ("", item->comment());
}

TEST_F(flag_registry, texts_are_copied_unless_static) {
  char text[] = "My Flag";
  char comment[] = "a comment";
  for (const bool is_static : {false, true}) {
    init_item_api* const declared = flag::create_api(&storage_);
    item_api* const item = declared->declare(is_static, comment, text, false);
    EXPECT_EQ(is_static, item->comment() == comment);
    EXPECT_STREQ(comment, item->comment());
    EXPECT_EQ(is_static, description_of_only(declared) == text);
    EXPECT_STREQ(text, description_of_only(declared));

    init_item_api* const exposed = flag::create_api(&storage_);
    exposed->expose(is_static, text, false);
    EXPECT_EQ(is_static, description_of_only(exposed) == text);
    EXPECT_STREQ(text, description_of_only(exposed));
  }
}

TEST_F(flag_registry, attaching_deliberately_copies_no_description) {
  char text[] = "My Flag";
  registry_->attach(text, false);
  EXPECT_EQ(text, description_of_only(registry_));
}

TEST_F(flag_registry, the_description_of_the_first_mention_stays) {
  registry_->expose(true, "My Flag", false);
  registry_->attach("my-flag", false);
  EXPECT_STREQ("My Flag", description_of_only(registry_));
}

TEST_F(flag_registry, an_item_whose_state_cannot_be_read_is_not_kept) {
  EXPECT_CALL(storage_, get("x"))
      .WillOnce(Throw(std::runtime_error("attach")))
      .WillOnce(Throw(std::runtime_error("declare")))
      .WillOnce(Throw(std::runtime_error("expose")))
      .WillOnce(Return(1));
  EXPECT_THROW(registry_->attach("x", false), std::runtime_error);
  EXPECT_EQ(nullptr, registry_->find("x"));
  EXPECT_EQ(nullptr, description_of_only(registry_));
  EXPECT_THROW(registry_->declare(true, nullptr, "x", false), std::runtime_error);
  EXPECT_THROW(registry_->expose(true, "x", false), std::runtime_error);
  EXPECT_EQ(nullptr, registry_->find("x"));
  std::thread([this] { EXPECT_TRUE(registry_->attach("x", false)->value()); }).join();
  EXPECT_EQ(1u, registry_->find("x")->use_count());
}

TEST_F(flag_registry, each_item_is_passed_in_key_order_with_its_description) {
  registry_->attach("b", false);
  registry_->attach("A", false);
  registry_->attach("a b", false);
  registry_->attach("10", false);
  registry_->attach("9", false);
  registry_->attach("", false);
  std::vector<std::string> seen;
  registry_->for_each(&seen, [](void* context, const char* description, item_api*) {
    static_cast<std::vector<std::string>*>(context)->push_back(description);
  });
  EXPECT_THAT(seen, ElementsAre("", "10", "9", "A", "a b", "b"));
}

TEST_F(flag_registry, each_is_called_on_a_copy_with_the_lock_free) {
  static init_item_api* registry;
  registry = registry_;
  registry->attach("a", false);
  registry->attach("b", false);
  int calls = 0;
  registry->for_each(&calls, [](void* context, const char*, item_api* item) {
    ++*static_cast<int*>(context);
    std::thread([item] {
      registry->attach("between a and b", false);
      registry->attach("z", false);
      item->set(false, true);
    }).join();
  });
  EXPECT_EQ(2, calls);
  EXPECT_TRUE(registry->find("b")->value());
}

TEST_F(flag_registry, storing_hands_the_value_on_under_the_folded_key) {
  item_api* const value = registry_->attach("value", false);
  for (const char* description : {"My Flag", "my_flag", "my_flag_", "_My--flag__"}) {
    EXPECT_CALL(storage_, put("my_flag", value)).RetiresOnSaturation();
    registry_->store(description, value);
  }
  EXPECT_CALL(storage_, put("", value));
  registry_->store("__", value);
}

TEST_F(flag_registry, storing_never_touches_the_items) {
  item_api* const item = registry_->attach("x", false);
  item_api* const set = flag::create_api(&storage_)->attach("set", false);
  set->set(false, true);
  EXPECT_CALL(storage_, get).Times(0);
  registry_->store("x", set);
  registry_->store("new", set);
  EXPECT_FALSE(item->value());
  EXPECT_TRUE(item->is_default());
  EXPECT_EQ(nullptr, registry_->find("new"));
}

TEST_F(flag_registry, storing_takes_no_lock) {
  item_api* const item = registry_->attach("x", false);
  item_api* const value = flag::create_api(&storage_)->attach("value", false);
  EXPECT_CALL(storage_, put("stored", value));
  const lock_holder held(storage_, item);
  registry_->store("stored", value);
}

}  // namespace
