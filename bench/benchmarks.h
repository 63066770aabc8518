#pragma once

#include <cstdint>

#include <benchmark/benchmark.h>

namespace hyl::v2::bench {

// Each benchmark is named WORK/CONTENDER. The library's contender is called "library"; table.py
// sets its time in relation to the others'.

/// \name Register the benchmarks of the file that is named alike.
/// @{
void RegisterDelivery();
void RegisterOperations();
void RegisterCompressed1();
void RegisterFixedFormats();
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
