#include "mirt/sys/files.h"

#include <limits.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <optional>
#include <utility>
#include <vector>

#include "mirt/diag/exception.h"
#include "mirt/sys/file_access.h"
#include "mirt/sys/platform.h"
#include "text/strings.h"

namespace mirt {
namespace {

/// The type bits of what the path leads to, if it leads anywhere.
std::optional<mode_t> file_type(const std::string& path) {
  record_file_access(path, file_access_inspect);
  struct stat status;
  if (::stat(path.c_str(), &status) != 0) return std::nullopt;
  return status.st_mode & S_IFMT;
}

std::string with_separator(std::string directory) {
  if (!ends_with(directory, "/")) directory.push_back('/');
  return directory;
}

}  // namespace

bool is_directory(std::string path) {
  const std::optional<mode_t> type = file_type(path);
  if (!type) throw exception::function("is_directory");
  return *type == S_IFDIR;
}

bool is_file(std::string path) {
  const std::optional<mode_t> type = file_type(path);
  if (!type) throw exception::function("is_file");
  return *type == S_IFREG;
}

bool file_exists(std::string path) {
  return file_type(path).has_value();
}

std::string get_current_dir() {
  char buffer[16384];
  if (::getcwd(buffer, sizeof buffer - 1) == nullptr) throw exception::function("get_current_dir");
  return buffer;
}

std::string expand_filename(const std::string& path) {
  std::vector<std::string> missing;  // kept by name, last one first
  std::string expanded;
  for (std::string rest = path; expanded.empty();) {
    record_file_access(rest, file_access_inspect);
    char resolved[PATH_MAX];
    if (::realpath(rest.c_str(), resolved) != nullptr) {
      expanded = resolved;
    } else if (!starts_with(rest, "/")) {
      expanded = with_separator(expand_filename(get_current_dir())) + rest;
    } else {
      std::string directory = dirname(rest);
      if (directory == rest) throw exception::function("expand_filename");
      missing.push_back(basename(rest));
      rest = std::move(directory);
    }
  }
  for (auto name = missing.rbegin(); name != missing.rend(); ++name) {
    expanded = with_separator(std::move(expanded)) + *name;
  }
  return expanded;
}

std::string dirname(std::string path) {
  const bool rooted = starts_with(path, "/") || (path.size() > 1 && path[1] == ':');
  bool cut = false;
  for (const char separator : {'/', '\\'}) {
    const std::size_t at = path.rfind(separator);
    if (at == std::string::npos) continue;
    path.resize(at);
    cut = true;
  }
  if (!cut) return ".";
  if (rooted && path.find_first_of("/\\") == std::string::npos) {
    path.push_back(path.empty() ? '/' : '\\');
  }
  return path;
}

std::string basename(std::string path) {
  for (const char separator : {'/', '\\'}) path.erase(0, path.rfind(separator) + 1);
  return path;
}

std::string quote_cmdline_unix(const std::string& s) {
  std::string quoted = "'";
  for (const char c : s) {
    if (c == '\'') {
      quoted.append("'\\''");
    } else {
      quoted.push_back(c);
    }
  }
  return quoted.append("'");
}

void move_file(std::string from, std::string to) {
  record_file_access(from, file_access_change);
  record_file_access(to, file_access_change);
  if (file_exists(to) || ::rename(from.c_str(), to.c_str()) != 0) {
    throw exception::function("move_file");
  }
}

void create_directory(std::string path) {
  record_file_access(path, file_access_change);
  if (::mkdir(path.c_str(), 0755) != 0 && errno != EEXIST) {
    throw exception::system_error("create_directory", "mkdir");
  }
}

void delete_file(std::string path) {
  record_file_access(path, file_access_change);
  if (::unlink(path.c_str()) != 0) {
    throw exception::system_error_context("delete_file", "unlink", path);
  }
}

void delete_file(std::string path, std::nothrow_t) {
  record_file_access(path, file_access_change);
  ::unlink(path.c_str());
}

read_dir::read_dir(std::string path) {
  record_file_access(path, file_access_inspect);
  dir_ = ::opendir(path.c_str());
}

read_dir::~read_dir() {
  if (dir_ != nullptr) ::closedir(dir_);
}

std::string read_dir::next() {
  while (dir_ != nullptr) {
    const dirent* const entry = ::readdir(dir_);
    if (entry == nullptr) {
      ::closedir(dir_);
      dir_ = nullptr;
    } else if (std::string name = entry->d_name; valid_file(name)) {
      return name;
    }
  }
  return "";
}

bool read_dir::valid_file(const std::string& name) {
  return name != "." && name != "..";
}

std::string get_exe_path() {
  std::string path;
  if (!platform::executable_path(path)) throw exception::function("get_exe_path");
  return expand_filename(path);
}

void init_util_fs() {}

}  // namespace mirt
