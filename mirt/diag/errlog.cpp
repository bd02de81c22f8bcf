#include "mirt/diag/errlog.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>

#include "mirt/diag/log_settings.h"
#include "mirt/diag/log_text.h"
#include "mirt/diag/log_writer.h"
#include "mirt/sys/clock.h"
#include "mirt/sys/immortal.h"
#include "mirt/sys/platform.h"
#include "text/string_ref.h"

int g_run_report_level = 0;

namespace mirt {

log_settings g_log_settings;

namespace {

/// True while a filter or a tee runs on this thread: its own lines are not shown to it.
thread_local bool t_in_callback = false;

class callback_scope {
 public:
  callback_scope() { t_in_callback = true; }
  ~callback_scope() { t_in_callback = false; }
  callback_scope(const callback_scope&) = delete;
  callback_scope& operator=(const callback_scope&) = delete;
};

void append_process(std::string& line) {
  if (g_run_report_level != 1 && g_run_report_level != 2) return;
  line.append("[").append(std::to_string(::getpid()));
  if (g_run_report_level == 2) line.append(":").append(std::to_string(platform::thread_number()));
  line.append("] ");
}

/// The common path of every line. `text` begins at `text_at` in the line.
void log_line(std::unique_ptr<std::string> line, std::size_t text_at) {
  const bool watched = !t_in_callback;
  const auto tee = watched ? g_log_settings.tee : nullptr;
  const string_ref text(line->data() + text_at, line->size() - text_at);
  if (watched && g_log_settings.filter != nullptr) {
    callback_scope scope;
    if (g_log_settings.filter(text.data(), text.size()) == 0) return;
  }
  // The line belongs to the writer as soon as it is queued; the tee, which comes later, needs its
  // own.
  const std::string copy = tee != nullptr ? std::string(text.data(), text.size()) : "";
  push_record({line.get(), nullptr, 0, 0, nullptr});
  line.release();  // NOLINT(bugprone-unused-return-value)
  if (tee != nullptr) {
    callback_scope scope;
    try {
      tee(copy.data(), copy.size());
    } catch (...) {
      // The line is queued; what its listener has to say is not ours.
    }
  }
}

constexpr std::size_t shortest_buffer = 65536;
constexpr std::size_t marker_size = 17;  // " - ", ten digits, " - ", "\n"

/// The run of lines that is being folded.
struct repeat_state {
  std::unique_ptr<char[]> last;  // the first line of the run
  std::size_t capacity = 0;
  std::size_t length = 0;
  std::size_t header_length = 0;
  unsigned int repeats = 0;
  std::unique_ptr<char[]> marker;
};

}  // namespace

void errlog::log(int level, const char* text, std::size_t length) {
  if (g_log_settings.level_limit < level) return;
  auto line = std::make_unique<std::string>();
  const std::size_t prefix_size = prefix_ != nullptr ? prefix_->size() : 0;
  const std::size_t name_size = name_ != nullptr ? std::strlen(name_) : 0;
  const std::size_t longest_process = g_run_report_level == 0 ? 0 : 48;
  line->reserve(longest_process + prefix_size + name_size + 2 + length);
  append_process(*line);
  const std::size_t text_at = line->size();
  if (name_size != 0) {
    if (prefix_ != nullptr) line->append(*prefix_);
    line->append(name_, name_size).append(": ");
  }
  line->append(text, length);
  log_line(std::move(line), text_at);
}

void errlog::flush() {
  flush_records();
}

void errlog::set_log_filter(int (*filter)(const char* text, std::size_t length)) {
  g_log_settings.filter = filter;
}

void errlog::set_log_tee(line_callback tee) {
  g_log_settings.tee = tee;
}

void errlog::set_log_sink(line_callback sink) {
  g_log_settings.sink = sink;
}

void errlog::set_log_level_limit(int limit) {
  g_log_settings.level_limit = limit;
}

void errlog::set_log_file_name(const std::string& name) {
  g_log_settings.file_name = immortal<const std::string>(name);
}

void errlog::set_log_to_stderr(bool on) {
  g_log_settings.to_stderr = on;
}

void errlog::set_stderr_timestamps(bool on) {
  g_log_settings.stderr_timestamps = on;
}

void errlog::set_log_rotate(std::size_t size, int count) {
  g_log_settings.rotate_size = size;
  g_log_settings.rotate_count = count;
}

void errlog::set_log_cut_size(std::size_t size) {
  g_log_settings.cut_size = size;
}

std::size_t errlog::update_last_string(const char*& out, std::size_t& out_length, const char* line,
                                       std::size_t length, std::size_t header_length) {
  // Not destroyed at exit: the writer goes on until the process is gone.
  static repeat_state& run = *immortal<repeat_state>();
  if (line == nullptr) {
    run = {};
    out = nullptr;
    out_length = 0;
    return 0;
  }

  if (run.last != nullptr && run.header_length == header_length && run.length == length &&
      header_length + marker_size <= length &&
      std::equal(line + header_length, line + length, run.last.get() + header_length)) {
    const std::size_t size = header_length + marker_size;
    if (run.marker == nullptr) run.marker = std::make_unique<char[]>(size + 1);
    ++run.repeats;
    char* const end = std::copy_n(line, header_length, run.marker.get());
    std::snprintf(end, marker_size + 1, " - %10u - \n", run.repeats);
    out = run.marker.get();
    out_length = size;
    return run.repeats == 1 ? 0 : size;
  }

  run.marker.reset();
  const bool fits = run.last != nullptr && run.capacity >= length;
  const bool is_worth_keeping = run.capacity <= shortest_buffer || length > shortest_buffer;
  if (!fits || !is_worth_keeping) {
    run.last.reset();
    run.capacity = std::max(length, shortest_buffer);
    run.last.reset(new char[run.capacity]);
  }
  std::copy_n(line, length, run.last.get());
  run.length = length;
  run.header_length = header_length;
  run.repeats = 0;
  out = run.last.get();
  out_length = length;
  return 0;
}

std::string current_timestamp() {
  try {
    return timestamp_of(absolute_time_t(nullptr));
  } catch (...) {
    return "N";
  }
}

void init_errlog() {}

}  // namespace mirt
