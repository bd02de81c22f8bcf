// Start-up knows every service and holds no other logic: it fills the hosts' hooks from a table
// and calls the initialisers in their fixed order.
#include "mirt/init.h"

#include <cstring>

#include "mirt/diag/errlog.h"
#include "mirt/diag/exception.h"
#include "mirt/diag/fmt_dbg.h"
#include "mirt/diag/log_text.h"
#include "mirt/sys/clock.h"
#include "mirt/sys/files.h"
#include "mirt/sys/lock.h"
#include "mirt/sys/random.h"
#include "mirt/sys/signals.h"
#include "mirt/sys/thread.h"
#include "mirt/sys/xfile.h"
#include "netbuf/netbuf.h"
#include "netbuf/operations.h"
#include "xstd/config.h"

namespace mirt {

bool init::m_started = false;
void (*init::log_filter_)(const char* text, std::size_t length) = nullptr;
void (*init::compat_errlog_log_line_direct_)(const char* text, std::size_t length) = nullptr;

namespace {

constexpr std::int32_t oldest_version = 16;
constexpr std::int32_t first_with_log_line_direct = 22;

struct host_field {
  std::int32_t from_version;
  std::size_t offset;  // in mirt_api_t
  void* global;        // pointer-sized
};

/// In the order of the versions that brought them.
const host_field g_host_fields[] = {
    {0, offsetof(mirt_api_t, mirt_lock), &mirt_lock},
    {0, offsetof(mirt_api_t, mirt_unlock), &mirt_unlock},
    {0, offsetof(mirt_api_t, x_relative_time), &x_relative_time},
    {0, offsetof(mirt_api_t, x_absolute_time), &x_absolute_time},
    {0, offsetof(mirt_api_t, x_schedule_task), &x_schedule_task},
    {0, offsetof(mirt_api_t, x_cancel_task), &x_cancel_task},
    {0, offsetof(mirt_api_t, x_make_socket), &x_make_socket},
    {0, offsetof(mirt_api_t, x_make_forbidden_socket), &x_make_forbidden_socket},
    {0, offsetof(mirt_api_t, x_remove_forbidden_socket), &x_remove_forbidden_socket},
    {0, offsetof(mirt_api_t, x_drop_dead), &x_drop_dead},
    {0, offsetof(mirt_api_t, x_rand), &x_rand},
    {0, offsetof(mirt_api_t, thread_startup_error), &thread_startup_error},
    {1, offsetof(mirt_api_t, x_enable_debug_dump), &x_enable_debug_dump},
    {4, offsetof(mirt_api_t, x_make_socket2), &x_make_socket2},
    {4, offsetof(mirt_api_t, x_make_forbidden_socket2), &x_make_forbidden_socket2},
    {5, offsetof(mirt_api_t, x_make_socket3), &x_make_socket3},
    {6, offsetof(mirt_api_t, x_final_crash_function), &x_final_crash_function},
    {7, offsetof(mirt_api_t, x_schedule_task_executor), &x_schedule_task_executor},
    {8, offsetof(mirt_api_t, x_schedule_task2), &x_schedule_task2},
    {8, offsetof(mirt_api_t, x_schedule_task_executor2), &x_schedule_task_executor2},
    {9, offsetof(mirt_api_t, x_tztime_2_time_t), &x_tztime_2_time_t},
    {9, offsetof(mirt_api_t, x_time_t_2_tztime), &x_time_t_2_tztime},
    {10, offsetof(mirt_api_t, x_mirt_lock_forbidden), &x_mirt_lock_forbidden},
    {15, offsetof(mirt_api_t, x_absolute_system_time), &x_absolute_system_time},
    {16, offsetof(mirt_api_t, log_filter), &init::log_filter_},
    {20, offsetof(mirt_api_t, x_scheduler_pool), &x_scheduler_pool},
    {21, offsetof(mirt_api_t, x_errlog_wait_for_flush), &x_errlog_wait_for_flush},
    {first_with_log_line_direct, offsetof(mirt_api_t, x_errlog_log_line_direct),
     &x_errlog_log_line_direct},
    {23, offsetof(mirt_api_t, x_record_file_access), &x_record_file_access},
};

/// Leaves a record, on standard error as a rule: the host may not live to tell of the exception.
void log_bad_version(int version) {
  try {
    errlog log("mirt::init", true, nullptr);
    fmt_dbg::fmt_verbose(log, "invalid api provided (want=16, got=%1%)", version);
    errlog::flush();
  } catch (const exception&) {
    // Without a log the exception that follows says what matters.
  }
}

void read_host_table(const mirt_api_t& api) {
  if (api.version >= 0 && api.netbuf_operations != nullptr) netbuf::install(api.netbuf_operations);
  for (const host_field& field : g_host_fields) {
    if (api.version < field.from_version) break;
    std::memcpy(field.global, reinterpret_cast<const char*>(&api) + field.offset, sizeof(void*));
  }
  if (api.version < oldest_version) {
    log_bad_version(api.version);
    throw exception("mirt-rpt api missing");
  }
  if (init::log_filter_ != nullptr) errlog::set_log_filter(init::log_filter);
  if (api.version < first_with_log_line_direct) {
    x_errlog_log_line_direct = init::compat_errlog_log_line_direct;
    init::compat_errlog_log_line_direct_ = init::log_filter_;
  }
}

/// Network addresses need no preparation; their step keeps its place among the services.
struct ip_address {
  static void init() {}
};

}  // namespace

init::init(mirt_api_t* api) {
  if (m_started) throw exception("mirt-rpt already initialized");
  m_started = true;
  if (api != nullptr) read_host_table(*api);

  init_unixtime();
  foreign_thread(true);
  init_mirtlock();
  if (netbuf::install(_netbuf_impl)) netbuf::init({false, true});
  task_lock();
  init_rand();
  rwlock_init();
  init_timer();
  init_errlog();
  xfile::init();
  init_thread();
  init_util_fs();
  if (api == nullptr) {
    disable_sigpipe();
    disable_sigchild();
  }
  ip_address::init();
  xstd::init_storage();
}

int init::log_filter(const char* text, std::size_t length) {
  log_filter_(text, length);
  return 0;
}

void init::compat_errlog_log_line_direct(const char* line, std::size_t length,
                                         std::size_t header_length, void (*release)(void*)) {
  if (compat_errlog_log_line_direct_ != nullptr) {
    const string_ref text = without_line_breaks(text_behind_header(line, length, header_length));
    compat_errlog_log_line_direct_(text.data(), text.size());
  }
  release(const_cast<char*>(line));
}

}  // namespace mirt
