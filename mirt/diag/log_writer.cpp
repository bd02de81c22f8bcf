// One thread writes all lines, so that no thread that logs ever waits for a file. Names that begin
// with `bg_` run on that thread alone, or are touched by it alone.
#include "mirt/diag/log_writer.h"

#include <atomic>
#include <cstdio>
#include <limits>
#include <memory>
#include <vector>

#include "mirt/diag/errlog.h"
#include "mirt/diag/log_rotate.h"
#include "mirt/diag/log_settings.h"
#include "mirt/diag/log_text.h"
#include "mirt/sys/clock.h"
#include "mirt/sys/lock.h"
#include "mirt/sys/semaphore.h"
#include "mirt/sys/thread.h"

namespace mirt {
namespace {

// Text that is written at once, and memory that is kept from batch to batch.
constexpr std::size_t block_size = 65536;

// A stamp tells seconds, in which far more lines than these are written.
constexpr std::size_t lines_per_stamp = 64;

thread_local bool bg_is_this_thread = false;

void discard(const log_record& record) {
  if (record.line != nullptr) {
    delete record.line;
  } else {
    record.release(const_cast<char*>(record.data));
  }
}

/// Empties a text and gives back what an unusually long line took.
void forget(std::string& text) {
  text.clear();
  if (text.capacity() > 16 * block_size) text.shrink_to_fit();
}

void forget_run() {
  const char* unused;
  std::size_t unused_length;
  errlog::update_last_string(unused, unused_length, nullptr, 0, 0);
}

class log_dumper final : public thread {
 public:
  explicit log_dumper(semaphore* started)
      : thread(true, "", 0), started_(started), custom_rotate_(g_errlog_custom_log_rotate) {}

  void push(const log_record& record);
  void flush();

  /// The thread could not be started: nothing will ever be written.
  void give_up();

  void run() override;

 private:
  void bg_take();
  void bg_write();
  std::unique_ptr<xfile> bg_open();
  void bg_to_file(xfile& file, const log_record& record);
  void bg_to_stderr(const log_record& record);
  void bg_to_sink(const log_record& record);
  void bg_write_file(xfile& file);
  void bg_write_stderr();
  void bg_keep_small(xfile& file);
  void bg_wake_waiters();
  void bg_update_stamp();

  rec_mutex lock_;  // guards records_, waiters_ and dead_
  std::vector<log_record> records_;
  std::vector<semaphore*> waiters_;  // to be posted after the batch that is taken with them
  semaphore wake_{0x7fffffff, 0};    // posted when there is something to take again
  semaphore* const started_;         // posted once the thread runs
  log_file_hook* const custom_rotate_;
  bool dead_ = false;

  std::vector<log_record> bg_records_;
  std::vector<semaphore*> bg_waiters_;
  std::string bg_file_text_;  // of the batch, not yet written
  std::string bg_stderr_text_;
  std::string bg_line_;
  long long bg_stamp_seconds_ = 0;
  std::string bg_stamp_;
};

void log_dumper::push(const log_record& record) {
  bool was_empty;
  {
    rec_lock guard(lock_);
    if (dead_) return discard(record);
    was_empty = records_.empty() && waiters_.empty();
    records_.push_back(record);
  }
  if (was_empty) wake_.post();
}

void log_dumper::flush() {
  if (bg_is_this_thread) return;
  semaphore written(0x7fffffff, 0);
  bool was_empty;
  {
    rec_lock guard(lock_);
    if (dead_) return;
    was_empty = records_.empty() && waiters_.empty();
    waiters_.push_back(&written);
  }
  if (was_empty) wake_.post();
  written.wait();
}

void log_dumper::give_up() {
  rec_lock guard(lock_);
  dead_ = true;
  for (const log_record& record : records_) discard(record);
  records_.clear();
  for (semaphore* const waiter : waiters_) waiter->post();
  waiters_.clear();
}

void log_dumper::run() {
  bg_is_this_thread = true;
  started_->post();
  for (;;) {
    bg_take();
    bg_write();
    bg_wake_waiters();
    wake_.wait();
  }
}

void log_dumper::bg_take() {
  rec_lock guard(lock_);
  records_.swap(bg_records_);
  waiters_.swap(bg_waiters_);
}

void log_dumper::bg_write() {
  const std::unique_ptr<xfile> file = bg_open();
  for (std::size_t i = 0; i < bg_records_.size(); ++i) {
    const log_record& record = bg_records_[i];
    try {
      if (i % lines_per_stamp == 0) bg_update_stamp();
      if (record.line != nullptr) escape_line(*record.line);
      if (g_log_settings.sink != nullptr) {
        bg_to_sink(record);
      } else {
        if (file != nullptr && *file) bg_to_file(*file, record);
        if (g_log_settings.to_stderr) bg_to_stderr(record);
      }
    } catch (...) {
      // No memory for this line, or a sink that throws: the log goes on. A run whose marker may
      // not have been written is not stepped back over.
      forget_run();
    }
    discard(record);
  }
  bg_records_.clear();
  bg_write_stderr();
  if (file != nullptr && *file) {
    bg_write_file(*file);
    bg_keep_small(*file);
  }
}

std::unique_ptr<xfile> log_dumper::bg_open() {
  const std::string* const name = g_log_settings.file_name;
  if (g_log_settings.sink != nullptr || name == nullptr || name->empty()) return nullptr;
  try {
    std::unique_ptr<xfile> file = open_log_file(custom_rotate_, *name);
    // Once for the whole batch: a seek before every line would cost more than the line.
    if (!bg_records_.empty() && file != nullptr && *file) std::fseek(*file, 0, SEEK_END);
    return file;
  } catch (...) {
    return nullptr;  // as for a file that cannot be opened
  }
}

void log_dumper::bg_to_file(xfile& file, const log_record& record) {
  const char* text = record.data;
  std::size_t length = record.length;
  std::size_t header_length = record.header_length;
  if (record.line != nullptr) {
    bg_line_.assign(bg_stamp_).append(" ").append(*record.line).append("\n");
    text = bg_line_.data();
    length = bg_line_.size();
    header_length = bg_stamp_.size();
  }
  const char* out;
  std::size_t out_length;
  const std::size_t step_back =
      errlog::update_last_string(out, out_length, text, length, header_length);
  if (step_back <= bg_file_text_.size()) {
    bg_file_text_.resize(bg_file_text_.size() - step_back);
  } else {
    std::fseek(file, -static_cast<long>(step_back), SEEK_END);  // the marker is in the file already
  }
  bg_file_text_.append(out, out_length);
  if (bg_file_text_.size() >= block_size) bg_write_file(file);
}

void log_dumper::bg_to_stderr(const log_record& record) {
  if (record.line != nullptr) {
    if (g_log_settings.stderr_timestamps) bg_stderr_text_.append(bg_stamp_).append(" ");
    bg_stderr_text_.append(*record.line).append("\n");
  } else {
    const string_ref text =
        g_log_settings.stderr_timestamps
            ? string_ref(record.data, record.length)
            : text_behind_header(record.data, record.length, record.header_length);
    bg_stderr_text_.append(text.data(), text.size());
  }
  if (bg_stderr_text_.size() >= block_size) bg_write_stderr();
}

void log_dumper::bg_to_sink(const log_record& record) {
  const string_ref text = record.line != nullptr
                              ? string_ref(*record.line)
                              : without_line_breaks(text_behind_header(record.data, record.length,
                                                                       record.header_length));
  g_log_settings.sink(text.data(), text.size());
}

void log_dumper::bg_write_file(xfile& file) {
  try {
    file.write(bg_file_text_.data(), bg_file_text_.size());
  } catch (...) {
    // A host's file may throw where ours says nothing: what it cannot hold is lost either way.
  }
  forget(bg_file_text_);
  forget(bg_line_);
}

void log_dumper::bg_write_stderr() {
  std::fwrite(bg_stderr_text_.data(), 1, bg_stderr_text_.size(), stderr);
  forget(bg_stderr_text_);
}

void log_dumper::bg_keep_small(xfile& file) {
  if (g_log_settings.cut_size != 0) return errlog::check_log_cut(&file);
  if (g_log_settings.rotate_size == 0 || g_log_settings.rotate_count == 0) return;
  if (!errlog::check_log_rotate(&file)) return;
  forget_run();
  try {
    if (custom_rotate_ != nullptr) custom_rotate_->rotated();
  } catch (...) {
    // A host's trouble is no reason to stop writing.
  }
}

void log_dumper::bg_wake_waiters() {
  rec_lock guard(lock_);
  for (semaphore* const waiter : bg_waiters_) waiter->post();
  bg_waiters_.clear();
}

/// Makes the stamp anew if the second has changed.
void log_dumper::bg_update_stamp() {
  long long seconds = std::numeric_limits<long long>::min();  // no year that could be printed
  try {
    seconds = absolute_time_t(nullptr);
  } catch (...) {
    // Stamped as a time that cannot be told.
  }
  if (bg_stamp_.empty() || seconds != bg_stamp_seconds_) {
    bg_stamp_ = timestamp_of(seconds);
    bg_stamp_seconds_ = seconds;
  }
}

std::atomic<log_dumper*> g_dumper = nullptr;

log_dumper& get_log_dumper() {
  if (log_dumper* const dumper = g_dumper.load()) return *dumper;

  semaphore started(0x7fffffff, 0);
  auto made = std::make_unique<log_dumper>(&started);
  log_dumper* dumper = nullptr;
  if (!g_dumper.compare_exchange_strong(dumper, made.get())) return *dumper;
  dumper = made.release();
  try {
    dumper->detach(thread::normal);
  } catch (...) {
    dumper->give_up();
    throw;
  }
  started.wait();
  return *dumper;
}

}  // namespace

void push_record(const log_record& record) {
  get_log_dumper().push(record);
}

void flush_records() {
  if (log_dumper* const dumper = g_dumper.load()) dumper->flush();
}

}  // namespace mirt
