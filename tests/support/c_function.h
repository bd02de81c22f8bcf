// Stand-ins for functions of the C library. A test program that defines such a function is called
// in its place; the stand-in asks `failing` whether to fail, and else hands on to the real one:
//
//   extern "C" int fclose(FILE* file) {
//     if (tests::failing::now("fclose")) return EOF;
//     return tests::next<int(FILE*)>("fclose")(file);
//   }
#pragma once

#include <dlfcn.h>

#include <cerrno>
#include <cstring>

namespace tests {

/// The function that the program would have called without the stand-in.
template <class F>
F* next(const char* name) {
  return reinterpret_cast<F*>(::dlsym(RTLD_NEXT, name));
}

/// While it lives, one function fails with an error number. Requires: no other one lives, and no
/// expectation is checked meanwhile: the test framework calls the C library as well.
class failing {
 public:
  failing(const char* name, int error) {
    name_ = name;
    error_ = error;
  }
  ~failing() { name_ = nullptr; }
  failing(const failing&) = delete;
  failing& operator=(const failing&) = delete;

  /// The error number that the function is to fail with now, also put into errno; or 0.
  static int now(const char* name) {
    if (name_ == nullptr || std::strcmp(name_, name) != 0) return 0;
    return errno = error_;
  }

 private:
  static inline const char* name_ = nullptr;
  static inline int error_ = 0;
};

}  // namespace tests
