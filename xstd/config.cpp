#include "xstd/config.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>
#include <new>
#include <utility>

#include "mirt/diag/errlog.h"
#include "mirt/diag/exception.h"
#include "mirt/diag/fmt_dbg.h"
#include "mirt/sys/files.h"
#include "mirt/sys/immortal.h"
#include "mirt/sys/lock.h"
#include "mirt/sys/xfile.h"
#include "text/cgi.h"
#include "text/strings.h"

namespace xstd {
namespace {

mirt::rec_mutex* g_mutex = nullptr;

/// Values that could not be written, or were not to be, by their file's path; guarded by g_mutex.
std::map<std::string, std::string> g_overlay;

std::string overlay_key(const std::string& path) {
  return "ex_" + path;
}

void keep_in_memory(const std::string& path, const std::string& value) {
  mirt::rec_lock guard(g_mutex);
  g_overlay[overlay_key(path)] = value;
}

/// Makes sure that there is a directory at `path`, as far as that can be done.
void make_level(const std::string& path) {
  try {
    if (mirt::file_exists(path) && mirt::is_file(path)) mirt::delete_file(path);
    mirt::create_directory(path);
  } catch (const mirt::exception&) {
    // What cannot be made here shows when the value is written.
  }
}

}  // namespace

void init_storage() {
  if (g_mutex == nullptr) g_mutex = mirt::immortal<mirt::rec_mutex>();
}

std::string get_config_dir_ex(StorageLocation location) {
  if (location == system_wide) return "/etc/tarnwick/";
  if (location != per_user) return "";
  const char* const home = std::getenv("HOME");
  std::string root = home != nullptr ? home : "/tmp";
  if (!ends_with(root, "/")) root.push_back('/');
  return root + ".tarnwick/";
}

std::string get_config_dir_ex(StorageLocation location, const std::string& name) {
  std::string path = get_config_dir_ex(location);
  const std::size_t root_size = path.size();
  path.reserve(root_size + name.size());
  const char* const end = name.data() + name.size();
  for (const char* p = name.data(); p < end; ++p) {
    const char* const part = p;
    p = std::find_if(p, end, [](char c) { return c == '/' || c == '\\'; });
    if (p == part) continue;
    if (path.size() != root_size) path.push_back('/');
    // Every byte that means something in a path becomes an escape: no name leads out of its root.
    append_urlencoded(path, {part, static_cast<std::size_t>(p - part)}, urlencode_strict, true);
  }
  if (path.size() == root_size) path.push_back('_');
  return path;
}

void set_config_string_ex(StorageLocation location, const std::string& name,
                          const std::string& value, bool memory_only) {
  const std::string path = get_config_dir_ex(location, name);
  {
    mirt::rec_lock guard(g_mutex);
    if (!g_overlay.empty()) g_overlay.erase(overlay_key(path));
  }
  if (memory_only) {
    if (!value.empty()) keep_in_memory(path, value);
    return;
  }

  const std::string root = get_config_dir_ex(location);
  make_level(root);
  std::string level;
  for (std::size_t at = root.size(); (at = path.find('/', at)) != std::string::npos; ++at) {
    make_level(level.assign(path, 0, at));
  }
  mirt::delete_file(path, std::nothrow);
  if (value.empty()) return;
  try {
    mirt::put_file(path, value);
    if (location == per_user && ::chmod(path.c_str(), 0600) != 0) {
      const std::string why = mirt::system_error_string();
      mirt::errlog log("set_config_string_ex", true, nullptr);
      // The wording is older than this use of it, and stays.
      mirt::fmt_dbg::fmt_verbose(log, "failed to chmod on sessions lock: %1%", why);
    }
  } catch (const mirt::exception&) {
    // A user's own value is lost; a machine-wide one stays good for the rest of the process.
    if (location == system_wide) keep_in_memory(path, value);
  }
}

std::string get_config_string_ex(StorageLocation location, const std::string& name) {
  const std::string path = get_config_dir_ex(location, name);
  {
    mirt::rec_lock guard(g_mutex);
    const auto kept = g_overlay.find(overlay_key(path));
    if (kept != g_overlay.end()) return kept->second;
  }
  std::string value;
  try {
    mirt::get_file(value, path);
  } catch (const mirt::exception&) {
    // No file: no value.
  }
  return value;
}

void list_config_values_ex(StorageLocation location, const std::string& name,
                           std::map<std::string, std::string>& values) {
  const std::string directory = get_config_dir_ex(location, name);
  mirt::read_dir entries(directory);
  for (std::string entry; !(entry = entries.next()).empty();) {
    const std::string path = directory + "/" + entry;
    try {
      if (mirt::is_directory(path)) continue;
    } catch (const mirt::exception&) {
      return;  // deliberate: what cannot be examined ends the listing
    }
    try {
      std::string value;
      mirt::get_file(value, path);
      values[urldecode(entry)] = std::move(value);
    } catch (const mirt::exception&) {
      // What cannot be read is passed over.
    }
  }
}

std::string join(const std::vector<std::string>& parts, mirt::string_ref separator) {
  return join_tokens(std::string(separator.data(), separator.size()), parts);
}

std::string take(const std::map<std::string, std::string>& map, const std::string& key) {
  const auto found = map.find(key);
  return found != map.end() ? found->second : "";
}

std::string urldecode(const std::string& s) {
  return ::urldecode(s, true);
}

}  // namespace xstd
