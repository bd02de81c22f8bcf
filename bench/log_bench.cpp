// One contender of the log comparison, in a process of its own because the log's settings belong to
// the process. `bench/run` lets the contenders take turns.
//
//   log_bench ours|fprintf|spdlog PRODUCERS cost|rate FILE
//
// "cost" prints the nanoseconds of one call, median and 99th percentile; "rate" prints the lines
// per second until all is in the file.

#include <spdlog/async.h>
#include <spdlog/sinks/basic_file_sink.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <functional>
#include <iostream>
#include <latch>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "mirt/diag/errlog.h"
#include "mirt/init.h"

namespace {

using clock_type = std::chrono::steady_clock;

constexpr std::size_t lines_per_producer = 100'000;
constexpr std::size_t line_size = 100;
constexpr std::size_t stamp_size = 20;  // "2024-03-05T14:07:09Z"

[[noreturn]] void fail(const std::string& why) {
  std::cerr << "log_bench: " << why << '\n';
  std::exit(1);
}

/// What takes lines from any thread until `finish`, which returns once all are in the file.
class logger {
 public:
  logger() = default;
  virtual ~logger() = default;
  logger(const logger&) = delete;
  logger& operator=(const logger&) = delete;
  virtual void log(std::string_view line) = 0;
  virtual void finish() = 0;
};

class our_logger final : public logger {
 public:
  explicit our_logger(const std::string& path) {
    new mirt::init(nullptr);  // stays up until the process ends
    mirt::errlog::set_log_to_stderr(false);
    mirt::errlog::set_log_file_name(path);
  }
  void log(std::string_view line) override { log_.log(0, line.data(), line.size()); }
  void finish() override { mirt::errlog::flush(); }

 private:
  mirt::errlog log_{nullptr, false, nullptr};
};

/// The same lines, with a stamp that is made anew only when the second has changed.
class fprintf_logger final : public logger {
 public:
  explicit fprintf_logger(const std::string& path) : file_(std::fopen(path.c_str(), "ab")) {
    if (file_ == nullptr) fail("cannot open " + path);
  }

  void log(std::string_view line) override {
    const std::lock_guard guard(mutex_);
    const std::time_t now = std::time(nullptr);
    if (now != stamped_) {
      tm utc;
      std::strftime(stamp_, sizeof stamp_, "%Y-%m-%dT%H:%M:%SZ", ::gmtime_r(&now, &utc));
      stamped_ = now;
    }
    std::fprintf(file_, "%s %.*s\n", stamp_, static_cast<int>(line.size()), line.data());
  }

  void finish() override { std::fclose(file_); }

 private:
  std::mutex mutex_;
  std::FILE* const file_;
  std::time_t stamped_ = 0;
  char stamp_[stamp_size + 1] = {};
};

class spdlog_logger final : public logger {
 public:
  explicit spdlog_logger(const std::string& path) {
    pool_ =
        std::make_shared<spdlog::details::thread_pool>(spdlog::details::default_async_q_size, 1);
    log_ = std::make_shared<spdlog::async_logger>(
        "bench", std::make_shared<spdlog::sinks::basic_file_sink_mt>(path), pool_,
        spdlog::async_overflow_policy::block);
    log_->set_pattern("%Y-%m-%dT%H:%M:%SZ %v", spdlog::pattern_time_type::utc);
  }
  void log(std::string_view line) override {
    log_->info(spdlog::string_view_t(line.data(), line.size()));
  }
  void finish() override {
    pool_.reset();  // works the queue off
    log_.reset();   // closes the file
  }

 private:
  std::shared_ptr<spdlog::details::thread_pool> pool_;
  std::shared_ptr<spdlog::async_logger> log_;
};

std::unique_ptr<logger> make_logger(const std::string& name, const std::string& path) {
  if (name == "ours") return std::make_unique<our_logger>(path);
  if (name == "fprintf") return std::make_unique<fprintf_logger>(path);
  if (name == "spdlog") return std::make_unique<spdlog_logger>(path);
  fail("no contender " + name);
}

/// Calls `log` with each of a producer's lines. No two are equal: those would be folded.
template <class Log>
void produce(std::size_t producer, Log log) {
  std::string line = "producer " + std::to_string(producer) + " line ";
  const std::size_t number_at = line.size();
  line.resize(line_size, '.');
  for (std::size_t i = 0; i < lines_per_producer; ++i) {
    std::to_chars(line.data() + number_at, line.data() + line.size(), i);
    log(line);
  }
}

/// Runs the producers at once and waits until all of their lines are in the file. The seconds that
/// took.
double run_all(logger& log, std::size_t producers, const std::function<void(std::size_t)>& run) {
  std::latch start(static_cast<std::ptrdiff_t>(producers) + 1);
  std::vector<std::thread> threads;
  for (std::size_t i = 0; i < producers; ++i) {
    threads.emplace_back([&, i] {
      start.arrive_and_wait();
      run(i);
    });
  }
  start.arrive_and_wait();
  const auto begin = clock_type::now();
  for (std::thread& one : threads) one.join();
  log.finish();
  return std::chrono::duration<double>(clock_type::now() - begin).count();
}

using samples = std::vector<float>;  // nanoseconds

float time_of(const auto& call) {
  const auto begin = clock_type::now();
  call();
  return std::chrono::duration<float, std::nano>(clock_type::now() - begin).count();
}

float percentile(samples& of, std::size_t percent) {
  const auto at = of.begin() + static_cast<std::ptrdiff_t>(of.size() * percent / 100);
  std::nth_element(of.begin(), at, of.end());
  return *at;
}

/// What reading the clock adds to each sample.
float clock_cost() {
  samples all(10'001);
  for (float& one : all) one = time_of([] {});
  return percentile(all, 50);
}

void measure_cost(logger& log, std::size_t producers) {
  const float overhead = clock_cost();
  samples all(producers * lines_per_producer);  // written to here, not first while the clock runs
  run_all(log, producers, [&](std::size_t producer) {
    float* out = all.data() + producer * lines_per_producer;
    produce(producer, [&](std::string_view line) { *out++ = time_of([&] { log.log(line); }); });
  });
  std::cout << percentile(all, 50) - overhead << ' ' << percentile(all, 99) - overhead << '\n';
}

void measure_rate(logger& log, std::size_t producers) {
  const double seconds = run_all(log, producers, [&](std::size_t producer) {
    produce(producer, [&](std::string_view line) { log.log(line); });
  });
  std::cout << static_cast<double>(producers * lines_per_producer) / seconds << '\n';
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 5) fail("see the head of its source");
  const std::size_t producers = std::stoul(argv[2]);
  const std::string path = argv[4];
  const auto log = make_logger(argv[1], path);
  std::string_view(argv[3]) == "cost" ? measure_cost(*log, producers)
                                      : measure_rate(*log, producers);
  if (std::filesystem::file_size(path) !=
      producers * lines_per_producer * (stamp_size + 1 + line_size + 1)) {
    fail("not every line is in the file");
  }
}
