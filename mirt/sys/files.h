// Directories, files and paths.
//
// Ownership: paths and results are plain strings; `read_dir` owns its directory stream.
// Threads: callable from any thread, a `read_dir` from one at a time. Relative paths follow the
// working directory of the process.
// Every access to the file system is reported to the host's file-access hook first.
#pragma once

#include <dirent.h>

#include <new>
#include <string>

namespace mirt {

/// Whether the path leads to a directory. Throws ":Error in 'is_directory'" if it leads nowhere.
bool is_directory(std::string path);

/// Whether the path leads to a regular file. Throws ":Error in 'is_file'" if it leads nowhere.
bool is_file(std::string path);

/// Whether the path leads to anything.
bool file_exists(std::string path);

/// Throws ":Error in 'get_current_dir'".
std::string get_current_dir();

/// The absolute form of a path, with links and dots resolved as far as the path exists.
///
///   "/usr/./bin"   "/usr/bin"
///   "/new/dir/f"   "/new/dir/f"    what is missing is kept by name
///   "../none"      "/cwd/../none"  a missing relative path is deliberately only put behind the
///                                  working directory
///
/// Throws ":Error in 'expand_filename'" when not even "/" can be resolved.
std::string expand_filename(const std::string& path);

/// The path without its last component; "/" and "\" both separate.
///
///   "/x/y"  "/x"     "/usr"    "/"      "C:\x"   "C:\"
///   "a/b/"  "a/b"    "a\b/c"   "a"      "file"   "."
std::string dirname(std::string path);

/// The last component; "/" and "\" both separate.
///
///   "/x/y.txt"  "y.txt"    "y"  "y"    "a/b/"  ""    "/d/no\pe"  "pe"
std::string basename(std::string path);

/// The text as one word of a Unix shell.
///
///   it's  'it'\''s'
std::string quote_cmdline_unix(const std::string& s);

/// Renames a file but never onto an existing one. Throws ":Error in 'move_file'".
void move_file(std::string from, std::string to);

/// Makes one directory level with mode 0755, less the umask. Anything that stands there already
/// counts as success. Throws ":Error from 'mkdir' (called in 'create_directory'): ..."
void create_directory(std::string path);

/// Throws ":Error from 'unlink' (called in 'delete_file'): [path] ..."
void delete_file(std::string path);

/// The same for a caller to whom a file that stays is no news.
void delete_file(std::string path, std::nothrow_t);

/// The entries of a directory but "." and "..", in the order the file system gives them.
class read_dir {
 public:
  /// A directory that cannot be opened has no entries.
  explicit read_dir(std::string path);
  ~read_dir();
  read_dir(const read_dir&) = delete;
  read_dir& operator=(const read_dir&) = delete;

  /// The next entry's name, "" from the end on.
  std::string next();

  /// False for "." and "..".
  static bool valid_file(const std::string& name);

 private:
  DIR* dir_;  // null once there is nothing more to read
};

/// The absolute path of the running executable. Throws ":Error in 'get_exe_path'".
std::string get_exe_path();

/// Start-up's step for files, which need no preparation.
void init_util_fs();

}  // namespace mirt
