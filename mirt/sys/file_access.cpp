#include "mirt/sys/file_access.h"

namespace mirt {
namespace {

file_access_hook g_nobody = nullptr;

}  // namespace

file_access_hook* x_record_file_access = &g_nobody;

void record_file_access(const string_ref& path, file_access_t kind) {
  if (x_record_file_access != nullptr && *x_record_file_access != nullptr) {
    (*x_record_file_access)(path.data(), path.size(), kind);
  }
}

}  // namespace mirt
