// Configuration values, each in a file of its own, below one of two roots.
//
// A value's name is a path whose components are separated by "/" or "\". Each component, encoded
// as by `urlencode` (a space as "+"), is a directory level; the last one is the file, whose content
// is the value's bytes.
//
//   system_wide  "Quorvex\flags/my flag"  ->  /etc/tarnwick/Quorvex/flags/my+flag
//
// Ownership: results are new strings.
// Threads: callable from any thread after `init_storage`. Only the overlay is guarded, by a mutex
// of the store that is taken last (a flag registry's lock comes before it, never after); files are
// not, so two writers of one name may interleave.
// Errors: failures of the file system are swallowed. Only memory exhaustion throws.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "text/string_ref.h"

namespace xstd {

/// Where values are kept. Any other value has the empty root: its paths are relative.
enum StorageLocation : std::int32_t {
  system_wide = 0,  ///< "/etc/tarnwick/", which only an administrator can write
  per_user = 1,     ///< "$HOME/.tarnwick/", or "/tmp/.tarnwick/" with HOME unset; files are 0600
};

/// Creates the store's mutex. Called once, by start-up.
void init_storage();

/// The root directory, with its trailing "/".
std::string get_config_dir_ex(StorageLocation location);

/// The path of a value's file, or of the directory of the values below `name`. A name without
/// components stands for the file "_".
std::string get_config_dir_ex(StorageLocation location, const std::string& name);

/// Stores a value, or removes it if it is empty. Directory levels are made as needed, for a removal
/// too; a regular file in the place of a level is deleted. The old file goes before the new one
/// comes: the write is not atomic.
///
/// A machine-wide value that cannot be written is kept in an overlay in memory until the next write
/// of its name; a per-user value that cannot be written is lost. With `memory_only` the value goes
/// to the overlay and nothing touches the disk.
void set_config_string_ex(StorageLocation location, const std::string& name,
                          const std::string& value, bool memory_only);

/// The value from the overlay, else from its file, else "".
std::string get_config_string_ex(StorageLocation location, const std::string& name);

/// Reads every value directly below `name` into `values`, by the decoded last component.
/// Subdirectories and files that cannot be read are skipped; an entry that cannot be examined, such
/// as a dangling link, ends the listing. The overlay is not looked at.
void list_config_values_ex(StorageLocation location, const std::string& name,
                           std::map<std::string, std::string>& values);

/// The parts with the separator between them.
std::string join(const std::vector<std::string>& parts, mirt::string_ref separator);

/// A copy of the key's value, or "".
std::string take(const std::map<std::string, std::string>& map, const std::string& key);

/// `urldecode` with "+" as a space.
std::string urldecode(const std::string& s);

}  // namespace xstd
