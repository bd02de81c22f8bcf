// A directory of a test's own, gone with all it holds when the test ends.
#pragma once

#include <map>
#include <string>

namespace tests {

class scratch_dir {
 public:
  scratch_dir();
  ~scratch_dir();
  scratch_dir(const scratch_dir&) = delete;
  scratch_dir& operator=(const scratch_dir&) = delete;

  /// The directory's resolved path, without a trailing "/".
  const std::string& path() const { return path_; }
  std::string operator/(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

/// Everything below a directory by its relative path: directories as "<dir>", links as
/// "-> target", files as their content.
std::map<std::string, std::string> tree(const std::string& root);

/// A file's content; a missing file fails the test.
std::string content(const std::string& path);

/// Makes a file with a content.
void make_file(const std::string& path, const std::string& content);

}  // namespace tests
