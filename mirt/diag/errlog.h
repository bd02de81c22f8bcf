// The error log: the runtime's one diagnostic channel.
//
// A line goes from the thread that logs through a queue to a background thread, which stamps,
// escapes, folds and writes it: to a file, to standard error, or to a host's sink.
//
// Ownership: names and prefixes are borrowed and stay as long as the log object; the writer and all
// it uses live until the process ends.
// Threads: `log` and `flush` may be called from any thread at any time. Before start-up, too; but
// `flush()` before constructing `mirt::init` then, which sets what the writer reads. A forked child
// has no writer: it must neither log nor flush, and leaves by `_exit` or exec. The settings are
// read without a lock: set them before the first line.
//
// Callbacks may log themselves, and nothing deadlocks. A line from within a filter or a tee is
// shown to neither of them. A line from within a sink, a log-file hook or a file-access hook on the
// writer's thread is written with the next batch; one that logs each time it is called keeps the
// writer busy for ever.
#pragma once

#include <cstddef>
#include <string>

namespace mirt {

class xfile;

/// Names a component in front of its lines.
class errlog {
 public:
  /// `name` may be null or "": no name; `prefix`, put in front of the name, may be null. The flag
  /// is stored and read by nothing.
  errlog(const char* name, bool flag, const std::string* prefix)
      : name_(name), flag_(flag), prefix_(prefix) {}

  /// Queues one line: "[prefix][name]: text", or the bare text without a name. A level above the
  /// limit is dropped. Throws std::bad_alloc, and ":Error in 'detach'" if this is the first line
  /// and the writer cannot be started; later lines are dropped then. What a filter throws comes
  /// through.
  void log(int level, const char* text, std::size_t length);

  /// Returns once all that was queued before has been written. At once on the writer's own thread
  /// (in a sink or hook), and where there is no writer.
  static void flush();

  // Settings.

  using line_callback = void (*)(const char* text, std::size_t length);

  /// Sees every line, without stamp and process number, on the thread that logs; 0 drops the line.
  /// Null, as it is at first: none.
  static void set_log_filter(int (*filter)(const char* text, std::size_t length));

  /// Sees every queued line like the filter; what it throws is swallowed. Null: none.
  static void set_log_tee(line_callback tee);

  /// Gets the lines instead of the file and standard error, on the writer's thread, without stamp
  /// and line break. It must not throw. Null: none.
  static void set_log_sink(line_callback sink);

  /// Lines of a higher level are dropped. At first 0.
  static void set_log_level_limit(int limit);

  /// The log file's path; empty, as it is at first: no file.
  static void set_log_file_name(const std::string& name);

  /// Whether lines go to standard error, and whether they are stamped there. At first both.
  static void set_log_to_stderr(bool on);
  static void set_stderr_timestamps(bool on);

  /// A file that has reached `size` bytes after a batch is renamed to "name.0", older ones to
  /// "name.1" and so on, `count` in all. A 0 in either, as at first: never.
  static void set_log_rotate(std::size_t size, int count);

  /// A file that is longer than this after a batch is cut to its newer half, in place. Goes before
  /// rotation. 0, as it is at first: never.
  static void set_log_cut_size(std::size_t size);

  // What the writer does to lines and files. Not for two threads at once.

  /// Folds runs of lines that differ only in their header, the timestamp. Returns how many bytes
  /// to step back from the file's end before `out` is written:
  ///
  ///   first line        the line                                 step back 0
  ///   first repeat      its header, " -          1 - ", "\n"     step back 0
  ///   further repeats   the same with the new count              step back over the last marker
  ///
  /// Repeats are compared with the first line of the run. A line with fewer than 17 bytes behind
  /// its header, the line break among them, is never folded. `out` is good until the next call.
  /// Null as `line` forgets the run and gives the memory back.
  static std::size_t update_last_string(const char*& out, std::size_t& out_length, const char* line,
                                        std::size_t length, std::size_t header_length);

  /// Closes the file, and rotates it if its position, the size after writing at its end, has
  /// reached the rotation size. Whether it came to that, also if it failed then.
  static bool check_log_rotate(xfile* file);

  /// Makes room at "name.0" and moves the log there:
  ///
  ///   count 3   x.2 deleted, x.1 -> x.2, x.0 -> x.1, x -> x.0
  ///
  /// Files that form an unbroken run beyond the count are deleted; those behind a gap are left
  /// alone. Throws ":Error in 'move_file'" if a rename fails; those behind it do not take place.
  static void force_log_rotate(const std::string& name);

  /// Cuts a file that is longer than the cut size down to its newer half, less the last piece of at
  /// most 65536 bytes that is read, deliberately: the newest lines are lost at each cut, and with a
  /// cut size of at most two pieces all lines are. Swallows every failure.
  static void check_log_cut(xfile* file);

 private:
  const char* name_;
  [[maybe_unused]] bool flag_;
  const std::string* prefix_;
};

/// The UTC time as "2024-03-05T14:07:09Z"; "N" where that would not have 20 characters, as
/// outside the years 1000 to 9999, and when there is no time to be had.
std::string current_timestamp();

/// Start-up's step for the log, which needs no preparation.
void init_errlog();

}  // namespace mirt

/// What each line says of where it comes from: 1 "[process] ", 2 "[process:thread] ", else nothing.
/// To be set before the first line.
extern int g_run_report_level;
