// The error log's background writer.
//
// Ownership: the writer lives until the process ends; a queued record belongs to it.
// Threads: both functions may be called from any thread at any time.
#pragma once

#include <cstddef>
#include <string>

namespace mirt {

/// One queued line: either `line`, or pre-formatted `data`.
struct log_record {
  std::string* line;          ///< owned; neither stamp nor line break. Null: pre-formatted
  const char* data;           ///< begins with a stamp and a space, ends with a line break
  std::size_t length;         ///< of data
  std::size_t header_length;  ///< of the stamp in data
  void (*release)(void*);     ///< called with data once it is written
};

/// Queues a record, which then belongs to the writer. The first one starts the writer; if that
/// fails it throws ":Error in 'detach'" and keeps nothing, and later records are dropped.
void push_record(const log_record& record);

/// Returns once all that was queued before has been written.
void flush_records();

}  // namespace mirt
