// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

#include <benchmark/benchmark.h>

namespace hyl::v2::bench {

// Each benchmark is named WORK/CONTENDER. The library's contender is called "library"; table.py
// compares its time with the others'.

/// \name Each registers the benchmarks of the file of its name.
/// @{
void RegisterDelivery();
void RegisterOperations();
void RegisterConversion();
/// @}

/// Times `pass`, which does `units` pieces of work: samples, messages, calls.
template <typename Pass>
void Measure(benchmark::State& state, int64_t units, Pass pass) {
  for ([[maybe_unused]] auto _ : state) {
    pass();
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * units);
}

}  // namespace hyl::v2::bench
