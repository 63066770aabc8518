// SPDX-License-Identifier: Apache-2.0
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <mutex>
#include <numeric>
#include <vector>

#include <benchmark/benchmark.h>

#include <hyl/host/messages.h>
#include <hyl/internal/sample_converter.h>

#include "benchmarks.h"
#include "flicker_streams.h"
#include "running_instance.h"

namespace hyl::v2::bench {
namespace {

constexpr size_t kChunkBytes = 256;
constexpr uint8_t kDeliveredBits = 24;

std::vector<float> ChannelValues() {
  std::vector<float> values(host::kSpectralChannelCount);
  std::iota(values.begin(), values.end(), 1.0F);
  return values;
}

host::EventChainMessage MakeChain(int64_t length) {
  return host::EventChainMessage(
      std::vector<host::SensorEvent>(static_cast<size_t>(length), {.values = ChannelValues()}));
}

/// Times `pass`, which makes `count` deliveries on this thread.
template <typename Pass>
void MeasureDeliveries(benchmark::State& state, int64_t count, Pass pass) {
  t_deliveries = 0;
  Measure(state, count, pass);
  if (t_deliveries != static_cast<int64_t>(state.iterations()) * count) {
    state.SkipWithError("the client did not get what was delivered");
  }
}

/// Single samples of one of `sessions` running sensors. Its session is the last of the table.
void Sample(benchmark::State& state, uint32_t sessions, size_t list_size) {
  RunningInstance instance(MakeSensors(sessions, list_size));
  for (uint32_t index = sessions; index-- > 1;) {
    instance.EnableAmbientLight(index);
  }
  const auto callbacks = instance.EnableAmbientLight(0);
  const host::SpectralMessage sample(ChannelValues());
  MeasureDeliveries(state, 1, [&] { callbacks->OnResponse(&sample); });
}

void Chain(benchmark::State& state, int64_t length) {
  RunningInstance instance(MakeSensors(1));
  const auto callbacks = instance.EnableAmbientLight(0);
  const host::EventChainMessage events = MakeChain(length);
  MeasureDeliveries(state, length, [&] { callbacks->OnResponse(&events); });
}

/// A client about which the compiler knows no more than in the library.
HylSpectralApiCallbackInterface& UnknownClient() {
  static CountingClient client;
  HylSpectralApiCallbackInterface* unknown = &client;
  benchmark::DoNotOptimize(unknown);
  return *unknown;
}

/// The least work of a spectral delivery: fill the framework's vector and call the client.
void DeliverInVector(HylSpectralApiCallbackInterface& client, const float* values, size_t count,
                     int64_t timestamp) {
  Vector<float> vector;
  if (vector.Resize(count) == HylErr::kOk) {
    std::memcpy(vector.data(), values, count * sizeof(float));
  }
  client.OnSpectralData(0, 1, vector, timestamp);
}

void SampleFloor(benchmark::State& state) {
  const SpectralSample sample = host::SpectralMessage(ChannelValues()).Sample();
  HylSpectralApiCallbackInterface& client = UnknownClient();
  MeasureDeliveries(state, 1, [&] {
    DeliverInVector(client, sample.values, sample.value_count, sample.timestamp);
  });
}

void ChainFloor(benchmark::State& state, int64_t length) {
  const host::EventChainMessage message = MakeChain(length);
  HylSpectralApiCallbackInterface& client = UnknownClient();
  MeasureDeliveries(state, length, [&] {
    for (const auto* event = message.events.get(); event != nullptr; event = event->next) {
      DeliverInVector(client, event->values(), event->value_count, event->timestamp);
    }
  });
}

/// Each thread delivers samples of another sensor to the same instance.
void SampleOnThreads(benchmark::State& state) {
  static std::unique_ptr<RunningInstance> instance;  // the first thread makes and frees it
  static std::vector<std::shared_ptr<Service::AsyncCallbacks>> callbacks;
  if (state.thread_index() == 0) {
    instance = std::make_unique<RunningInstance>(MakeSensors(2));
    callbacks = {instance->EnableAmbientLight(0), instance->EnableAmbientLight(1)};
  }
  const host::SpectralMessage sample(ChannelValues());
  const auto index = static_cast<size_t>(state.thread_index());
  MeasureDeliveries(state, 1, [&] { callbacks[index]->OnResponse(&sample); });
  if (state.thread_index() == 0) {
    callbacks.clear();
    instance.reset();
  }
}

/// Times `deliver` for each message of a flicker stream.
template <typename Deliver>
void MeasureFlicker(benchmark::State& state, Deliver deliver) {
  const std::vector<uint8_t>& stream = MainsRipple();
  const size_t count = stream.size() / kChunkBytes;
  host::FlickerDataMessage message{std::vector<uint8_t>(kChunkBytes)};
  MeasureDeliveries(state, static_cast<int64_t>(count), [&] {
    for (size_t i = 0; i < count; ++i) {
      message.data = &stream[i * kChunkBytes];
      deliver(message);
      message.offset += kChunkBytes;
    }
  });
}

void Flicker(benchmark::State& state) {
  std::vector<int32_t> samples(kChunkBytes);
  RunningInstance instance(MakeSensors(0));
  const auto callbacks = instance.EnableFlicker(samples, kDeliveredBits);
  const host::FlickerFormatMessage format(FlickerFormatSampleWidth::kCompressed1);
  callbacks->OnResponse(&format);
  MeasureFlicker(state, [&](const FlickerDataResp& message) { callbacks->OnResponse(&message); });
}

void FlickerFloor(benchmark::State& state) {
  std::vector<int32_t> samples(kChunkBytes);
  std::mutex mutex;  // guards the converter
  spectral::SampleConverter converter;
  converter.SetOutput(samples.data(), samples.size(), kDeliveredBits);
  converter.ConfigureCompressed1InputFormat();
  HylSpectralApiCallbackInterface& client = UnknownClient();
  FlickerSampleBlock block{};
  block.samples = samples.data();
  MeasureFlicker(state, [&](const FlickerDataResp& message) {
    {
      const std::lock_guard lock(mutex);
      converter.Convert(message.data, message.size, 0);
    }
    client.OnFlickerData(1, &block);
  });
}

}  // namespace

void RegisterDelivery() {
  const auto add = [](const char* name, auto run, auto... args) {
    return benchmark::RegisterBenchmark(name, run, args...);
  };
  add("spectral sample of 12 values/library", Sample, 1, 0);
  add("spectral sample of 12 values/vector and call", SampleFloor);
  add("event of a chain of 32/library", Chain, 32);
  add("event of a chain of 32/vector and call", ChainFloor, 32);
  add("flicker message of 256 B/library", Flicker);
  add("flicker message of 256 B/lock, Convert, call", FlickerFloor);
  add("sample, 2 threads/library", SampleOnThreads)->Threads(2)->UseRealTime();
  add("sample, 2 threads/1 thread", SampleOnThreads)->Threads(1)->UseRealTime();
  add("sample, 8 sessions/library", Sample, 8, 0);
  add("sample, 8 sessions/1 session", Sample, 1, 0);
  add("sample, list of 300 sensors/library", Sample, 1, 300);
  add("sample, list of 300 sensors/3 sensors", Sample, 1, 3);
  add("event, chains of 1024/library", Chain, 1024);
  add("event, chains of 1024/chains of 32", Chain, 32);
}

}  // namespace hyl::v2::bench
