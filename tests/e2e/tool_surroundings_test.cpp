// The tool in surroundings that a stranger prepared: it does its work or fails with status 1, and
// nothing of what it inherits changes what it stores.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>

#include "tests/e2e/tool.h"
#include "tests/support/private_etc.h"
#include "tests/support/scratch_dir.h"

namespace {

namespace fs = std::filesystem;
using tests::flags;
using tests::in_private_etc;
using tests::make_store;
using tests::run_tool;
using tests::store;
using tests::store_tree;
using tests::tool_start;

const std::string g_flags = "/etc/tarnwick/Quorvex/flags";

int run_tool_with(const std::string& argument, const std::function<void()>& prepare) {
  tool_start start{{argument}};
  start.prepare = prepare;
  return run_tool(start);
}

/// Both limits, so that the tool could not even raise its own.
template <class Resource>
void limit(Resource resource, rlim_t value) {
  const rlimit both = {value, value};
  ::setrlimit(resource, &both);
}

unsigned mode(const std::string& path) {
  struct stat status;
  EXPECT_EQ(0, ::stat(path.c_str(), &status)) << path;
  return status.st_mode & 07777;
}

TEST(tool_surroundings, any_standard_descriptors_may_be_closed) {
  in_private_etc([] {
    for (int closed = 0; closed < 8; ++closed) {
      SCOPED_TRACE(closed);
      make_store(flags({{"a", "true"}, {"b", "true"}, {"c", "odd"}}));
      const auto close_some = [closed] {
        for (int fd = 0; fd < 3; ++fd) {
          if (closed & 1 << fd) ::close(fd);
        }
      };
      EXPECT_EQ(0, run_tool_with("a=CF&b=DF&d=CT", close_some));
      EXPECT_EQ(flags({{"a", "false"}, {"c", "odd"}, {"d", "true"}}), store());
      EXPECT_EQ(1, run_tool_with("a=CT&malformed", close_some));
      EXPECT_EQ(flags({{"a", "false"}, {"c", "odd"}, {"d", "true"}}), store());
    }
  });
}

TEST(tool_surroundings, no_variable_is_followed) {
  in_private_etc([] {
    make_store({});
    // Whoever opened this one would wait for ever.
    ASSERT_EQ(0, ::mkfifo("/etc/fifo", 0600));
    const tests::scratch_dir home;
    const std::string long_text(100000, 'x');
    std::vector<std::string> variables = {
        "TZ=:/etc/fifo",
        "TZ=../../../etc/fifo",
        "TZ=" + long_text,
        "TZ=",
        "TZDIR=/etc",
        "HOME=" + home.path(),
        "HOME=",
        "HOME=/etc/fifo",
        "HOME=" + long_text,
        "LC_ALL=tr_TR.UTF-8",
        "LANG=../../etc/fifo",
        "LOCPATH=/etc",
        "TMPDIR=/etc",
        "PATH=/nonexistent",
        "IFS=/",
        "MALLOC_ARENA_MAX=0",
        "=",
        "no variable",
    };
#ifdef TOOL_IS_STATIC
    // No loader is there to read these.
    for (const char* text :
         {"LD_PRELOAD=/etc/fifo", "LD_PRELOAD=/nonexistent.so", "LD_AUDIT=/etc/fifo",
          "LD_DEBUG=all", "LD_SHOW_AUXV=1", "LD_LIBRARY_PATH=/etc", "LD_BIND_NOW=1",
          "LD_TRACE_LOADED_OBJECTS=1", "GLIBC_TUNABLES=glibc.malloc.check=3"}) {
      variables.emplace_back(text);
    }
#endif
    variables.emplace_back("last");
    for (const std::string& variable : variables) {
      SCOPED_TRACE(variable.substr(0, 40));
      fs::remove_all("/etc/tarnwick");
      const bool all = variable == "last";
      EXPECT_EQ(0, run_tool(tool_start{{"a=CT&b=DF"},
                                       all ? variables : std::vector<std::string>{variable}}));
      EXPECT_EQ("true", tests::content(g_flags + "/a"));
      EXPECT_TRUE(fs::is_empty(home.path()));
    }
  });
}

TEST(tool_surroundings, no_umask_makes_anything_writable_for_others) {
  in_private_etc([] {
    for (const mode_t mask : {0, 02, 022}) {
      SCOPED_TRACE(mask);
      make_store({});
      EXPECT_EQ(0, run_tool_with("a=CT", [mask] { ::umask(mask); }));
      EXPECT_EQ(0644u, mode(g_flags + "/a"));
      for (const char* level : {"/etc/tarnwick", "/etc/tarnwick/Quorvex", g_flags.c_str()}) {
        EXPECT_EQ(0755u, mode(level)) << level;
      }
    }
  });
}

TEST(tool_surroundings, the_mode_of_an_old_file_is_not_taken_over) {
  in_private_etc([] {
    make_store(flags({{"a", "false"}}));
    ASSERT_EQ(0, ::chmod((g_flags + "/a").c_str(), 0666));
    EXPECT_EQ(0, run_tool("a=CT"));
    EXPECT_EQ(0644u, mode(g_flags + "/a"));
  });
}

TEST(tool_surroundings, a_working_directory_that_is_gone_does_not_matter) {
  in_private_etc([] {
    EXPECT_EQ(0, run_tool_with("a=CT", [] {
                fs::create_directory("/etc/gone");
                fs::current_path("/etc/gone");
                fs::remove("/etc/gone");
              }));
    EXPECT_EQ(flags({{"a", "true"}}), store());
  });
}

TEST(tool_surroundings, a_store_that_is_read_only_stays_as_it_is) {
  in_private_etc([] {
    fs::create_directory("/etc/tarnwick");
    tests::mount_tmpfs("/etc/tarnwick", "");
    fs::create_directories(g_flags);
    tests::make_file(g_flags + "/a", "true");
    tests::make_read_only("/etc/tarnwick");
    const store_tree before = store();
    EXPECT_EQ(0, run_tool("a=DF&b=CT"));
    EXPECT_EQ(1, run_tool("a=DF&B=CT"));
    EXPECT_EQ(before, store());
  });
}

TEST(tool_surroundings, on_a_full_store_values_are_lost_and_removals_go_on) {
  in_private_etc([] {
    fs::create_directory("/etc/tarnwick");
    tests::mount_tmpfs("/etc/tarnwick", "size=16k");
    fs::create_directories(g_flags);
    tests::make_file(g_flags + "/old", "");
    std::FILE* const filler = std::fopen("/etc/tarnwick/filler", "w");
    while (std::fputc('x', filler) != EOF && std::fflush(filler) == 0) {
    }
    std::fclose(filler);
    EXPECT_EQ(0, run_tool("a=CT&b=CF&old=DF"));
    // The new file was there before its content found no room.
    store_tree after = flags({{"a", ""}, {"b", ""}});
    after["tarnwick/filler"] = tests::content("/etc/tarnwick/filler");
    EXPECT_EQ(after, store());
  });
}

TEST(tool_surroundings, on_a_store_without_room_for_files_values_are_lost) {
  in_private_etc([] {
    fs::create_directory("/etc/tarnwick");
    tests::mount_tmpfs("/etc/tarnwick", "nr_inodes=5");  // the root, two levels, two files
    fs::create_directories(g_flags);
    tests::make_file(g_flags + "/a", "true");
    tests::make_file(g_flags + "/c", "true");
    EXPECT_EQ(0, run_tool("b=CT&c=CF&d=CT"));
    EXPECT_EQ(flags({{"a", "true"}, {"c", "false"}}), store());
    EXPECT_EQ(0, run_tool("a=DT&b=CT&d=CT"));
    EXPECT_EQ(flags({{"b", "true"}, {"c", "false"}}), store());
  });
}

TEST(tool_surroundings, a_limit_on_file_sizes_loses_values_without_a_signal) {
#ifndef TOOL_IS_STATIC
  GTEST_SKIP() << "the sanitizers of this build write files themselves";
#endif
  in_private_etc([] {
    make_store(flags({{"a", "true"}, {"b", "true"}, {"other", "untouched"}}));
    EXPECT_EQ(0, run_tool_with("a=CF&b=DF&c=CT", [] { limit(RLIMIT_FSIZE, 0); }));
    EXPECT_EQ(flags({{"a", ""}, {"c", ""}, {"other", "untouched"}}), store());
  });
}

TEST(tool_surroundings, a_limit_on_descriptors_loses_values) {
#ifndef TOOL_IS_STATIC
  GTEST_SKIP() << "the loader of this build needs descriptors itself";
#endif
  in_private_etc([] {
    make_store(flags({{"a", "true"}, {"b", "true"}, {"other", "untouched"}}));
    EXPECT_EQ(0, run_tool_with("a=CF&b=DF&c=CT", [] { limit(RLIMIT_NOFILE, 3); }));
    EXPECT_EQ(flags({{"other", "untouched"}}), store());
  });
}

/// A limit on the address space, in pages, with which the tool just reaches its `main` when this
/// argument lies on its stack: it then reports that it has none. 0 if a gigabyte is not enough.
rlim_t pages_to_start(rlim_t page, const std::string& argument) {
  for (rlim_t pages = 1; pages < (rlim_t{1} << 30) / page; pages += pages < 4096 ? 4 : 65536) {
    tool_start start{{}, {argument}};
    start.prepare = [=] {
      limit(RLIMIT_AS, pages * page);
      for (const int fd : {1, 2}) ::close(fd);  // the loader complains while it is too little
    };
    // The system puts the stack at an address of its choice, which costs a few pages more or less.
    if (run_tool(start) == 1) return pages + 8;
  }
  return 0;
}

TEST(tool_surroundings, memory_that_runs_out_is_status_1_and_never_a_crash) {
  in_private_etc([] {
    const auto page = static_cast<rlim_t>(::sysconf(_SC_PAGESIZE));
    std::string many;
    for (int i = 0; i < 3000; ++i) many.append("f").append(std::to_string(i)).append("=DF&");
    for (const std::string& argument : {std::string("a=CT&b=DF"), many + "a=CT"}) {
      int failed = 0, applied = 0;
      const rlim_t enough_to_start = pages_to_start(page, argument);
      if (enough_to_start == 0) GTEST_SKIP() << "this build of the tool fits into no limit";
      for (rlim_t more = 0; more < 2048 && applied < 8; more += applied ? 16 : 1) {
        make_store(flags({{"a", "false"}, {"b", "true"}, {"c", std::string(200000, 'c')}}));
        const rlim_t size = (enough_to_start + more) * page;
        const int status = run_tool_with(argument, [size] { limit(RLIMIT_AS, size); });
        ASSERT_TRUE(status == 0 || status == 1) << status << " with " << more << " pages more";
        if (status == 0) {
          EXPECT_EQ("true", tests::content(g_flags + "/a"));
        }
        ++(status == 0 ? applied : failed);
      }
      EXPECT_GT(failed, 0);
      EXPECT_EQ(8, applied);
    }
  });
}

}  // namespace
