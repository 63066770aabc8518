// SPDX-License-Identifier: Apache-2.0
// The benchmarks. scripts/bench runs them and prints their results as a table.

#include <thread>

#include <android-base/logging.h>
#include <benchmark/benchmark.h>

#include "benchmarks.h"

int main(int argc, char** argv) {
  // The C library's mutexes are faster until a process starts its first thread. A framework always
  // has threads.
  std::thread([] {}).join();
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
    return 2;
  }
  android::base::SetMinimumLogSeverity(android::base::WARNING);
  hyl::v2::bench::RegisterDelivery();
  hyl::v2::bench::RegisterOperations();
  hyl::v2::bench::RegisterConversion();
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
}
