// The two places where a registry's flags are kept: the configuration store and a CGI string.
#include "flag/storage.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <vector>

#include "tests/support/access_recorder.h"
#include "tests/support/error_of.h"
#include "tests/support/private_etc.h"
#include "tests/support/scratch_home.h"
#include "tests/support/slots.h"
#include "xstd/config.h"

namespace {

namespace fs = std::filesystem;
using flag::init_item_api;
using flag::item_api;
using flag::item_storage_api;
using flag::item_storage_ex_api;
using testing::_;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StrictMock;
using tests::call_slot;
using tests::error_of;
using string_map = std::map<std::string, std::string>;

/// An item in a given state, all that a storage looks at.
class fake_item : public item_api {
 public:
  fake_item(bool at_default, bool value) : at_default_(at_default), value_(value) {}
  virtual ~fake_item() = default;
  int interface_version() override { return 2; }
  bool value() override { return value_; }
  bool is_default() override { return at_default_; }
  void set(bool, bool) override { ADD_FAILURE() << "a storage sets nothing"; }
  const char* comment() override { return nullptr; }
  unsigned use_count() override { return 0; }
  bool is_exposed() override { return false; }
  bool default_value() override { return false; }

 private:
  bool at_default_, value_;
};

fake_item set_true(false, true);
fake_item set_false(false, false);
fake_item default_true(true, true);
fake_item default_false(true, false);

/// A registry that takes what is stored and nothing else.
class registry_mock : public init_item_api {
 public:
  virtual ~registry_mock() = default;
  MOCK_METHOD(item_api*, find, (const char*), (override));
  MOCK_METHOD(item_api*, declare, (bool, const char*, const char*, bool), (override));
  MOCK_METHOD(item_api*, attach, (const char*, bool), (override));
  MOCK_METHOD(item_api*, expose, (bool, const char*, bool), (override));
  MOCK_METHOD(void, for_each, (void*, void (*)(void*, const char*, item_api*)), (override));
  MOCK_METHOD(void, store, (const char*, item_api*), (override));
};

/// What a string stores in a registry, as "key=code" in order.
std::vector<std::string> stored_by(const std::string& serialized) {
  std::vector<std::string> stored;
  StrictMock<registry_mock> registry;
  EXPECT_CALL(registry, store)
      .Times(testing::AnyNumber())
      .WillRepeatedly([&stored](const char* key, item_api* value) {
        stored.push_back(std::string(key) + (value->is_default() ? "=D" : "=C") +
                         (value->value() ? "T" : "F"));
      });
  flag::create_cgi()->load(&registry, serialized);
  return stored;
}

// Settings as a CGI string.

TEST(cgi_storage, the_operations_have_a_fixed_order) {
  item_storage_ex_api* const storage = flag::create_cgi();
  const std::string key = "x";
  call_slot<void, const std::string*, item_api*>(storage, 0, &key, &set_true);
  EXPECT_EQ(1, (call_slot<int, const std::string*>(storage, 1, &key)));
  EXPECT_EQ("x=CT", call_slot<std::string>(storage, 2));
  StrictMock<registry_mock> registry;
  EXPECT_CALL(registry, store(testing::StrEq("y"), _));
  const std::string serialized = "y=CT";
  call_slot<void, init_item_api*, const std::string*>(storage, 3, &registry, &serialized);
}

TEST(cgi_storage, a_setting_becomes_a_code_and_is_found_again) {
  const struct {
    item_api* item;
    const char* saved;
    int state;
  } rows[] = {
      {&set_true, "x=CT", 1},
      {&set_false, "x=CF", -1},
      {&default_true, "x=DT", 0},
      {&default_false, "x=DF", 0},
  };
  for (const auto& [item, saved, state] : rows) {
    SCOPED_TRACE(saved);
    item_storage_ex_api* const storage = flag::create_cgi();
    EXPECT_EQ(0, storage->get("x"));
    storage->put("x", item);
    EXPECT_EQ(state, storage->get("x"));
    EXPECT_EQ(0, storage->get("y"));
    EXPECT_EQ(saved, storage->save());
    EXPECT_EQ(0, storage->get("x"));
  }
}

TEST(cgi_storage, nothing_pending_is_the_empty_string) {
  item_storage_ex_api* const storage = flag::create_cgi();
  EXPECT_EQ("", storage->save());
  storage->put("x", &set_true);
  EXPECT_EQ("x=CT", storage->save());
  EXPECT_EQ("", storage->save());
}

TEST(cgi_storage, pairs_come_in_key_order_with_the_last_code_of_each) {
  item_storage_ex_api* const storage = flag::create_cgi();
  storage->put("b", &set_true);
  storage->put("a", &set_false);
  storage->put("10", &default_false);
  storage->put("b", &default_true);
  EXPECT_EQ("10=DF&a=CF&b=DT", storage->save());
}

TEST(cgi_storage, saving_folds_the_keys_and_the_later_in_key_order_wins) {
  item_storage_ex_api* const storage = flag::create_cgi();
  storage->put("x__", &set_false);
  storage->put("x", &set_true);
  storage->put("My Flag", &set_true);
  EXPECT_EQ(0, storage->get("my_flag"));
  EXPECT_EQ("my_flag=CT&x=CF", storage->save());
}

TEST(cgi_storage, saving_drops_a_key_that_folds_to_nothing) {
  item_storage_ex_api* const storage = flag::create_cgi();
  storage->put("__", &set_true);
  EXPECT_EQ("", storage->save());
  EXPECT_EQ(0, storage->get("__"));
}

TEST(cgi_storage, loading_leaves_what_is_pending) {
  item_storage_ex_api* const storage = flag::create_cgi();
  storage->put("x", &set_true);
  StrictMock<registry_mock> registry;
  EXPECT_CALL(registry, store).Times(2);
  storage->load(&registry, "x=CF&y=CF");
  EXPECT_EQ(0, storage->get("y"));
  EXPECT_EQ("x=CT", storage->save());
}

TEST(cgi_load, each_pair_is_stored_in_key_order) {
  const struct {
    const char* serialized;
    std::vector<std::string> stored;
  } rows[] = {
      {"x=CT", {"x=CT"}},
      {"x=CF", {"x=CF"}},
      {"x=DT", {"x=DT"}},
      {"x=DF", {"x=DF"}},
      {"y=DF&x=CT", {"x=CT", "y=DF"}},
      {"_=CT&a=CT&0=CT", {"0=CT", "_=CT", "a=CT"}},
      {"x_=CT&x=CF&x__=DT", {"x=CF", "x_=CT", "x__=DT"}},
      {"a=CT&a=CF", {"a=CF"}},
      {"a=CX&a=CT", {"a=CT"}},
      {"=CT&a=CT&&", {"a=CT"}},
      {"a%=CT", {"a=CT"}},
      {"a=CT%", {"a=CT"}},
      {"a=CT%4", {"a=CT"}},
      {"%7g=CT", {"p=CT"}},
      {"%61=%43%54", {"a=CT"}},
      {"az09_=CT", {"az09_=CT"}},
      {"", {}},
      {"&&", {}},
      {"=CT", {}},
      {"=", {}},
      {"==&=%", {}},
  };
  for (const auto& [serialized, stored] : rows) {
    EXPECT_EQ(stored, stored_by(serialized)) << serialized;
  }
}

TEST(cgi_load, a_malformed_pair_rejects_the_whole_string) {
  for (const char* malformed : {
           "x",       "x=",      "x=C",     "x=T",     "x=CTT",   "x=CT+",    "x=+CT",    "x=XT",
           "x=CX",    "x=TC",    "x=ct",    "x=Ct",    "x=cT",    "x=DX",     "x=CT=",    "x==CT",
           "x=CT;y",  "x=C%00",  "x=CT%00", "x=%00CT", "%=CT",    "%4=CT",    "B=CF",     "x-y=CT",
           "x.y=CT",  "x+y=CT",  "x%20=CT", "x/y=CT",  "../x=CT", "x%2fy=CT", "x%5cy=CT", "x%00=CT",
           "%00=CT",  "%zz=CT",  "`=CT",    "{=CT",    "%2f=CT",  ":=CT",     "%60=CT",   "%5e=CT",
           "\xe4=CT", "\xff=CT", "x=CT\n",  " x=CT",   "%%61=CT",
       }) {
    SCOPED_TRACE(malformed);
    StrictMock<registry_mock> registry;
    item_storage_ex_api* const storage = flag::create_cgi();
    for (const std::string& serialized :
         {std::string(malformed), std::string("0=CT&").append(malformed),
          std::string(malformed).append("&zz=DF")}) {
      EXPECT_EQ(":Error in 'load'", error_of([&] { storage->load(&registry, serialized); }));
    }
  }
}

TEST(cgi_load, a_key_holds_lower_case_letters_digits_and_underscores_only) {
  const std::string valid = "abcdefghijklmnopqrstuvwxyz0123456789_";
  const char* const digits = "0123456789abcdef";
  for (int byte = 0; byte < 256; ++byte) {
    StrictMock<registry_mock> registry;
    const char c = static_cast<char>(byte);
    const std::string escaped = {'x', '%', digits[byte / 16], digits[byte % 16], '=', 'C', 'T'};
    const bool is_valid = valid.find(c) != std::string::npos;
    if (is_valid) EXPECT_CALL(registry, store(testing::StrEq(std::string{'x', c}), _));
    EXPECT_EQ(is_valid ? "no exception" : ":Error in 'load'",
              error_of([&] { flag::create_cgi()->load(&registry, escaped); }))
        << byte;
  }
}

TEST(cgi_load, the_value_that_is_stored_answers_each_slot) {
  StrictMock<registry_mock> registry;
  EXPECT_CALL(registry, store(testing::StrEq("x"), _)).WillOnce([](const char*, item_api* value) {
    EXPECT_EQ(2, call_slot<int>(value, 0));
    EXPECT_TRUE(call_slot<bool>(value, 1));
    EXPECT_FALSE(call_slot<bool>(value, 2));
    call_slot<void>(value, 3, true, false);
    EXPECT_TRUE(call_slot<bool>(value, 1));
    EXPECT_FALSE(call_slot<bool>(value, 2));
    EXPECT_EQ(nullptr, call_slot<const char*>(value, 4));
    EXPECT_EQ(0u, call_slot<unsigned>(value, 5));
    EXPECT_FALSE(call_slot<bool>(value, 6));
    EXPECT_FALSE(call_slot<bool>(value, 7));
  });
  flag::create_cgi()->load(&registry, "x=CT");
}

TEST(cgi_load, a_thousand_pairs_are_stored) {
  std::string serialized;
  for (int i = 0; i < 1000; ++i) serialized.append("f").append(std::to_string(i)).append("=CT&");
  EXPECT_EQ(1000u, stored_by(serialized).size());
}

// Flags in the configuration store.

class reg_storage : public testing::Test {
 protected:
  reg_storage() { xstd::init_storage(); }

  /// The flags on disk.
  string_map flags() { return tests::tree(directory_); }

  void make_flag(const std::string& name, const std::string& content) {
    fs::create_directories(directory_);
    tests::make_file(directory_ + "/" + name, content);
  }

  item_storage_api* create() { return flag::create_reg("Quorvex\\flags", false); }

  tests::scratch_home home_;
  const std::string directory_ = home_ / ".tarnwick/Quorvex/flags";
};

TEST_F(reg_storage, the_operations_have_a_fixed_order) {
  item_storage_api* const storage = create();
  const std::string key = "x";
  call_slot<void, const std::string*, item_api*>(storage, 0, &key, &set_false);
  EXPECT_EQ((string_map{{"x", "false"}}), flags());
  EXPECT_EQ(-1, (call_slot<int, const std::string*>(storage, 1, &key)));
}

TEST_F(reg_storage, any_stored_text_but_true_reads_as_false) {
  const struct {
    const char* text;
    int state;
  } rows[] = {
      {"true", 1},    {"false", -1}, {"TRUE", -1},  {"True", -1},  {"1", -1},       {"0", -1},
      {"true\n", -1}, {"tru", -1},   {"truee", -1}, {" true", -1}, {"garbage", -1}, {"", 0},
  };
  for (const auto& [text, state] : rows) {
    make_flag("x", text);
    EXPECT_EQ(state, create()->get("x")) << text;
  }
  EXPECT_EQ(0, create()->get("y"));
}

TEST_F(reg_storage, a_setting_is_written_at_once) {
  item_storage_api* const storage = create();
  const struct {
    item_api* item;
    string_map on_disk;
    int state;
  } rows[] = {
      {&set_true, {{"x", "true"}}, 1}, {&set_false, {{"x", "false"}}, -1},
      {&default_true, {}, 0},          {&set_true, {{"x", "true"}}, 1},
      {&default_false, {}, 0},         {&default_false, {}, 0},
  };
  for (const auto& [item, on_disk, state] : rows) {
    storage->put("x", item);
    EXPECT_EQ(on_disk, flags());
    EXPECT_EQ(state, storage->get("x"));
    EXPECT_EQ(state, create()->get("x"));
  }
}

TEST_F(reg_storage, other_flags_are_left_alone) {
  make_flag("other", "odd text");
  item_storage_api* const storage = create();
  storage->put("x", &set_true);
  storage->put("y", &default_true);
  EXPECT_EQ((string_map{{"other", "odd text"}, {"x", "true"}}), flags());
}

TEST_F(reg_storage, a_removal_makes_the_directories) {
  create()->put("x", &default_true);
  EXPECT_THAT(flags(), IsEmpty());
  EXPECT_TRUE(fs::is_directory(directory_));
}

TEST_F(reg_storage, the_stored_values_are_read_once) {
  make_flag("x", "true");
  item_storage_api* const storage = create();
  make_flag("x", "false");
  make_flag("y", "true");
  const tests::access_recorder recorder;
  EXPECT_EQ(1, storage->get("x"));
  EXPECT_EQ(0, storage->get("y"));
  EXPECT_THAT(recorder.seen(), IsEmpty());
}

TEST_F(reg_storage, what_could_not_be_written_is_remembered_all_the_same) {
  fs::create_directories(directory_ + "/x");
  item_storage_api* const storage = create();
  storage->put("x", &set_true);
  EXPECT_EQ(1, storage->get("x"));
  EXPECT_EQ(0, create()->get("x"));
}

TEST_F(reg_storage, a_key_is_one_file_whatever_it_holds) {
  create()->put("a b.c", &set_true);
  EXPECT_EQ((string_map{{"a+b%2ec", "true"}}), flags());
  EXPECT_EQ(1, create()->get("a b.c"));
}

TEST_F(reg_storage, the_empty_key_stands_for_the_directory_of_the_flags) {
  item_storage_api* const storage = create();
  storage->put("", &set_true);
  EXPECT_EQ("true", tests::content(directory_));
  storage->put("x", &set_true);
  EXPECT_EQ((string_map{{"x", "true"}}), flags());
  storage->put("", &set_false);
  EXPECT_EQ((string_map{{"x", "true"}}), flags());
  EXPECT_EQ(-1, storage->get(""));
}

TEST_F(reg_storage, a_registry_reads_and_writes_it) {
  make_flag("on", "true");
  make_flag("off", "false");
  init_item_api* const registry = flag::create_api(create());
  EXPECT_TRUE(registry->attach("On", false)->value());
  EXPECT_FALSE(registry->attach("Off", true)->value());
  EXPECT_TRUE(registry->attach("Unset", true)->is_default());
  registry->find("On")->set(true, false);
  registry->find("Unset")->set(false, false);
  EXPECT_EQ((string_map{{"off", "false"}, {"unset", "false"}}), flags());
}

TEST_F(reg_storage, a_loaded_string_sets_and_removes) {
  make_flag("y", "true");
  make_flag("z", "true");
  flag::create_cgi()->load(flag::create_api(create()), "x=CT&y=DF&x_=CF&x__=CT");
  EXPECT_EQ((string_map{{"x", "true"}, {"z", "true"}}), flags());
}

TEST_F(reg_storage, machine_wide_flags_lie_below_etc) {
  tests::in_private_etc([] {
    item_storage_api* const storage = flag::create_reg("Quorvex\\flags", true);
    storage->put("x", &set_true);
    EXPECT_EQ("true", tests::content("/etc/tarnwick/Quorvex/flags/x"));
    EXPECT_EQ(1, flag::create_reg("Quorvex/flags", true)->get("x"));
    EXPECT_EQ(0, flag::create_reg("Quorvex/flags", false)->get("x"));
  });
}

TEST_F(reg_storage, a_machine_wide_flag_in_the_place_of_the_directory_is_kept_in_memory) {
  tests::in_private_etc([] {
    item_storage_api* const storage = flag::create_reg("Quorvex\\flags", true);
    storage->put("x", &set_true);
    storage->put("", &set_true);
    EXPECT_EQ("true", tests::content("/etc/tarnwick/Quorvex/flags/x"));
    EXPECT_EQ("true", xstd::get_config_string_ex(xstd::system_wide, "Quorvex\\flags/"));
  });
}

}  // namespace
