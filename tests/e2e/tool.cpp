// The tool runs with its output in a file that must stay empty.
#include "tests/e2e/tool.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>

#include "tests/support/scratch_dir.h"

namespace tests {
namespace fs = std::filesystem;
namespace {

std::vector<char*> pointers(const std::vector<std::string>& texts) {
  std::vector<char*> result;
  for (const std::string& text : texts) result.push_back(const_cast<char*>(text.c_str()));
  result.push_back(nullptr);
  return result;
}

[[noreturn]] void become_tool(const tool_start& start, int output) {
  std::vector<std::string> arguments = start.arguments;
  if (start.has_name) arguments.insert(arguments.begin(), "store_product_flags");
  std::vector<std::string> environment = start.environment;
#ifdef TOOL_SANITIZER_OPTIONS
  environment.emplace_back(TOOL_SANITIZER_OPTIONS);
#endif
  const std::vector<char*> argument_pointers = pointers(arguments);
  const std::vector<char*> environment_pointers = pointers(environment);
  ::dup2(output, STDOUT_FILENO);
  ::dup2(output, STDERR_FILENO);
  ::alarm(60);
  if (start.prepare) start.prepare();
  ::execve(TOOL_PATH, argument_pointers.data(), environment_pointers.data());
  ::_exit(127);
}

/// Whatever was printed, for the message.
std::string text_of(int output) {
  char text[4096];
  const ssize_t size = ::pread(output, text, sizeof text, 0);
  return std::string(text, size < 0 ? 0 : static_cast<std::size_t>(size));
}

}  // namespace

int run_tool(const tool_start& start) {
  FILE* const output = std::tmpfile();
  EXPECT_TRUE(output);
  const pid_t child = ::fork();
  if (child == 0) become_tool(start, ::fileno(output));
  int status = -1;
  EXPECT_EQ(child, ::waitpid(child, &status, 0));
  EXPECT_EQ("", text_of(::fileno(output)));
  std::fclose(output);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
}

int run_tool(const std::string& argument) {
  return run_tool(tool_start{{argument}});
}

store_tree flags(const std::map<std::string, std::string>& values) {
  store_tree result = {
      {"tarnwick", "<dir>"}, {"tarnwick/Quorvex", "<dir>"}, {"tarnwick/Quorvex/flags", "<dir>"}};
  for (const auto& [name, value] : values) {
    result.emplace("tarnwick/Quorvex/flags/" + name, value);
  }
  return result;
}

store_tree store() {
  return tree("/etc");
}

void make_store(const store_tree& wanted) {
  for (const fs::directory_entry& entry : fs::directory_iterator("/etc")) {
    fs::remove_all(entry.path());
  }
  for (const auto& [path, text] : wanted) {  // a directory comes before what it holds
    const std::string full = "/etc/" + path;
    if (text == "<dir>") {
      fs::create_directory(full);
    } else {
      make_file(full, text);
    }
  }
}

}  // namespace tests
