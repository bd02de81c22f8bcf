// The settings of the error log, between those who set them and those who go by them.
//
// Ownership: lives as long as the process; nothing in it is destroyed at exit.
// Threads: not guarded; set before the first line.
#pragma once

#include <cstddef>
#include <string>

namespace mirt {

struct log_settings {
  int level_limit = 0;
  int (*filter)(const char* text, std::size_t length) = nullptr;
  void (*tee)(const char* text, std::size_t length) = nullptr;
  void (*sink)(const char* text, std::size_t length) = nullptr;
  const std::string* file_name = nullptr;  // null and "": no file
  bool to_stderr = true;
  bool stderr_timestamps = true;
  std::size_t cut_size = 0;
  std::size_t rotate_size = 0;
  int rotate_count = 0;
};

extern log_settings g_log_settings;

}  // namespace mirt
