// The report of every file access to a host that wants to watch or audit them.
//
// Ownership: the hook borrows the path for the length of the call.
// Threads: accesses are reported from the thread that makes them, so the hook must be safe there.
#pragma once

#include <cstddef>

#include "text/string_ref.h"

namespace mirt {

/// What is about to be done to a file.
enum file_access_t : int {
  file_access_read = 0,     ///< opened for reading
  file_access_change = 1,   ///< opened for writing, renamed, made, deleted
  file_access_inspect = 2,  ///< stat, opendir, realpath
  file_access_flagged = 4,  ///< opened by a caller that asked for this kind
};

using file_access_hook = void (*)(const char* path, std::size_t length, file_access_t kind);

/// Points at the slot that holds the hook; a slot that holds null, and a null pointer, mean that
/// nobody watches. Set before start-up or by it from the host's table; the slot belongs to the
/// host. The hook may be called with locks of the runtime held and must not open files through it.
extern file_access_hook* x_record_file_access;

/// Tells the hook, if there is one. Throws only what the hook throws.
void record_file_access(const string_ref& path, file_access_t kind);

}  // namespace mirt
