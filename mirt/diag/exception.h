// The one exception class of the runtime, its standard messages, and the texts of errno.
//
// Ownership: an exception owns its text; what `what()` returns lives as long as the exception.
// Threads: one exception belongs to one thread at a time, also for the const operations.
#pragma once

#include <exception>
#include <iosfwd>
#include <memory>
#include <string>

namespace mirt {

/// A failure, told by a text that may still be added to through `stream()`.
///
/// The messages that the factories make, with E the value of errno and S its text:
///
///   function("lock")                              :Error in 'lock'
///   system_error("create_directory", "mkdir")     :Error from 'mkdir' (called in
///                                                 'create_directory'): E, S
///   system_error(nullptr, "mkdir")                :Error from 'mkdir': E, S
///   system_error_context("f", "unlink", "/x")     :Error from 'unlink' (called in 'f'): [/x] E, S
///
/// The leading colon is deliberate: the default text is a lone colon, and all of these extend it.
class exception : public std::exception {
 public:
  exception();
  exception(const char* text);
  exception(const exception& other);
  ~exception() override;

  /// The stream for further text, the same one until the text is next asked for.
  std::ostream& stream();

  /// The full text. What was streamed is moved into it and the stream is given up.
  const std::string& description() const;

  /// The full text as a C string. Ends the process if memory for it runs out.
  const char* what() const noexcept override;

  /// `name` is the runtime function that failed.
  static exception function(const char* name);

  /// `caller` is the runtime function that failed (null or "" leaves it out), `call` the system
  /// call that reported the error. Without `detail` it is told by errno.
  static exception system_error(const char* caller, const char* call, const std::string& detail);
  static exception system_error(const char* caller, const char* call);

  /// The same with a bracketed context, such as a path, before the error number.
  static exception system_error_context(const char* caller, const char* call,
                                        const std::string& context);

  /// "E, S", after "[context] " if there is a context.
  static std::string system_error_exception_string(const std::string* context);

 private:
  mutable std::string message_;
  mutable std::unique_ptr<std::stringstream> extra_;  // what was streamed and not yet asked for
};

/// The system's text for an error number, or "" if it has none. Throws only std::bad_alloc.
std::string safe_strerror(int err);

/// `safe_strerror(errno)`
std::string system_error_string();

}  // namespace mirt
