// Time in signed 64-bit milliseconds: a relative clock for intervals, an absolute one for dates.
//
// Ownership: the timer's state lives until the process ends.
// Threads: the clocks and conversions may be called from any thread, the initialisers from
// start-up alone. The relative clock may be read before start-up; `init_timer` sets it back to 0.
#pragma once

#include <time.h>

namespace mirt {

/// A host's clocks, in milliseconds; null where the host brings none. Set before start-up or by
/// it from the host's table. They are called from any thread, with none of the timer's locks held,
/// and must not read the clock that they replace.
extern long long (*x_relative_time)();
extern long long (*x_absolute_time)(void* arg);
extern long long (*x_absolute_system_time)();

/// Whether the system has a monotonic clock; `init_unixtime` finds out. Where it has none, the
/// relative clock adds up the ticks of times().
extern bool g_has_monotonic;

/// Milliseconds since `init_timer`, never decreasing.
long long relative_time();

/// Wall time in milliseconds since the Unix epoch. Throws ":Error in 'clock_realtime'".
long long absolute_system_time();

/// The runtime's absolute time in milliseconds; `arg` only goes on to a host's clock.
long long absolute_time(void* arg);

/// `absolute_time` in whole seconds.
long long absolute_time_t(void* arg);

/// ms / 1000, towards zero: -1500 gives -1.
long long to_time_t(long long ms);

/// The wall clock, to the microsecond. Throws ":Error in 'clock_realtime'".
void clock_realtime(timespec& out);

/// The system's monotonic clock. Throws ":Error in 'clock_monotonic'" where there is none.
void clock_monotonic(timespec& out);

/// Adds milliseconds and carries full seconds up: {5 s, 600000000 ns} and 1500 ms give
/// {7 s, 100000000 ns}. There is deliberately no borrow: a negative `ms` can leave the nanoseconds
/// negative.
void add_ms(timespec& ts, long long ms);

/// All of `ts` in nanoseconds.
long long get_ns(const timespec& ts);

/// ns / 1000000, towards zero: 1999999 gives 1.
long long get_ms_from_ns(long long ns);

/// Starts the relative clock from 0.
void init_timer();

/// Reads the time zone and finds out whether there is a monotonic clock. Never throws.
void init_unixtime();

}  // namespace mirt
