// The hooks that are only kept for hosts; those that are called live with their facilities.
#include "mirt/api.h"

namespace mirt {

void* x_schedule_task = nullptr;
void* x_cancel_task = nullptr;
void* x_make_socket = nullptr;
void* x_make_forbidden_socket = nullptr;
void* x_remove_forbidden_socket = nullptr;
void* x_drop_dead = nullptr;
void* x_enable_debug_dump = nullptr;
void* x_make_socket2 = nullptr;
void* x_make_forbidden_socket2 = nullptr;
void* x_make_socket3 = nullptr;
void* x_final_crash_function = nullptr;
void* x_schedule_task_executor = nullptr;
void* x_schedule_task2 = nullptr;
void* x_schedule_task_executor2 = nullptr;
void* x_tztime_2_time_t = nullptr;
void* x_time_t_2_tztime = nullptr;
void* x_mirt_lock_forbidden = nullptr;
void* x_scheduler_pool = nullptr;
void* x_errlog_wait_for_flush = nullptr;
void (*x_errlog_log_line_direct)(const char* line, std::size_t length, std::size_t header_length,
                                 void (*release)(void*)) = nullptr;

}  // namespace mirt
