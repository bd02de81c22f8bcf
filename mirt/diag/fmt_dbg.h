// Formatted messages for the error log.
//
// Ownership: a message is built, written and gone.
// Threads: as `mirt::errlog::log`.
#pragma once

#include <string>

#include "mirt/diag/errlog.h"
#include "mirt/diag/fmt.h"

namespace mirt::fmt_dbg {

/// Writes the template with its one argument to the log, at level 0. Throws what `log` throws.
template <class T>
void fmt_verbose(errlog& log, const std::string& format, const T& value) {
  fmt message(format);
  message._add_arg(value, 0, 0);
  const std::string text = message.str();
  log.log(0, text.data(), text.size());
}

}  // namespace mirt::fmt_dbg
