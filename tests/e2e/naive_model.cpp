// Every rule of the tool in its simplest form: parse, check, fold, make way, write.
#include "tests/e2e/naive_model.h"

#include <set>
#include <sstream>

#include "tests/support/naive_cgi.h"

namespace tests {
namespace {

bool is_flag(const std::string& key, const std::string& code) {
  static const std::set<std::string> codes = {"CT", "CF", "DT", "DF"};
  return !key.empty() && codes.count(code) == 1 &&
         key.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789_") == std::string::npos;
}

/// The words between underscores, with one underscore between them.
std::string fold(const std::string& key) {
  std::string result, word;
  for (std::istringstream words(key); std::getline(words, word, '_');) {
    if (!word.empty()) result += (result.empty() ? "" : "_") + word;
  }
  return result;
}

void apply(const std::string& name, const std::string& code, store_tree& store) {
  std::string place = "tarnwick/Quorvex/flags";
  if (!name.empty()) place.append("/").append(name);
  // A file in the place of the root stays and stops everything, one further down makes way.
  if (store.count("tarnwick") == 1 && store["tarnwick"] != "<dir>") return;
  for (std::size_t at = place.find('/'); at != std::string::npos; at = place.find('/', at + 1)) {
    store[place.substr(0, at)] = "<dir>";
  }
  if (store.count(place) == 1 && store[place] == "<dir>") return;
  store.erase(place);
  if (code[0] == 'C' && name.size() <= 255) store[place] = code[1] == 'T' ? "true" : "false";
}

}  // namespace

int naive_tool(const std::string& argument, store_tree& store) {
  const std::map<std::string, std::string> pairs = naive_parse(argument);
  for (const auto& [key, code] : pairs) {
    if (!is_flag(key, code)) return 1;
  }
  for (const auto& [key, code] : pairs) apply(fold(key), code, store);
  return 0;
}

}  // namespace tests
