#include "netbuf/netbuf.h"

#include <algorithm>

namespace netbuf {

void* dispatch[28] = {};

bool install(void** table) {
  if (dispatch[0] != nullptr) return false;
  // Word 22 is part of a table's layout and deliberately stays behind.
  std::copy_n(table + 23, 6, std::copy_n(table, 22, dispatch));
  return true;
}

void init(const init_args& args) {
  reinterpret_cast<void (*)(int, int)>(dispatch[27])(args.first, args.use_cache);
}

}  // namespace netbuf
