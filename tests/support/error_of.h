// The text of the exception that a call throws, to be compared letter by letter.
#pragma once

#include <string>
#include <utility>

#include "mirt/diag/exception.h"

namespace tests {

/// The text of the mirt::exception that `call` throws, "no exception" if it returns.
template <class F>
std::string error_of(F&& call) {
  try {
    std::forward<F>(call)();
  } catch (const mirt::exception& error) {
    return error.what();
  }
  return "no exception";
}

}  // namespace tests
