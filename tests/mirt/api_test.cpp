// The layout of the host's table, which is a promise to programs built elsewhere, and the hooks
// that are only kept for hosts.
#include "mirt/api.h"

#include <gtest/gtest.h>

#include <type_traits>

#include "tests/support/new_process.h"

namespace {

/// Where the pointer fields lie: right behind the 32-bit version, without a gap.
constexpr std::size_t slot(std::size_t index) {
  return 4 + 8 * index;
}

static_assert(sizeof(void*) == 8);
static_assert(std::is_standard_layout_v<mirt_api_t> && std::is_trivial_v<mirt_api_t>);
static_assert(alignof(mirt_api_t) == 1);
static_assert(sizeof(mirt_api_t) == slot(33));
static_assert(std::is_same_v<decltype(mirt_api_t::version), std::int32_t>);
static_assert(offsetof(mirt_api_t, version) == 0);
static_assert(offsetof(mirt_api_t, mirt_lock) == slot(0));
static_assert(offsetof(mirt_api_t, mirt_unlock) == slot(1));
static_assert(offsetof(mirt_api_t, reserved_4) == slot(2));
static_assert(offsetof(mirt_api_t, netbuf_operations) == slot(3));
static_assert(offsetof(mirt_api_t, x_relative_time) == slot(4));
static_assert(offsetof(mirt_api_t, x_absolute_time) == slot(5));
static_assert(offsetof(mirt_api_t, x_schedule_task) == slot(6));
static_assert(offsetof(mirt_api_t, x_cancel_task) == slot(7));
static_assert(offsetof(mirt_api_t, x_make_socket) == slot(8));
static_assert(offsetof(mirt_api_t, x_make_forbidden_socket) == slot(9));
static_assert(offsetof(mirt_api_t, x_remove_forbidden_socket) == slot(10));
static_assert(offsetof(mirt_api_t, x_drop_dead) == slot(11));
static_assert(offsetof(mirt_api_t, x_rand) == slot(12));
static_assert(offsetof(mirt_api_t, thread_startup_error) == slot(13));
static_assert(offsetof(mirt_api_t, x_enable_debug_dump) == slot(14));
static_assert(offsetof(mirt_api_t, reserved_17) == slot(15));
static_assert(offsetof(mirt_api_t, x_make_socket2) == slot(16));
static_assert(offsetof(mirt_api_t, x_make_forbidden_socket2) == slot(17));
static_assert(offsetof(mirt_api_t, x_make_socket3) == slot(18));
static_assert(offsetof(mirt_api_t, x_final_crash_function) == slot(19));
static_assert(offsetof(mirt_api_t, x_schedule_task_executor) == slot(20));
static_assert(offsetof(mirt_api_t, x_schedule_task2) == slot(21));
static_assert(offsetof(mirt_api_t, x_schedule_task_executor2) == slot(22));
static_assert(offsetof(mirt_api_t, x_tztime_2_time_t) == slot(23));
static_assert(offsetof(mirt_api_t, x_time_t_2_tztime) == slot(24));
static_assert(offsetof(mirt_api_t, x_mirt_lock_forbidden) == slot(25));
static_assert(offsetof(mirt_api_t, x_absolute_system_time) == slot(26));
static_assert(offsetof(mirt_api_t, log_filter) == slot(27));
static_assert(offsetof(mirt_api_t, reserved_30) == slot(28));
static_assert(offsetof(mirt_api_t, x_scheduler_pool) == slot(29));
static_assert(offsetof(mirt_api_t, x_errlog_wait_for_flush) == slot(30));
static_assert(offsetof(mirt_api_t, x_errlog_log_line_direct) == slot(31));
static_assert(offsetof(mirt_api_t, x_record_file_access) == slot(32));

// The fields that the runtime itself calls or follows.
template <class T, class U>
constexpr bool same = std::is_same_v<T, U>;
static_assert(same<decltype(mirt_api_t::mirt_lock), void (*)()>);
static_assert(same<decltype(mirt_api_t::mirt_unlock), void (*)()>);
static_assert(same<decltype(mirt_api_t::x_relative_time), long long (*)()>);
static_assert(same<decltype(mirt_api_t::x_absolute_time), long long (*)(void*)>);
static_assert(same<decltype(mirt_api_t::x_absolute_system_time), long long (*)()>);
static_assert(same<decltype(mirt_api_t::thread_startup_error), std::uint32_t*>);
static_assert(same<decltype(mirt_api_t::log_filter), void (*)(const char*, std::size_t)>);
static_assert(same<decltype(mirt_api_t::x_errlog_log_line_direct),
                   void (*)(const char*, std::size_t, std::size_t, void (*)(void*))>);
static_assert(same<decltype(mirt_api_t::x_record_file_access),
                   void (**)(const char*, std::size_t, mirt::file_access_t)>);

TEST(kept_hooks, are_null_without_a_host) {
  tests::in_new_process([] {
    for (const void* hook :
         {mirt::x_schedule_task, mirt::x_cancel_task, mirt::x_make_socket,
          mirt::x_make_forbidden_socket, mirt::x_remove_forbidden_socket, mirt::x_drop_dead,
          mirt::x_enable_debug_dump, mirt::x_make_socket2, mirt::x_make_forbidden_socket2,
          mirt::x_make_socket3, mirt::x_final_crash_function, mirt::x_schedule_task_executor,
          mirt::x_schedule_task2, mirt::x_schedule_task_executor2, mirt::x_tztime_2_time_t,
          mirt::x_time_t_2_tztime, mirt::x_mirt_lock_forbidden, mirt::x_scheduler_pool,
          mirt::x_errlog_wait_for_flush}) {
      EXPECT_EQ(hook, nullptr);
    }
    EXPECT_EQ(mirt::x_errlog_log_line_direct, nullptr);
  });
}

}  // namespace
