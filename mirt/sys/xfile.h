// The owner of one stdio stream, and whole files in one call.
//
// Ownership: an xfile owns its stream and closes it; it is never copied.
// Threads: an xfile belongs to one thread at a time.
// Errors: mirt::exception "E (S) function=F file=PATH", with E the value of errno, S its text and F
// one of invalid_mode, fopen, fwrite, fclose:
//
//   2 (No such file or directory) function=fopen file=/tmp/x
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>

#include "text/string_ref.h"

namespace mirt {

class xfile {
 public:
  /// How a file is opened. Every other value is invalid.
  enum mode : int {
    mode_read = 0,           ///< "rb": read an existing file
    mode_write = 1,          ///< "wb": create or empty it, write
    mode_append = 2,         ///< "ab": create if missing, write at the end
    mode_update = 3,         ///< "r+b": read and write an existing file
    mode_update_create = 4,  ///< "r+b": the same; a missing file is created first
  };

  /// Opens at once. Without `throw_on_error` a failure leaves the object closed, and later writes
  /// that fail say nothing. Of `flags` only the bit 4 counts: the access is then reported to the
  /// host as kind 4, whatever the mode.
  xfile(const cstring_ref& path, mode m, bool throw_on_error, int flags);
  ~xfile();
  xfile(const xfile&) = delete;
  xfile& operator=(const xfile&) = delete;

  /// The stdio mode of `m`, "" if it is invalid; `extra` becomes 0. The int is not read.
  static void get_mode(mode m, int, std::string& stdio_mode, int& extra);

  /// Reports that `function` failed, by errno: throws, or returns if this file does not throw.
  void fail(const char* function);

  operator FILE*() const { return file_; }  ///< null while closed
  explicit operator bool() const { return file_ != nullptr; }
  const std::string& path() const { return path_; }  ///< as it was opened, also while closed

  void write(const char* data, std::size_t size);

  /// Appends up to 65536 bytes to `out`; false if there were none, because of the end of the file,
  /// an error or a closed file.
  bool read(std::string& out);

  /// Closes an open file; throws if what was written cannot be stored.
  void close();

  /// `ftruncate` on the open file, its result returned as it is; -1 while closed.
  int truncate(unsigned long long size);

  /// Fills `crc32_table`.
  static void init();

 private:
  FILE* file_ = nullptr;
  bool throw_on_error_;
  std::string path_;
};

/// CRC-32 remainders of each byte for the polynomial 0x04C11DB7, most significant bit first
/// (ISO/IEC 13239, not reflected); for hosts, filled by start-up.
extern std::uint32_t crc32_table[256];

/// Replaces `out` by the file's content; `out` is emptied even when the file cannot be opened.
void get_file(std::string& out, const cstring_ref& path);

/// Makes `data` the file's content. Not atomic: the file is emptied first.
void put_file(const cstring_ref& path, const string_ref& data);

}  // namespace mirt
