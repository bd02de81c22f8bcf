// Records the file accesses that the runtime reports while the recorder lives.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "mirt/sys/file_access.h"

namespace tests {

class access_recorder {
 public:
  using access = std::pair<int, std::string>;  // kind, path

  access_recorder();
  ~access_recorder();
  access_recorder(const access_recorder&) = delete;
  access_recorder& operator=(const access_recorder&) = delete;

  /// What was reported so far, in order.
  const std::vector<access>& seen() const;
  void clear();

 private:
  mirt::file_access_hook* previous_;
};

}  // namespace tests
