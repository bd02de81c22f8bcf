// Apart from exception.cpp, so that a program that never asks for the stream does not link streams
// and locales, which would double its start-up.
#include <locale>
#include <sstream>

#include "mirt/diag/exception.h"

namespace mirt {

std::ostream& exception::stream() {
  if (!extra_) {
    extra_ = std::make_unique<std::stringstream>();
    extra_->imbue(std::locale::classic());  // numbers look the same in every host
  }
  return *extra_;
}

}  // namespace mirt
