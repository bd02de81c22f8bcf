// The table through which a host program steers the runtime, and the hooks that the runtime only
// keeps for hosts.
//
// Ownership: the table is the host's; start-up reads it once and keeps no pointer to it. What its
// fields point at must stay until the process ends.
// Threads: start-up fills the hooks before any other thread exists; they never change afterwards.
#pragma once

#include <cstddef>
#include <cstdint>

#include "mirt/sys/file_access.h"

#pragma pack(push, 1)

/// Packed: the pointers follow the 32-bit version without a gap. A field is read when the version
/// reaches the number behind it, and copied into the runtime's global of the same name; what each
/// one is for and when it is called is told where that global is declared. A null field means that
/// the host brings none.
struct mirt_api_t {
  std::int32_t version;  ///< at least 16

  void (*mirt_lock)();                                       ///< 0: see mirt/sys/lock.h
  void (*mirt_unlock)();                                     ///< 0
  void* reserved_4;                                          ///< not read
  void** netbuf_operations;                                  ///< 0: the buffer operations, 29 words
  long long (*x_relative_time)();                            ///< 0: see mirt/sys/clock.h
  long long (*x_absolute_time)(void* arg);                   ///< 0
  void* x_schedule_task;                                     ///< 0
  void* x_cancel_task;                                       ///< 0
  void* x_make_socket;                                       ///< 0
  void* x_make_forbidden_socket;                             ///< 0
  void* x_remove_forbidden_socket;                           ///< 0
  void* x_drop_dead;                                         ///< 0
  void* x_rand;                                              ///< 0: see mirt/sys/random.h
  std::uint32_t* thread_startup_error;                       ///< 0: see mirt/sys/thread.h
  void* x_enable_debug_dump;                                 ///< 1
  void* reserved_17;                                         ///< not read
  void* x_make_socket2;                                      ///< 4
  void* x_make_forbidden_socket2;                            ///< 4
  void* x_make_socket3;                                      ///< 5
  void* x_final_crash_function;                              ///< 6
  void* x_schedule_task_executor;                            ///< 7
  void* x_schedule_task2;                                    ///< 8
  void* x_schedule_task_executor2;                           ///< 8
  void* x_tztime_2_time_t;                                   ///< 9
  void* x_time_t_2_tztime;                                   ///< 9
  void* x_mirt_lock_forbidden;                               ///< 10
  long long (*x_absolute_system_time)();                     ///< 15: see mirt/sys/clock.h
  void (*log_filter)(const char* text, std::size_t length);  ///< 16: receives every log line
  void* reserved_30;                                         ///< not read
  void* x_scheduler_pool;                                    ///< 20
  void* x_errlog_wait_for_flush;                             ///< 21
  /// 22: writes a log line; below, the runtime sets an adapter to `log_filter`
  void (*x_errlog_log_line_direct)(const char* line, std::size_t length, std::size_t header_length,
                                   void (*release)(void*));
  mirt::file_access_hook* x_record_file_access;  ///< 23: see mirt/sys/file_access.h
};

#pragma pack(pop)

namespace mirt {

// Kept for hosts: filled from the table and called by nothing in the runtime. Null means that the
// host brought none.
extern void* x_schedule_task;
extern void* x_cancel_task;
extern void* x_make_socket;
extern void* x_make_forbidden_socket;
extern void* x_remove_forbidden_socket;
extern void* x_drop_dead;
extern void* x_enable_debug_dump;
extern void* x_make_socket2;
extern void* x_make_forbidden_socket2;
extern void* x_make_socket3;
extern void* x_final_crash_function;
extern void* x_schedule_task_executor;
extern void* x_schedule_task2;
extern void* x_schedule_task_executor2;
extern void* x_tztime_2_time_t;
extern void* x_time_t_2_tztime;
extern void* x_mirt_lock_forbidden;
extern void* x_scheduler_pool;
extern void* x_errlog_wait_for_flush;

/// Writes one pre-formatted log line and calls `release` with it: the host's own writer from
/// version 22 of its table on, `init::compat_errlog_log_line_direct` from 16 to 21, else null.
extern void (*x_errlog_log_line_direct)(const char* line, std::size_t length,
                                        std::size_t header_length, void (*release)(void*));

}  // namespace mirt
