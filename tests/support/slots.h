// Calls a virtual operation by its slot, as a host does that only knows the order.
#pragma once

namespace tests {

template <class Result, class... Arguments>
Result call_slot(void* object, int slot, Arguments... arguments) {
  using operation = Result (*)(void*, Arguments...);
  operation* const table = *static_cast<operation**>(object);
  return table[slot](object, arguments...);
}

}  // namespace tests
