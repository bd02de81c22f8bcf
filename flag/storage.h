// Where a registry's flags are kept: in the configuration store, or pending as one CGI string.
//
// Ownership: storages are created once and live until the process ends.
// Threads: a storage has no lock of its own. An item's `set` and a registry's look-ups call it
// under the registry's lock; `init_item_api::store` calls it without.
#pragma once

#include <string>

#include "flag/item.h"

namespace flag {

/// The order of the operations is fixed: hosts call them by slot.
class item_storage_api {
 public:
  /// Records the item's current setting.
  virtual void put(const std::string& key, item_api* item) = 0;

  /// The stored setting: 1 true, -1 false, 0 not set.
  virtual int get(const std::string& key) = 0;

 protected:
  ~item_storage_api() = default;
};

class item_storage_ex_api : public item_storage_api {
 public:
  /// Hands over the pending settings as one CGI string and forgets them.
  virtual std::string save() = 0;

  /// Applies a CGI string to the registry, pair by pair in key order, after all of it was checked:
  /// keys of a-z, 0-9 and _, codes of D (default) or C (set), then T or F. Throws
  /// ":Error in 'load'" at the first pair that is none; nothing is applied then.
  virtual void load(init_item_api* registry, const std::string& serialized) const = 0;

 protected:
  ~item_storage_ex_api() = default;
};

/// Keeps flags in the configuration store below `name`, one value each: the text "true" or "false",
/// nothing for a flag at its default. Any other text but the empty one that is found there reads as
/// false, deliberately, and not as the default. The stored values are read once,
/// here. Reports no errors.
item_storage_api* create_reg(const std::string& name, bool system_wide);

/// Collects settings in memory, for `save`.
item_storage_ex_api* create_cgi();

}  // namespace flag
