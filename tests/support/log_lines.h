// What tests of the log share: a process for each, as settings and writer are the process's, a
// clock that stands still, and a sink that keeps the lines.
#pragma once

#include <algorithm>
#include <cstdio>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "mirt/diag/errlog.h"
#include "mirt/sys/clock.h"
#include "tests/support/new_process.h"
#include "tests/support/scratch_dir.h"

namespace tests {

/// Runs `body` in a process of its own and returns what that wrote to standard error.
template <class F>
std::string stderr_of(F&& body) {
  FILE* const file = std::tmpfile();
  in_new_process([&] {
    ASSERT_NE(::dup2(::fileno(file), STDERR_FILENO), -1);
    std::forward<F>(body)();
  });
  std::rewind(file);
  std::string text;
  char block[4096];
  while (const std::size_t size = std::fread(block, 1, sizeof block, file)) {
    text.append(block, size);
  }
  std::fclose(file);
  constexpr std::size_t told = 2000;
  if (::testing::Test::HasFailure()) {
    std::fprintf(stderr, "%s", text.substr(text.size() - std::min(told, text.size())).c_str());
  }
  return text;
}

/// The same for a body whose standard error is of no interest.
template <class F>
void in_log_process(F&& body) {
  stderr_of(std::forward<F>(body));
}

/// Where `stop_clock` puts the clock.
inline const std::string stamp = "2024-03-05T14:07:09Z";

/// The log's clock stands still from now on.
inline void stop_clock() {
  mirt::x_absolute_time = [](void*) -> long long { return 1709647629123; };
}

/// From now on lines go to this file alone, with the clock stopped.
inline void to_file(const std::string& path) {
  stop_clock();
  mirt::errlog::set_log_to_stderr(false);
  mirt::errlog::set_log_file_name(path);
}

/// The lines as they stand in the file, with the clock stopped.
inline std::string stamped(const std::vector<std::string>& lines) {
  std::string text;
  for (const std::string& line : lines) text += stamp + " " + line + "\n";
  return text;
}

/// The marker of a run with so many repeats.
inline std::string marker(unsigned repeats) {
  const std::string count = std::to_string(repeats);
  return stamp + " - " + std::string(10 - count.size(), ' ') + count + " - \n";
}

/// Logs a bare line.
inline void write_line(const std::string& text) {
  mirt::errlog(nullptr, true, nullptr).log(0, text.data(), text.size());
}

/// Logs the lines and waits until they are written; more than one line may still make more than
/// one batch. What follows a batch at once may be an empty one, which opens and makes the file,
/// too.
inline void write_batch(const std::vector<std::string>& lines) {
  for (const std::string& line : lines) write_line(line);
  mirt::errlog::flush();
}

/// The files of a directory with something in them: an empty batch may have made the log again.
inline std::map<std::string, std::string> written(const std::string& directory) {
  std::map<std::string, std::string> all = tree(directory);
  std::erase_if(all, [](const auto& file) { return file.second.empty(); });
  return all;
}

namespace impl {
inline std::vector<std::string>& kept_lines() {
  static auto* const lines = new std::vector<std::string>;
  return *lines;
}
}  // namespace impl

/// From now on a sink keeps the lines.
inline void keep_lines() {
  mirt::errlog::set_log_sink(
      [](const char* text, std::size_t length) { impl::kept_lines().emplace_back(text, length); });
}

/// All lines that were kept so far.
inline std::vector<std::string> kept() {
  mirt::errlog::flush();
  return impl::kept_lines();
}

}  // namespace tests
