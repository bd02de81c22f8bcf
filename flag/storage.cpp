#include "flag/storage.h"

#include <algorithm>
#include <map>

#include "mirt/diag/exception.h"
#include "mirt/sys/immortal.h"
#include "text/cgi.h"
#include "xstd/config.h"

namespace flag {
namespace {

using string_map = std::map<std::string, std::string>;

/// Keeps flags in the configuration store.
class reg_storage final : public item_storage_api {
 public:
  reg_storage(const std::string& name, xstd::StorageLocation location)
      : name_(name), location_(location) {
    xstd::list_config_values_ex(location_, name_, values_);
  }

  void put(const std::string& key, item_api* item) override {
    const std::string text = item->is_default() ? "" : item->value() ? "true" : "false";
    if (text.empty()) {
      values_.erase(key);
    } else {
      values_[key] = text;
    }
    xstd::set_config_string_ex(location_, name_ + "/" + key, text, false);
  }

  int get(const std::string& key) override {
    const std::string text = xstd::take(values_, key);
    if (text.empty()) return 0;
    return text == "true" ? 1 : -1;  // deliberate: a damaged text is not the default
  }

 private:
  const std::string name_;
  const xstd::StorageLocation location_;
  string_map values_;  // what the store holds
};

bool is_key(const std::string& text) {
  return !text.empty() && std::all_of(text.begin(), text.end(), [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_';
  });
}

/// A setting's code: "D" at default or "C" set, then "T" or "F".
bool is_code(const std::string& text) {
  return text.size() == 2 && (text[0] == 'D' || text[0] == 'C') &&
         (text[1] == 'T' || text[1] == 'F');
}

/// One setting of a CGI string on its way to a storage.
class loaded_item final : public item_api {
 public:
  explicit loaded_item(const std::string& code)
      : value_(code[1] == 'T'), at_default_(code[0] == 'D') {}

  int interface_version() override { return 2; }
  bool value() override { return value_; }
  bool is_default() override { return at_default_; }
  void set(bool, bool) override {}
  const char* comment() override { return nullptr; }
  unsigned use_count() override { return 0; }
  bool is_exposed() override { return false; }
  bool default_value() override { return false; }

 private:
  const bool value_;
  const bool at_default_;
};

/// Collects codes in memory.
class proxy_storage final : public item_storage_ex_api {
 public:
  void put(const std::string& key, item_api* item) override {
    values_[key] = {item->is_default() ? 'D' : 'C', item->value() ? 'T' : 'F'};
  }

  int get(const std::string& key) override {
    const std::string code = xstd::take(values_, key);
    if (code.size() != 2 || code[0] == 'D') return 0;
    return code[1] == 'T' ? 1 : -1;
  }

  std::string save() override {
    string_map folded;
    for (const auto& [key, code] : values_) folded[impl::desc_to_key(key)] = code;
    values_.clear();
    return cgi_get_param(folded, urlencode_strict);
  }

  void load(init_item_api* registry, const std::string& serialized) const override {
    const string_map settings = cgi_parse_param(serialized, '&', '=');
    for (const auto& [key, code] : settings) {
      if (!is_key(key) || !is_code(code)) throw mirt::exception::function("load");
    }
    for (const auto& [key, code] : settings) {
      loaded_item item(code);
      registry->store(key.c_str(), &item);
    }
  }

 private:
  string_map values_;  // codes by key
};

}  // namespace

item_storage_api* create_reg(const std::string& name, bool system_wide) {
  return mirt::immortal<reg_storage>(name, system_wide ? xstd::system_wide : xstd::per_user);
}

item_storage_ex_api* create_cgi() {
  return mirt::immortal<proxy_storage>();
}

}  // namespace flag
