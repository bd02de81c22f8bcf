#include "mirt/sys/clock.h"

#include <sys/time.h>
#include <sys/times.h>
#include <unistd.h>

#include "mirt/diag/exception.h"
#include "mirt/sys/immortal.h"
#include "mirt/sys/lock.h"
#include "mirt/sys/platform.h"

namespace mirt {

long long (*x_relative_time)() = nullptr;
long long (*x_absolute_time)(void* arg) = nullptr;
long long (*x_absolute_system_time)() = nullptr;
bool g_has_monotonic = false;

namespace {

clock_t current_ticks() {
  tms unused;
  return ::times(&unused);
}

long long monotonic_ms() {
  timespec now;
  clock_monotonic(now);
  return get_ms_from_ns(get_ns(now));
}

/// The timer's state.
class global_ {
 public:
  void start() {
    rec_lock guard(lock_);
    monotonic_ = g_has_monotonic;
    relative_ms_ = 0;
    if (monotonic_) {
      start_ms_ = monotonic_ms();
    } else {
      ticks_per_second_ = ::sysconf(_SC_CLK_TCK);
      last_ticks_ = current_ticks();
    }
  }

  long long relative_time() {
    rec_lock guard(lock_);
    if (monotonic_) {
      relative_ms_ = monotonic_ms() - start_ms_;
    } else {
      const clock_t now = current_ticks();
      const long long ticks = now - last_ticks_;
      last_ticks_ = now;
      relative_ms_ += ticks * 1000 / ticks_per_second_;
    }
    return relative_ms_;
  }

 private:
  rec_mutex lock_;          // guards all that follows
  bool monotonic_ = false;  // which clock it started with
  long long relative_ms_ = 0;
  long long start_ms_ = 0;
  long ticks_per_second_ = 1;
  clock_t last_ticks_ = 0;
};

/// Made by whoever asks for the time first: a failed start-up logs before `init_timer` had its
/// turn.
global_& timer() {
  static global_* const state = [] {
    auto* const made = immortal<global_>();
    made->start();
    return made;
  }();
  return *state;
}

}  // namespace

long long relative_time() {
  if (x_relative_time != nullptr) return x_relative_time();
  return timer().relative_time();
}

long long absolute_system_time() {
  if (x_absolute_system_time != nullptr) return x_absolute_system_time();
  // Deliberate: those who only read the wall clock keep the tick count current, too.
  if (!g_has_monotonic) relative_time();
  timespec now;
  clock_realtime(now);
  return get_ms_from_ns(get_ns(now));
}

long long absolute_time(void* arg) {
  if (x_absolute_time != nullptr) return x_absolute_time(arg);
  return absolute_system_time();
}

long long absolute_time_t(void* arg) {
  return to_time_t(absolute_time(arg));
}

long long to_time_t(long long ms) {
  return ms / 1000;
}

void clock_realtime(timespec& out) {
  timeval now;
  if (::gettimeofday(&now, nullptr) != 0) throw exception::function("clock_realtime");
  out.tv_sec = now.tv_sec;
  out.tv_nsec = now.tv_usec * 1000L;
}

void clock_monotonic(timespec& out) {
  if (!platform::monotonic_time(out)) throw exception::function("clock_monotonic");
}

void add_ms(timespec& ts, long long ms) {
  const long long seconds = ms / 1000;
  ts.tv_sec += static_cast<time_t>(seconds);
  ts.tv_nsec += static_cast<long>((ms - seconds * 1000) * 1000000);
  if (ts.tv_nsec >= 1000000000) {
    ts.tv_sec += ts.tv_nsec / 1000000000;
    ts.tv_nsec %= 1000000000;
  }
}

long long get_ns(const timespec& ts) {
  return ts.tv_sec * 1000000000LL + ts.tv_nsec;
}

long long get_ms_from_ns(long long ns) {
  return ns / 1000000;
}

void init_timer() {
  timer().start();
}

void init_unixtime() {
  ::tzset();
  try {
    timespec now;
    clock_monotonic(now);
    g_has_monotonic = true;
  } catch (const exception&) {
    // No such clock: the relative clock counts ticks.
  }
}

}  // namespace mirt
