// Objects that are created once and live until the process ends.
//
// Ownership: nobody's. They are never destroyed, so they may be used while the process exits.
// Threads: creating one is an ordinary allocation; what it is good for is told where it is made.
#pragma once

#include <utility>

namespace mirt {

/// Creates an object that lives until the process ends. Throws what its constructor throws.
template <class T, class... Args>
T* immortal(Args&&... args) {
  return new T(std::forward<Args>(args)...);
}

}  // namespace mirt
