// A registry over a storage of the test's own.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <future>
#include <string>
#include <thread>

#include "flag/item.h"
#include "flag/storage.h"

namespace tests {

using flag::init_item_api;
using flag::item_api;

class storage_mock : public flag::item_storage_api {
 public:
  virtual ~storage_mock() = default;
  MOCK_METHOD(void, put, (const std::string& key, item_api* item), (override));
  MOCK_METHOD(int, get, (const std::string& key), (override));
};

/// A registry over a storage that holds nothing, unless the test says otherwise.
class flag_registry : public testing::Test {
 protected:
  testing::NiceMock<storage_mock> storage_;
  init_item_api* const registry_ = flag::create_api(&storage_);
};

/// A thread that holds the registry's lock, inside the storage's `put`, while this lives.
class lock_holder {
 public:
  lock_holder(storage_mock& storage, item_api* item) {
    EXPECT_CALL(storage, put(testing::_, item)).WillOnce([this](const std::string&, item_api*) {
      inside_.set_value();
      leave_.get_future().wait();
    });
    thread_ = std::thread([item] { item->set(false, true); });
    inside_.get_future().wait();
  }
  ~lock_holder() {
    leave_.set_value();
    thread_.join();
  }

 private:
  std::promise<void> inside_;
  std::promise<void> leave_;
  std::thread thread_;
};

/// What `for_each` passes for a registry's only item.
inline const char* description_of_only(init_item_api* registry) {
  const char* found = nullptr;
  registry->for_each(&found, [](void* context, const char* description, item_api*) {
    *static_cast<const char**>(context) = description;
  });
  return found;
}

}  // namespace tests
