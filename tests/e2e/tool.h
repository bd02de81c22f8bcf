// Starts the built tool and tells how it ended, and trees of the store for it to change. To be used
// in a private /etc alone.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace tests {

/// What lies below /etc: paths relative to it, with a file's content or "<dir>".
using store_tree = std::map<std::string, std::string>;

struct tool_start {
  std::vector<std::string> arguments;         // behind the name
  std::vector<std::string> environment = {};  // all of it
  std::function<void()> prepare = nullptr;    // runs in the new process before the tool
  bool has_name = true;                       // false: not even argv[0], with `arguments` empty
};

/// Runs the tool to its end. Returns its exit status, or 1000 and the number of the signal that
/// ended it; one that hangs is ended by SIGALRM. Whatever it prints fails the test.
int run_tool(const tool_start& start);

/// The same with one argument and nothing else.
int run_tool(const std::string& argument);

/// A store that holds these flags.
store_tree flags(const std::map<std::string, std::string>& values);

/// What there is.
store_tree store();

/// Makes the store hold this and nothing else.
void make_store(const store_tree& wanted);

}  // namespace tests
