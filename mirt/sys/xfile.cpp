#include "mirt/sys/xfile.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "mirt/diag/exception.h"
#include "mirt/sys/file_access.h"

namespace mirt {

std::uint32_t crc32_table[256];

xfile::xfile(const cstring_ref& path, mode m, bool throw_on_error, int flags)
    : throw_on_error_(throw_on_error), path_(path.data(), path.size()) {
  record_file_access(path, (flags & 4) != 0 ? file_access_flagged
                           : m != mode_read ? file_access_change
                                            : file_access_read);
  std::string stdio_mode;
  int extra;
  get_mode(m, 0, stdio_mode, extra);
  if (stdio_mode.empty()) {
    fail("invalid_mode");
    return;
  }

  file_ = ::fopen(path.data(), stdio_mode.c_str());
  if (file_ == nullptr && m == mode_update_create) {
    // Whether or not this call creates it: another process may have done so in between.
    const int created = ::open(path.data(), O_WRONLY | O_CREAT | O_EXCL, 0666);
    if (created >= 0) ::close(created);
    file_ = ::fopen(path.data(), stdio_mode.c_str());
  }
  if (file_ == nullptr) fail("fopen");
}

xfile::~xfile() {
  try {
    close();
  } catch (...) {
    // Whoever needs to know closes explicitly.
  }
}

void xfile::get_mode(mode m, int, std::string& stdio_mode, int& extra) {
  static constexpr const char* modes[] = {"rb", "wb", "ab", "r+b", "r+b"};
  extra = 0;
  stdio_mode = m >= mode_read && m <= mode_update_create ? modes[m] : "";
}

void xfile::fail(const char* function) {
  const int err = errno;  // before an allocation can change it
  if (!throw_on_error_) return;
  std::string text = std::to_string(err);
  text.append(" (").append(safe_strerror(err)).append(") function=").append(function);
  text.append(" file=").append(path_);
  throw exception(text.c_str());
}

void xfile::write(const char* data, std::size_t size) {
  if (file_ == nullptr || ::fwrite(data, 1, size, file_) != size) fail("fwrite");
}

bool xfile::read(std::string& out) {
  if (file_ == nullptr) return false;
  char block[65536];
  const std::size_t size = ::fread(block, 1, sizeof block, file_);
  out.append(block, size);
  return size != 0;
}

void xfile::close() {
  if (file_ == nullptr) return;
  FILE* const closing = file_;
  file_ = nullptr;
  if (::fclose(closing) != 0) fail("fclose");
}

int xfile::truncate(unsigned long long size) {
  if (file_ == nullptr) return -1;
  return ::ftruncate(::fileno(file_), static_cast<off_t>(size));
}

void xfile::init() {
  for (std::uint32_t byte = 0; byte < 256; ++byte) {
    std::uint32_t remainder = byte << 24;
    for (int bit = 0; bit < 8; ++bit) {
      const bool carry = (remainder & 0x80000000U) != 0;
      remainder = (remainder << 1) ^ (carry ? 0x04C11DB7U : 0U);
    }
    crc32_table[byte] = remainder;
  }
}

void get_file(std::string& out, const cstring_ref& path) {
  out.clear();
  xfile file(path, xfile::mode_read, true, 0);
  while (file.read(out)) {
  }
}

void put_file(const cstring_ref& path, const string_ref& data) {
  xfile file(path, xfile::mode_write, true, 0);
  file.write(data.data(), data.size());
  file.close();
}

}  // namespace mirt
