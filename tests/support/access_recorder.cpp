#include "tests/support/access_recorder.h"

namespace tests {
namespace {

std::vector<access_recorder::access> g_seen;

void record(const char* path, std::size_t length, mirt::file_access_t kind) {
  g_seen.emplace_back(kind, std::string(path, length));
}

mirt::file_access_hook g_slot = record;

}  // namespace

access_recorder::access_recorder() : previous_(mirt::x_record_file_access) {
  g_seen.clear();
  mirt::x_record_file_access = &g_slot;
}

access_recorder::~access_recorder() {
  mirt::x_record_file_access = previous_;
}

const std::vector<access_recorder::access>& access_recorder::seen() const {
  return g_seen;
}

void access_recorder::clear() {
  g_seen.clear();
}

}  // namespace tests
