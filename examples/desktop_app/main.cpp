// A desktop application as small as it can be: an ordinary user's program that changes machine-wide
// flags, with an administrator's consent.
//
//   desktop_app example_flag=on old_flag=default
#include <cstdio>
#include <string>
#include <vector>

#include "flag/elevated.h"
#include "flag/item.h"
#include "mirt/diag/exception.h"
#include "mirt/init.h"

namespace {

struct wish {
  std::string flag;
  std::string state;  // on, off or default
};

bool parse(const std::string& word, wish& result) {
  const std::size_t equals = word.find('=');
  if (equals == std::string::npos) return false;
  result = {flag::impl::desc_to_key(word.substr(0, equals)), word.substr(equals + 1)};
  return !result.flag.empty() &&
         (result.state == "on" || result.state == "off" || result.state == "default");
}

const char* state_name(int setting) {
  return setting == 0 ? "default" : setting > 0 ? "on" : "off";
}

int run(const std::vector<wish>& wishes) {
  // Settings of this registry are collected in memory until they are saved.
  flag::item_storage_ex_api* const store = flag::create_elevate();
  flag::init_item_api* const registry = flag::create_api(store);
  for (const wish& each : wishes) {
    registry->attach(each.flag.c_str(), false)->set(each.state == "default", each.state == "on");
  }

  std::string saved;
  try {
    saved = store->save();
  } catch (const mirt::exception& error) {
    std::printf("not saved%s\n", error.what());
    return 1;
  }
  std::printf("handed over: %s\n", saved.c_str());
  // A tool that was started does not say whether it succeeded; the store does.
  flag::item_storage_api* const stored = flag::create_reg("Quorvex\\flags", true);
  bool all = true;
  for (const wish& each : wishes) {
    const std::string state = state_name(stored->get(each.flag));
    std::printf("%s is %s\n", each.flag.c_str(), state.c_str());
    all = all && state == each.state;
  }
  return all ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<wish> wishes;
  for (int i = 1; i < argc; ++i) {
    wish next;
    if (!parse(argv[i], next)) {
      std::fprintf(stderr, "usage: desktop_app FLAG=on|off|default...\n");
      return 2;
    }
    wishes.push_back(next);
  }
  new mirt::init(nullptr);  // stays until the process ends
  return run(wishes);
}
