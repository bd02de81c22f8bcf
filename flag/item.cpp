#include "flag/item.h"

#include <atomic>
#include <cstdint>
#include <cstring>
#include <map>
#include <new>

#include "flag/storage.h"
#include "mirt/sys/immortal.h"
#include "mirt/sys/lock.h"

namespace flag {
namespace {

/// A heap duplicate that lives until the process ends.
const char* keep_copy(const char* text) {
  const char* const copy = ::strdup(text);
  if (copy == nullptr) throw std::bad_alloc();
  return copy;
}

class item_impl;

class init_item_api_impl final : public init_item_api {
 public:
  explicit init_item_api_impl(item_storage_api* storage) : storage_(storage) {}

  item_api* find(const char* description) override;
  item_api* declare(bool static_strings, const char* comment, const char* description,
                    bool default_value) override;
  item_api* attach(const char* description, bool default_value) override;
  item_api* expose(bool static_strings, const char* description, bool default_value) override;
  void for_each(void* context,
                void (*callback)(void* context, const char* description, item_api* item)) override;
  void store(const char* description, item_api* value) override;

 private:
  friend class item_impl;
  using item_map = std::map<std::string, item_impl*>;

  /// Requires: the lock is held.
  item_impl* get_or_create(const std::string& key, bool static_strings, const char* description,
                           bool default_value);

  mirt::rec_mutex lock_;  // guards items_, and the items' changes
  item_storage_api* const storage_;
  item_map items_;  // never shrinks
};

/// The atomic fields change under the registry's lock and are read without it.
class item_impl final : public item_api {
 public:
  item_impl(init_item_api_impl* owner, const char* description, bool default_value,
            std::int32_t state)
      : default_(default_value), state_(state), description_(description), owner_(owner) {}

  int interface_version() override { return 2; }
  bool value() override {
    const std::int32_t state = state_;
    return state != 0 ? state > 0 : default_;
  }
  bool is_default() override { return state_ == 0; }
  void set(bool to_default, bool value) override {
    const std::string key = impl::desc_to_key(description_);
    mirt::rec_lock guard(owner_->lock_);
    state_ = to_default ? 0 : value ? 1 : -1;
    owner_->storage_->put(key, this);
  }
  const char* comment() override { return comment_; }
  unsigned use_count() override { return use_count_; }
  bool is_exposed() override { return exposed_; }
  bool default_value() override { return default_; }

 private:
  friend class init_item_api_impl;

  const bool default_;
  std::atomic<std::int32_t> state_;  // 1 set to true, -1 set to false, 0 not set
  std::atomic<bool> exposed_ = false;
  std::atomic<std::uint32_t> use_count_ = 0;
  std::atomic<const char*> comment_ = nullptr;
  const char* const description_;
  init_item_api_impl* const owner_;
};

item_impl* init_item_api_impl::get_or_create(const std::string& key, bool static_strings,
                                             const char* description, bool default_value) {
  const auto found = items_.find(key);
  if (found != items_.end()) return found->second;
  const std::int32_t state = storage_->get(key);
  const char* const text = static_strings ? description : keep_copy(description);
  auto* const item = mirt::immortal<item_impl>(this, text, default_value, state);
  // A storage that calls back may have mentioned the flag meanwhile; the first item stays.
  return items_.emplace(key, item).first->second;
}

item_api* init_item_api_impl::find(const char* description) {
  const std::string key = impl::desc_to_key(description);
  mirt::rec_lock guard(lock_);
  const auto found = items_.find(key);
  return found != items_.end() ? found->second : nullptr;
}

item_api* init_item_api_impl::declare(bool static_strings, const char* comment,
                                      const char* description, bool default_value) {
  const std::string key = impl::desc_to_key(description);
  mirt::rec_lock guard(lock_);
  item_impl* const item = get_or_create(key, static_strings, description, default_value);
  if (comment != nullptr && item->comment_ == nullptr) {
    item->comment_ = static_strings ? comment : keep_copy(comment);
  }
  return item;
}

item_api* init_item_api_impl::attach(const char* description, bool default_value) {
  const std::string key = impl::desc_to_key(description);
  mirt::rec_lock guard(lock_);
  item_impl* const item = get_or_create(key, true, description, default_value);
  ++item->use_count_;
  return item;
}

item_api* init_item_api_impl::expose(bool static_strings, const char* description,
                                     bool default_value) {
  const std::string key = impl::desc_to_key(description);
  mirt::rec_lock guard(lock_);
  item_impl* const item = get_or_create(key, static_strings, description, default_value);
  item->exposed_ = true;
  return item;
}

void init_item_api_impl::for_each(void* context,
                                  void (*callback)(void* context, const char* description,
                                                   item_api* item)) {
  const item_map copy = [this] {
    mirt::rec_lock guard(lock_);
    return items_;
  }();
  for (const auto& [key, item] : copy) callback(context, item->description_, item);
}

void init_item_api_impl::store(const char* description, item_api* value) {
  storage_->put(impl::desc_to_key(description), value);
}

}  // namespace

item::item(const char* text, bool value) : description(text), default_value(value), next(first()) {
  first() = this;
}

item*& item::first() {
  static item* head = nullptr;
  return head;
}

void item::init_each_once(init_item_api* api) {
  while (first() != nullptr) {
    item* const taken = first();
    first() = taken->next;
    taken->api = api->attach(taken->description, taken->default_value);
  }
}

init_item_api* create_api(item_storage_api* storage) {
  return mirt::immortal<init_item_api_impl>(storage);
}

namespace impl {

std::string desc_to_key(const std::string& description) {
  std::string key(description.size(), '\0');
  char* end = key.data();
  bool kept_last = false;
  for (const char c : description) {
    const bool upper = c >= 'A' && c <= 'Z';
    const bool kept = upper || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9');
    if (kept) {
      *end++ = upper ? static_cast<char>(c + ('a' - 'A')) : c;
    } else if (kept_last) {
      *end++ = '_';
    }
    kept_last = kept;
  }
  if (end != key.data() && end[-1] == '_') --end;
  key.resize(static_cast<std::size_t>(end - key.data()));
  return key;
}

}  // namespace impl
}  // namespace flag
