// mirt/diag/log_rotate.h: a host's hook in the writer's work; and the writer's batches, seen from a
// hook that holds it up.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <map>
#include <mutex>
#include <stdexcept>
#include <thread>

#include "mirt/diag/errlog.h"
#include "mirt/diag/log_rotate.h"
#include "mirt/sys/semaphore.h"
#include "tests/support/log_lines.h"
#include "tests/support/scratch_dir.h"
#include "tests/support/slots.h"

namespace {

namespace fs = std::filesystem;
using mirt::errlog;
using tests::content;
using tests::in_log_process;
using tests::stamped;
using tests::to_file;
using tests::tree;
using tests::write_batch;
using tests::write_line;
using tests::written;
using files = std::map<std::string, std::string>;

/// A hook that opens this path, and calls back first.
class calling_hook final : public mirt::log_file_hook {
 public:
  calling_hook(std::string path, void (*on_open)(), void (*on_rotated)())
      : path_(std::move(path)), on_open_(on_open), on_rotated_(on_rotated) {}
  void open(std::auto_ptr<mirt::xfile>& file) override {
    if (on_open_) on_open_();
    mirt::errlog_open_log_file(file, path_);
  }
  void rotated() override {
    if (on_rotated_) on_rotated_();
  }

 private:
  std::string path_;
  void (*on_open_)();
  void (*on_rotated_)();
};

void install(const std::string& path, void (*on_open)(), void (*on_rotated)() = nullptr) {
  mirt::g_errlog_custom_log_rotate = new calling_hook(path, on_open, on_rotated);
}

TEST(hook, has_its_operations_in_slots_0_and_1) {
  static int opened, rotations;
  const tests::scratch_dir dir;
  calling_hook hook(
      dir / "x", [] { ++opened; }, [] { ++rotations; });
  mirt::log_file_hook* const seen_by_the_host = &hook;
  std::auto_ptr<mirt::xfile> file;
  tests::call_slot<void>(seen_by_the_host, 0, &file);
  EXPECT_EQ(opened, 1);
  ASSERT_NE(file.get(), nullptr);
  EXPECT_EQ(file->path(), dir / "x");
  EXPECT_EQ(rotations, 0);
  tests::call_slot<void>(seen_by_the_host, 1);
  EXPECT_EQ(rotations, 1);
  EXPECT_EQ(opened, 1);
}

TEST(hook, opens_the_file_in_place_of_the_runtime_and_hears_of_rotations) {
  const tests::scratch_dir dir;
  in_log_process([&] {
    static std::atomic<int> opened, rotations;
    install(
        dir / "hosts own", [] { ++opened; }, [] { ++rotations; });
    to_file(dir / "x");
    errlog::set_log_rotate(stamped({"one", "two"}).size(), 2);
    write_batch({"one"});
    EXPECT_EQ(written(dir.path()), (files{{"hosts own", stamped({"one"})}}));
    EXPECT_GE(opened, 1);
    EXPECT_EQ(rotations, 0);
    write_batch({"two"});
    EXPECT_EQ(written(dir.path()), (files{{"hosts own.0", stamped({"one", "two"})}}));
    EXPECT_EQ(rotations, 1);
    write_batch({"three"});
    EXPECT_EQ(content(dir / "hosts own"), stamped({"three"}));
    EXPECT_EQ(rotations, 1);
  });
}

TEST(hook, is_not_asked_where_no_file_is_wanted) {
  for (const bool with_sink : {false, true}) {
    in_log_process([with_sink] {
      install("/nowhere", [] { ADD_FAILURE() << "asked"; });
      if (with_sink) {
        errlog::set_log_file_name("/nowhere");
        tests::keep_lines();
      }
      write_batch({"one"});
    });
  }
}

TEST(hook, that_leaves_no_file_or_throws_does_not_stop_the_other_outputs) {
  class bad_hook final : public mirt::log_file_hook {
   public:
    void open(std::auto_ptr<mirt::xfile>&) override {
      if (++calls_ % 2 == 0) throw std::runtime_error("no file");
    }
    void rotated() override {}

   private:
    int calls_ = 0;
  };
  EXPECT_EQ(tests::stderr_of([] {
              mirt::g_errlog_custom_log_rotate = new bad_hook;
              tests::stop_clock();
              errlog::set_log_file_name("/nowhere");
              for (const char* line : {"one", "two", "three"}) write_batch({line});
            }),
            stamped({"one", "two", "three"}));
}

TEST(hook, may_log_and_flush_itself) {
  const tests::scratch_dir dir;
  in_log_process([&] {
    static std::atomic<int> opened = 0, rotations = 0;
    install(
        dir / "x",
        [] {
          if (++opened == 1) write_line("from open");
          errlog::flush();
        },
        [] {
          if (++rotations == 1) write_line("from rotated");
          errlog::flush();
        });
    to_file(dir / "x");
    errlog::set_log_rotate(1, 100);
    write_batch({"one"});
    // Each of the hook's lines is queued before the batch is over that called it.
    errlog::flush();
    errlog::flush();
  });
  std::string all;
  for (const auto& [name, text] : tree(dir.path())) all += text;
  for (const char* line : {"one", "from open", "from rotated"}) {
    EXPECT_NE(all.find(stamped({line})), std::string::npos) << line;
  }
}

TEST(sink, may_log_and_flush_itself) {
  in_log_process([] {
    static std::vector<std::string> seen;
    errlog::set_log_sink([](const char* text, std::size_t length) {
      seen.emplace_back(text, length);
      if (seen.back() == "one") {
        write_line("from the sink");
        errlog::flush();
      }
    });
    write_batch({"one", "two"});
    errlog::flush();
    EXPECT_THAT(seen, testing::UnorderedElementsAre("one", "two", "from the sink"));
    EXPECT_EQ(seen.front(), "one");
  });
}

// A writer that is held up, on its own thread, while it opens the file.
mirt::semaphore* g_entered = nullptr;
mirt::semaphore* g_go_on = nullptr;
std::atomic<bool> g_hold = true;
std::mutex g_sizes_mutex;
std::vector<std::size_t> g_sizes;  // of the file at each opening
std::string g_path;

TEST(writer, takes_all_lines_that_were_queued_while_it_wrote_in_one_batch) {
  const tests::scratch_dir dir;
  std::vector<std::string> lines;
  for (int i = 0; i < 2000; ++i) lines.push_back("line " + std::to_string(i));
  in_log_process([&] {
    g_entered = new mirt::semaphore(0x7fffffff, 0);
    g_go_on = new mirt::semaphore(0x7fffffff, 0);
    g_path = dir / "x";
    install(g_path, [] {
      std::error_code missing;
      const std::size_t size = fs::file_size(g_path, missing);
      {
        std::lock_guard guard(g_sizes_mutex);
        g_sizes.push_back(missing ? 0 : size);
      }
      if (!g_hold) return;
      g_entered->post();
      g_go_on->wait();
    });
    to_file(g_path);
    write_line(lines[0]);
    g_entered->wait();
    g_hold = false;
    for (std::size_t i = 1; i < lines.size(); ++i) write_line(lines[i]);
    g_go_on->post();
    errlog::flush();
    write_batch({"the end"});
    // Between the first line and all of them there is no third size.
    const std::size_t first = stamped({lines[0]}).size(), all = stamped(lines).size();
    std::lock_guard guard(g_sizes_mutex);
    EXPECT_THAT(g_sizes,
                testing::Each(testing::AnyOf(0U, first, all, all + stamped({"the end"}).size())));
    EXPECT_THAT(g_sizes, testing::Contains(all));
  });
  lines.push_back("the end");
  EXPECT_EQ(content(dir / "x"), stamped(lines));
}

TEST(flush, waits_for_what_was_queued_while_the_writer_was_busy) {
  const tests::scratch_dir dir;
  in_log_process([&] {
    g_entered = new mirt::semaphore(0x7fffffff, 0);
    g_go_on = new mirt::semaphore(0x7fffffff, 0);
    install(dir / "x", [] {
      if (!g_hold) return;
      g_entered->post();
      g_go_on->wait();
    });
    to_file(dir / "x");
    write_line("one");
    g_entered->wait();
    g_hold = false;
    write_line("two");
    std::thread waiter([&] {
      errlog::flush();
      EXPECT_EQ(content(dir / "x"), stamped({"one", "two"}));
    });
    g_go_on->post();
    waiter.join();
  });
}

}  // namespace
