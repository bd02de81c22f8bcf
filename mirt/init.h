// Start-up of the runtime: reads the host's table and starts every service, once per process.
//
// Ownership: create the object on the heap and never destroy it; the runtime stays up until exit.
// Threads: start-up runs on the main thread before any other thread exists.
#pragma once

#include <cstddef>

#include "mirt/api.h"

namespace mirt {

class init {
 public:
  /// Starts the runtime, with a host's table or (null) without a host. Throws mirt::exception
  ///
  ///   "mirt-rpt already initialized"   on every construction but the first, also if that failed
  ///   "mirt-rpt api missing"           for a table of a version below 16; the fields that the
  ///                                    version reaches are copied, no service is started
  explicit init(mirt_api_t* api);

  /// Hands a log line to the host's filter. Always 0: the host has taken the line over.
  static int log_filter(const char* text, std::size_t length);

  /// Hands a pre-formatted line to the host's filter without its header, the space behind it and
  /// trailing line breaks, then calls `release(line)`. A header that is not shorter than the line
  /// is none.
  ///
  ///   "HDR payload\r\n", header length 3   gives "payload"
  static void compat_errlog_log_line_direct(const char* line, std::size_t length,
                                            std::size_t header_length, void (*release)(void*));

  static bool m_started;  ///< set by the first construction, successful or not, and never reset

  /// The host's log filter, from version 16 of its table on; null without one. Set by start-up,
  /// called on every thread that logs.
  static void (*log_filter_)(const char* text, std::size_t length);

  /// The same for the adapter above, with a table of version 16 to 21.
  static void (*compat_errlog_log_line_direct_)(const char* text, std::size_t length);
};

}  // namespace mirt
