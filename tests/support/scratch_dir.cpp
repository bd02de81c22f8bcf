#include "tests/support/scratch_dir.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace tests {
namespace fs = std::filesystem;

scratch_dir::scratch_dir() {
  std::string pattern = fs::canonical(fs::temp_directory_path()) / "mirt-test-XXXXXX";
  if (!::mkdtemp(pattern.data())) throw std::runtime_error("no scratch directory");
  path_ = pattern;
}

scratch_dir::~scratch_dir() {
  std::error_code ignored;
  fs::remove_all(path_, ignored);
}

std::map<std::string, std::string> tree(const std::string& root) {
  std::map<std::string, std::string> result;
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(root)) {
    const std::string name = entry.path().lexically_relative(root);
    if (entry.is_symlink()) {
      result[name] = "-> " + fs::read_symlink(entry.path()).string();
    } else if (entry.is_directory()) {
      result[name] = "<dir>";
    } else {
      result[name] = content(entry.path());
    }
  }
  return result;
}

std::string content(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  EXPECT_TRUE(file) << path;
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

void make_file(const std::string& path, const std::string& content) {
  std::ofstream file(path, std::ios::binary);
  file << content;
  ASSERT_TRUE(file.flush()) << path;
}

}  // namespace tests
