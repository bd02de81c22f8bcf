#include "flag/system.h"

#include "flag/storage.h"

namespace {

flag::init_item_api* g_system_flags = nullptr;

}  // namespace

flag::init_item_api* mirt_flag_init_system() {
  if (g_system_flags == nullptr) {
    // Stored before the items are registered: one that asks for the registry meanwhile gets it.
    g_system_flags = flag::create_api(flag::create_reg("Quorvex\\flags", true));
    flag::item::init_each_once(g_system_flags);
  }
  return g_system_flags;
}
