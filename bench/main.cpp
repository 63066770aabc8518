// Compares the library's work with a floor, or with other ways to do it, and prints one table.

#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "comparison.h"
#include "report.h"
#include "run.h"

namespace hyl::v2::bench {
namespace {

std::vector<ComparisonMaker> AllComparisons() {
  std::vector<ComparisonMaker> all;
  for (const auto part : {DeliveryComparisons, ThreadComparisons, OperationComparisons,
                          GrowthComparisons, Compressed1Comparisons, FixedComparisons}) {
    auto makers = part();
    all.insert(all.end(), std::make_move_iterator(makers.begin()),
               std::make_move_iterator(makers.end()));
  }
  return all;
}

void RunOne(benchmark::State& state, const ComparisonMaker& maker,
            std::vector<ComparisonResult>& results) {
  Runner runner(maker.make());
  runner.Round();
  runner.Forget();
  for ([[maybe_unused]] auto _ : state) {
    state.SetIterationTime(1e-9 * runner.Round());
  }
  results.push_back(runner.Result());
}

/// Says on standard error which comparison is done; the table comes at the end.
class ProgressReporter : public benchmark::BenchmarkReporter {
 public:
  bool ReportContext(const Context&) override { return true; }
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      std::cerr << "done: " << run.run_name.function_name << '\n';
    }
  }
};

/// Takes `--json FILE` or `--json=FILE` out of the arguments.
std::string TakeJsonFile(std::vector<char*>& args) {
  for (size_t i = 1; i < args.size(); ++i) {
    if (std::strncmp(args[i], "--json=", 7) == 0) {
      std::string file = args[i] + 7;
      args.erase(args.begin() + static_cast<std::ptrdiff_t>(i));
      return file;
    }
    if (std::strcmp(args[i], "--json") == 0 && i + 1 < args.size()) {
      std::string file = args[i + 1];
      args.erase(args.begin() + static_cast<std::ptrdiff_t>(i),
                 args.begin() + static_cast<std::ptrdiff_t>(i + 2));
      return file;
    }
  }
  return {};
}

bool WriteJson(const std::string& file, const std::vector<ComparisonResult>& results) {
  std::ofstream out(file);
  PrintJson(out, results);
  out.flush();
  if (!out) {
    std::cerr << "hyl_bench: cannot write " << file << '\n';
  }
  return static_cast<bool>(out);
}

int Run(std::vector<char*> args) {
  const std::string json_file = TakeJsonFile(args);
  int count = static_cast<int>(args.size());
  benchmark::Initialize(&count, args.data());
  if (benchmark::ReportUnrecognizedArguments(count, args.data())) {
    return 2;
  }
  std::vector<ComparisonResult> results;
  for (const ComparisonMaker& maker : AllComparisons()) {
    benchmark::RegisterBenchmark(maker.name.c_str(),
                                 [maker, &results](auto& state) { RunOne(state, maker, results); })
        ->UseManualTime()
        ->Iterations(kRounds);
  }
  ProgressReporter progress;
  benchmark::RunSpecifiedBenchmarks(&progress);
  PrintTable(std::cout, results);
  return json_file.empty() || WriteJson(json_file, results) ? 0 : 1;
}

}  // namespace
}  // namespace hyl::v2::bench

int main(int argc, char** argv) {
  return hyl::v2::bench::Run(std::vector<char*>(argv, argv + argc));
}
