// A host that embeds the runtime: it brings a clock of its own and receives every log line.
#include <atomic>
#include <cstdio>
#include <string>

#include "mirt/diag/errlog.h"
#include "mirt/diag/exception.h"
#include "mirt/init.h"
#include "mirt/sys/clock.h"

namespace {

std::atomic<long long> g_milliseconds = 1000;

/// Time passes when the host says so: 10 ms per question.
long long host_clock() {
  return g_milliseconds += 10;
}

/// Runs on each thread that logs; the text is good for the call only.
void print_line(const char* text, std::size_t length) {
  std::printf("the host received: %.*s\n", static_cast<int>(length), text);
}

}  // namespace

int main() {
  mirt_api_t table = {};
  table.version = 23;
  table.x_relative_time = host_clock;
  table.log_filter = print_line;
  try {
    new mirt::init(&table);  // stays until the process ends
  } catch (const mirt::exception& error) {
    std::fprintf(stderr, "the runtime did not start: %s\n", error.what());
    return 1;
  }
  const std::string text = "the clock stands at " + std::to_string(mirt::relative_time()) + " ms";
  mirt::errlog("example", false, nullptr).log(0, text.data(), text.size());
  return 0;
}
