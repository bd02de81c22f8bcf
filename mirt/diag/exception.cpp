#include "mirt/diag/exception.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sstream>

namespace mirt {

exception::exception() : message_(":") {}

exception::exception(const char* text) : message_(text) {}

exception::exception(const exception& other)
    : std::exception(other), message_(other.description()) {}

exception::~exception() = default;

const std::string& exception::description() const {
  if (extra_) {
    // Through the buffer's virtual operations: `str()` would make every program link, and start
    // with, streams and locales.
    std::streambuf& text = *extra_->rdbuf();
    text.pubseekpos(0, std::ios_base::in);
    for (int c; (c = text.sbumpc()) != EOF;) message_.push_back(static_cast<char>(c));
    extra_.reset();
  }
  return message_;
}

const char* exception::what() const noexcept {
  return description().c_str();
}

exception exception::function(const char* name) {
  exception result;
  result.message_.append("Error in '").append(name).append("'");
  return result;
}

exception exception::system_error(const char* caller, const char* call, const std::string& detail) {
  exception result;
  result.message_.append("Error from '").append(call);
  if (caller != nullptr && *caller != 0) {
    result.message_.append("' (called in '").append(caller).append("'): ");
  } else {
    result.message_.append("': ");
  }
  result.message_.append(detail);
  return result;
}

exception exception::system_error(const char* caller, const char* call) {
  return system_error(caller, call, system_error_exception_string(nullptr));
}

exception exception::system_error_context(const char* caller, const char* call,
                                          const std::string& context) {
  return system_error(caller, call, system_error_exception_string(&context));
}

std::string exception::system_error_exception_string(const std::string* context) {
  const int err = errno;  // before an allocation can change it
  std::string result;
  if (context != nullptr) result.append("[").append(*context).append("] ");
  return result.append(std::to_string(err)).append(", ").append(safe_strerror(err));
}

std::string safe_strerror(int err) {
  const char* const text = std::strerror(err);
  return text != nullptr ? text : "";
}

std::string system_error_string() {
  return safe_strerror(errno);
}

}  // namespace mirt
