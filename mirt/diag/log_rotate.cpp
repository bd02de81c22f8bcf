#include "mirt/diag/log_rotate.h"

#include <cstdio>
#include <deque>
#include <new>
#include <utility>

#include "mirt/diag/errlog.h"
#include "mirt/diag/exception.h"
#include "mirt/diag/log_settings.h"
#include "mirt/sys/file_access.h"
#include "mirt/sys/files.h"

namespace mirt {

log_file_hook* g_errlog_custom_log_rotate = nullptr;

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

void errlog_open_log_file(std::auto_ptr<xfile>& file, const std::string& name) {
  file.reset(new xfile(name, xfile::mode_update_create, false, file_access_flagged));
}

std::unique_ptr<xfile> open_log_file(log_file_hook* hook, const std::string& name) {
  std::auto_ptr<xfile> file;
  if (hook != nullptr) {
    hook->open(file);
  } else {
    errlog_open_log_file(file, name);
  }
  return std::unique_ptr<xfile>(file.release());
}

#pragma GCC diagnostic pop

bool errlog::check_log_rotate(xfile* file) {
  bool rotated = false;
  try {
    const long size = std::ftell(*file);
    file->close();
    // Signed, deliberately: a limit of more than half of what there is counts as negative.
    if (size < static_cast<long>(g_log_settings.rotate_size) || file->path().empty()) return false;
    rotated = true;
    force_log_rotate(file->path());
  } catch (...) {
    // What could not be moved is written on; the next batch tries again.
  }
  return rotated;
}

void errlog::force_log_rotate(const std::string& name) {
  std::deque<std::pair<std::string, std::string>> renames;
  std::string current = name;
  for (int index = 0;; ++index) {
    const std::string candidate = name + "." + std::to_string(index);
    if (index < g_log_settings.rotate_count) {
      renames.emplace_front(current, candidate);
      if (!file_exists(candidate)) break;
    } else {
      if (!file_exists(current)) break;
      delete_file(current, std::nothrow);
    }
    current = candidate;
  }
  for (const auto& [from, to] : renames) move_file(from, to);
}

void errlog::check_log_cut(xfile* file) {
  try {
    const long size = std::ftell(*file);
    const std::size_t limit = g_log_settings.cut_size;
    if (size < 0 || static_cast<std::size_t>(size) <= limit || file->path().empty()) return;
    xfile reader(file->path(), xfile::mode_read, false, file_access_flagged);
    if (!reader) return;

    const std::size_t half = limit / 2;
    std::fseek(*file, 0, SEEK_SET);
    std::fseek(reader, size - static_cast<long>(half), SEEK_SET);
    std::size_t remaining = half;
    for (std::string piece; remaining != 0; piece.clear()) {
      if (!reader.read(piece)) break;
      file->write(piece.data(), piece.size());
      if (remaining <= piece.size()) break;  // deliberate: the last piece does not count
      remaining -= piece.size();
    }
    // What the stream still holds would come back behind a hole when it closes.
    std::fflush(*file);
    file->truncate(half - remaining);
  } catch (...) {
    // The file stays as long as it is; the next batch tries again.
  }
}

}  // namespace mirt
