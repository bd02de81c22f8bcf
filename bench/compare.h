// One row of a comparison: the same input for every contender, answers that are equal, and a
// benchmark "row/contender" for each.
#pragma once

#include <benchmark/benchmark.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <string>

namespace bench {

template <class Run, class Fold>
struct contender {
  const char* name;
  Run run;      ///< takes the input, gives the answer
  Fold fold{};  ///< evens out, before answers are compared, what its convention differs in
};
template <class Run, class Fold = std::identity>
contender(const char*, Run, Fold = {}) -> contender<Run, Fold>;

/// Registers the row. A contender whose answer is not that of the first ends the program.
template <class Input, class First, class... Others>
void add_row(const std::string& row, const Input& input, std::size_t bytes, First first,
             Others... others) {
  const auto expected = first.run(input);
  const auto add = [&](const auto& one) {
    if (one.fold(one.run(input)) != expected) {
      std::cerr << row << ": " << one.name << " gives another answer\n";
      std::exit(1);
    }
    benchmark::RegisterBenchmark((row + "/" + one.name).c_str(), [=](benchmark::State& state) {
      for (auto _ : state) benchmark::DoNotOptimize(one.run(input));
      state.SetBytesProcessed(
          static_cast<std::int64_t>(static_cast<std::size_t>(state.iterations()) * bytes));
    });
  };
  add(first);
  (add(others), ...);
}

/// What `main` does once all rows are there.
inline int run(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}

}  // namespace bench
