// The store for tests: its relative root in one scratch directory, HOME in another.
#pragma once

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <map>
#include <string>

#include "tests/support/scratch_dir.h"
#include "tests/support/scratch_home.h"
#include "xstd/config.h"

namespace tests {

using string_map = std::map<std::string, std::string>;

/// A location with the empty root.
constexpr auto relative = static_cast<xstd::StorageLocation>(77);

inline void set(xstd::StorageLocation location, const std::string& name, const std::string& value) {
  xstd::set_config_string_ex(location, name, value, false);
}

inline void set_in_memory(xstd::StorageLocation location, const std::string& name,
                          const std::string& value) {
  xstd::set_config_string_ex(location, name, value, true);
}

/// Sets the umask while it lives.
class umask_guard {
 public:
  explicit umask_guard(mode_t mask) : previous_(::umask(mask)) {}
  ~umask_guard() { ::umask(previous_); }
  umask_guard(const umask_guard&) = delete;
  umask_guard& operator=(const umask_guard&) = delete;

 private:
  mode_t previous_;
};

class config : public testing::Test {
 protected:
  config() {
    xstd::init_storage();
    std::filesystem::current_path(here_.path());
  }
  ~config() override { std::filesystem::current_path(previous_); }

  string_map list(xstd::StorageLocation location, const std::string& name) {
    string_map values;
    xstd::list_config_values_ex(location, name, values);
    return values;
  }

  const umask_guard umask_{022};
  const std::filesystem::path previous_ = std::filesystem::current_path();
  scratch_dir here_;
  scratch_home home_;
};

}  // namespace tests
