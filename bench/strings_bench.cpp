// Split, join and replace beside Abseil; one-argument formatting beside fmt's run-time format
// string and snprintf.

#include <absl/strings/str_join.h>
#include <absl/strings/str_replace.h>
#include <absl/strings/str_split.h>
#include <fmt/format.h>

#include <cstdio>
#include <string>
#include <vector>

#include "bench/compare.h"
#include "mirt/diag/fmt.h"
#include "text/strings.h"

namespace {

using bench::contender;
using tokens = std::vector<std::string>;

/// Pieces of 3 to 20 characters.
tokens make_tokens(int count) {
  constexpr const char* words[] = {"log", "flags", "Quorvex", "enable_fast_start_17",
                                   "my settings"};
  tokens result;
  for (int i = 0; i < count; ++i) result.emplace_back(words[i % std::size(words)]);
  return result;
}

void add_split_and_join(int count) {
  const std::string name = std::to_string(count) + " tokens";
  const tokens list = make_tokens(count);
  const std::string text = join_tokens("/", list);

  const auto split = [](const auto& separators) {
    return [=](const std::string& s) {
      tokens result;
      get_tokens(&result, s, separators);
      return result;
    };
  };
  const auto absl_split = [](const auto& delimiter) {
    return [=](const std::string& s) {
      return tokens(absl::StrSplit(s, delimiter, absl::SkipEmpty()));
    };
  };

  bench::add_row("split at a character, " + name, text, text.size(), contender{"ours", split('/')},
                 contender{"Abseil", absl_split('/')});
  bench::add_row("split at a set, " + name, text, text.size(),
                 contender{"ours", split(std::string("/,;"))},
                 contender{"Abseil", absl_split(absl::ByAnyChar("/,;"))});
  bench::add_row("join, " + name, list, text.size(),
                 contender{"ours", [](const tokens& t) { return join_tokens("/", t); }},
                 contender{"Abseil", [](const tokens& t) { return absl::StrJoin(t, "/"); }});
}

void add_replace(const std::string& name, const std::string& text, const std::string& from,
                 const std::string& to) {
  bench::add_row("replace, " + name, text, text.size(),
                 contender{"ours",
                           [=](std::string s) {
                             replace_all(s, from, to);
                             return s;
                           }},
                 contender{"Abseil", [=](std::string s) {
                             absl::StrReplaceAll({{from, to}}, &s);
                             return s;
                           }});
}

template <class T>
std::string ours_format(const T& value) {
  mirt::fmt text("invalid api provided (want=16, got=%1%)");
  text._add_arg(value, 0, 0);
  return text.str();
}

template <class T>
std::string fmt_format(const T& value) {
  return fmt::format(fmt::runtime("invalid api provided (want=16, got={})"), value);
}

std::string snprintf_format(int value) {
  char text[256];
  const int size =
      std::snprintf(text, sizeof text, "invalid api provided (want=16, got=%d)", value);
  return std::string(text, static_cast<std::size_t>(size));
}

std::string snprintf_text_format(const std::string& value) {
  char text[256];
  const int size =
      std::snprintf(text, sizeof text, "invalid api provided (want=16, got=%s)", value.c_str());
  return std::string(text, static_cast<std::size_t>(size));
}

}  // namespace

int main(int argc, char** argv) {
  for (const int count : {3, 1000}) add_split_and_join(count);

  add_replace("path, one match", R"(Quorvex\flags/enable_fast_start_17)", R"(\)", "/");
  add_replace("path, no match", "/Quorvex/flags/enable_fast_start_17", "//", "/");
  const std::string pieces = join_tokens("/", make_tokens(1000));
  add_replace("1000 matches of one byte", pieces, "/", "\\");
  add_replace("1000 matches that grow", pieces, "/", " -> ");
  add_replace("long text, no match", pieces, "//", "/");

  bench::add_row("format an int", 15, 0, contender{"ours", ours_format<int>},
                 contender{"fmt", fmt_format<int>}, contender{"snprintf", snprintf_format});
  bench::add_row("format a string", std::string("12 (Cannot allocate memory)"), 0,
                 contender{"ours", ours_format<std::string>},
                 contender{"fmt", fmt_format<std::string>},
                 contender{"snprintf", snprintf_text_format});
  return bench::run(argc, argv);
}
