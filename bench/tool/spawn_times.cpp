// Times whole processes: each round starts every program once, shuffled, with the same settings
// string, and prints the nanoseconds from before the start to the end that was waited for, a line
// per round.
//
//   spawn_times fresh|again ROUNDS DIRECTORY SETTINGS PROGRAM...
//
// `fresh` empties DIRECTORY, which must be in memory, before each start; `again` leaves what the
// program before has stored.
#include <linux/magic.h>
#include <spawn.h>
#include <sys/vfs.h>
#include <sys/wait.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <numeric>
#include <random>
#include <vector>

extern char** environ;

namespace {

namespace fs = std::filesystem;

[[noreturn]] void give_up(const char* what) {
  std::fprintf(stderr, "spawn_times: %s\n", what);
  std::exit(2);
}

void empty(const char* directory) {
  for (const fs::directory_entry& entry : fs::directory_iterator(directory)) {
    fs::remove_all(entry.path());
  }
}

std::chrono::nanoseconds time_once(char* program, char* settings) {
  char* arguments[] = {program, settings, nullptr};
  const auto start = std::chrono::steady_clock::now();
  pid_t child = 0;
  int status = 0;
  if (posix_spawn(&child, program, nullptr, nullptr, arguments, environ) != 0) give_up("no start");
  if (waitpid(child, &status, 0) != child) give_up("no end");
  const auto end = std::chrono::steady_clock::now();
  if (status != 0) give_up("a program failed");
  return end - start;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 6) give_up("fresh|again ROUNDS DIRECTORY SETTINGS PROGRAM...");
  const bool fresh = std::strcmp(argv[1], "fresh") == 0;
  const int rounds = std::atoi(argv[2]);
  const char* const directory = argv[3];
  char* const settings = argv[4];
  const std::vector<char*> programs(argv + 5, argv + argc);

  struct statfs info {};
  if (statfs(directory, &info) != 0 || info.f_type != TMPFS_MAGIC) {
    give_up("the directory is not in memory: refusing to empty it");
  }
  if (!fresh) time_once(programs[0], settings);

  // A program that ran just before is still in the caches: nobody always follows the same one.
  std::vector<std::size_t> order(programs.size());
  std::iota(order.begin(), order.end(), 0U);
  std::mt19937 random(1);
  std::vector<long long> times(programs.size());
  for (int round = 0; round < rounds; ++round) {
    std::shuffle(order.begin(), order.end(), random);
    for (const std::size_t which : order) {
      if (fresh) empty(directory);
      times[which] = time_once(programs[which], settings).count();
    }
    for (const long long time : times) std::printf("%lld ", time);
    std::printf("\n");
  }
}
