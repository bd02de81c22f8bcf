// How the log's file is opened, and a host's say in that.
//
// Ownership: the host's hook object stays the host's; an opened file is handed over.
// Threads: all of it runs on the log writer's thread.
#pragma once

// Two interfaces towards hosts hand a file over in a std::auto_ptr, which newer standards dropped.
// This is the one place that asks for it; libc++ wants to be asked before its <memory> is first
// read, which the build's own definition of the same name sees to.
#ifndef _LIBCPP_ENABLE_CXX17_REMOVED_AUTO_PTR
#define _LIBCPP_ENABLE_CXX17_REMOVED_AUTO_PTR
#endif
#include <memory>
#include <string>

#include "mirt/sys/xfile.h"

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

namespace mirt {

/// A host's way to open the log file and to hear of rotations. The order of the operations is
/// fixed: hosts are called by slot.
class log_file_hook {
 public:
  /// Opens the log file, in place of `errlog_open_log_file`: for every batch, also an empty one, if
  /// the log has a file name and no sink. No file, a closed one or an exception means that the
  /// batch is not written to a file.
  virtual void open(std::auto_ptr<xfile>& file) = 0;

  /// Called after each rotation that was begun. What it throws is swallowed.
  virtual void rotated() = 0;

 protected:
  ~log_file_hook() = default;
};

/// Null means the built-in behaviour. Read when the first line is logged: to be set before.
extern log_file_hook* g_errlog_custom_log_rotate;

/// Opens `name` for reading and writing, created if it is missing. A failure leaves a closed file.
void errlog_open_log_file(std::auto_ptr<xfile>& file, const std::string& name);

/// The log file, opened by the hook or, without one, by `errlog_open_log_file`. Throws what they
/// throw.
std::unique_ptr<xfile> open_log_file(log_file_hook* hook, const std::string& name);

}  // namespace mirt

#pragma GCC diagnostic pop
