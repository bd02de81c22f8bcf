// Product flags: named booleans with a compiled-in default and an optional stored override.
//
// Ownership: items and registries are created once and live until the process ends; nothing here
// has a virtual destructor because nothing is ever deleted through these interfaces.
// Threads: registry operations may be called from any thread; a registry's lock is recursive and is
// taken before the configuration store's, never after. It is held while an item's `set` calls the
// storage and while a new item reads it, so a storage may call back into its registry. The getters
// of an item take no lock and may see a value that another thread is about to replace.
#pragma once

#include <string>

namespace flag {

class item_storage_api;

/// One flag of a registry. The order of the operations is fixed: hosts call them by slot.
class item_api {
 public:
  virtual int interface_version() = 0;  ///< 2
  virtual bool value() = 0;             ///< the override, else the default
  virtual bool is_default() = 0;        ///< whether there is no override
  /// Removes the override (`to_default`) or makes it `value`, and stores it. The flag keeps its new
  /// state even if storing throws.
  virtual void set(bool to_default, bool value) = 0;
  virtual const char* comment() = 0;  ///< null if none was declared
  virtual unsigned use_count() = 0;   ///< how often the flag was attached
  virtual bool is_exposed() = 0;
  virtual bool default_value() = 0;

 protected:
  ~item_api() = default;
};

/// A registry: one item per key. Every description is folded by `impl::desc_to_key` first. "Gets or
/// creates" leaves an existing item's default, description and state as they are; a new one reads
/// its override from the storage, and is not kept if that throws. A new item keeps a copy of the
/// description, or the caller's pointer if `static_strings`. The order of the operations is fixed.
class init_item_api {
 public:
  /// The item, or null if it was never mentioned.
  virtual item_api* find(const char* description) = 0;

  /// Gets or creates the item, and gives it `comment` (may be null) if it has none yet.
  virtual item_api* declare(bool static_strings, const char* comment, const char* description,
                            bool default_value) = 0;

  /// Gets or creates the item and counts one more user. The description is never copied,
  /// deliberately: it must stay until the process ends.
  virtual item_api* attach(const char* description, bool default_value) = 0;

  /// Gets or creates the item and marks it as exposed.
  virtual item_api* expose(bool static_strings, const char* description, bool default_value) = 0;

  /// Calls `callback` for every item there is, in key order, without the lock.
  virtual void for_each(void* context, void (*callback)(void* context, const char* description,
                                                        item_api* item)) = 0;

  /// Hands `value` straight to the storage, without the lock and without touching any item.
  virtual void store(const char* description, item_api* value) = 0;

 protected:
  ~init_item_api() = default;
};

/// A flag that a program declares statically: it joins a list at its head and is registered by the
/// next `init_each_once`. The list is not locked: it is built before `main`.
struct item {
  item(const char* description, bool default_value);
  item(const item&) = delete;
  item& operator=(const item&) = delete;

  const char* description;  ///< static text
  bool default_value;
  item_api* api = nullptr;  ///< the registry's item, once registered
  item* next;

  /// The head of the list of those that are not registered yet.
  static item*& first();

  /// Attaches every listed flag to the registry and empties the list.
  static void init_each_once(init_item_api* api);
};

/// A new, empty registry over a storage.
init_item_api* create_api(item_storage_api* storage);

namespace impl {

/// The key of a description: letters lowered, digits kept, every run of other bytes one "_", none
/// at the ends.
///
///   "Enable Fast Start"  enable_fast_start
///   "  x--Y  "           x_y
///   "__"                 (empty)
std::string desc_to_key(const std::string& description);

}  // namespace impl
}  // namespace flag
