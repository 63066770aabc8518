#include <cstring>
#include <memory>
#include <mutex>
#include <new>

#include <benchmark/benchmark.h>

#include <hyl/flicker_messages.h>
#include <hyl/internal/sample_converter.h>

#include "comparison.h"
#include "flicker_streams.h"
#include "running_sensor.h"
#include "vector_delivery.h"

namespace hyl::v2::bench {
namespace {

constexpr size_t kSamplesPerPass = 4096;
constexpr size_t kEventsPerChain = 32;
constexpr size_t kChunkBytes = 256;
constexpr uint8_t kOutBits = 24;

/// The least that handing on values can cost: one allocation, the copy, one virtual call.
void DeliverBarely(FloorClient& client, const float* values, size_t count, int64_t timestamp) {
  auto* const copy = static_cast<float*>(::operator new(count * sizeof(float)));
  std::memcpy(copy, values, count * sizeof(float));
  client.OnValues(copy, count, timestamp);
  ::operator delete(copy);
}

struct Spectral {
  Running running{MakeSensors(1)};
  std::shared_ptr<Service::AsyncCallbacks> callbacks = running.EnableAmbientLight(0);
  BenchClient floor_client;
  host::SpectralMessage sample{ChannelValues(), 1};
  host::EventChainMessage events = MakeChain(kEventsPerChain);
};

Comparison SampleDelivery() {
  const auto spectral = std::make_shared<Spectral>();
  const auto library = [spectral] {
    for (size_t i = 0; i < kSamplesPerPass; ++i) {
      spectral->callbacks->OnResponse(&spectral->sample);
    }
  };
  const auto floor = [spectral] {
    FloorClient* client = &spectral->floor_client;
    benchmark::DoNotOptimize(client);
    const SpectralSample record = spectral->sample.Sample();
    for (size_t i = 0; i < kSamplesPerPass; ++i) {
      DeliverBarely(*client, record.values, record.value_count, record.timestamp);
    }
  };
  const auto in_vector = [spectral] {
    HylSpectralApiCallbackInterface* client = &spectral->floor_client;
    benchmark::DoNotOptimize(client);
    const SpectralSample record = spectral->sample.Sample();
    for (size_t i = 0; i < kSamplesPerPass; ++i) {
      DeliverInVector(*client, record.values, record.value_count, record.timestamp);
    }
  };
  return {"spectral sample of 12 values",
          "sample",
          {{"library", library, kSamplesPerPass},
           {"floor: call, allocation, copy", floor, kSamplesPerPass, Measure::kTimesCost, 2.5},
           {"framework's vector, call", in_vector, kSamplesPerPass, Measure::kTimesCost}}};
}

Comparison ChainDelivery() {
  const auto spectral = std::make_shared<Spectral>();
  const auto library = [spectral] {
    for (size_t i = 0; i < kSamplesPerPass; i += kEventsPerChain) {
      spectral->callbacks->OnResponse(&spectral->events);
    }
  };
  const auto floor = [spectral] {
    FloorClient* client = &spectral->floor_client;
    benchmark::DoNotOptimize(client);
    for (size_t i = 0; i < kSamplesPerPass; i += kEventsPerChain) {
      for (const auto* event = spectral->events.events.get(); event != nullptr;
           event = event->next) {
        DeliverBarely(*client, event->values(), event->value_count, event->timestamp);
      }
    }
  };
  const auto in_vector = [spectral] {
    HylSpectralApiCallbackInterface* client = &spectral->floor_client;
    benchmark::DoNotOptimize(client);
    for (size_t i = 0; i < kSamplesPerPass; i += kEventsPerChain) {
      for (const auto* event = spectral->events.events.get(); event != nullptr;
           event = event->next) {
        DeliverInVector(*client, event->values(), event->value_count, event->timestamp);
      }
    }
  };
  return {"event of a chain of 32",
          "event",
          {{"library", library, kSamplesPerPass},
           {"floor: call, allocation, copy", floor, kSamplesPerPass, Measure::kTimesCost, 2.5},
           {"framework's vector, call", in_vector, kSamplesPerPass, Measure::kTimesCost}}};
}

struct Flicker {
  Flicker() {
    uint32_t id = 0;
    running.api().EnableFlickerSensor("Flicker", samples.data(), samples.size(), kOutBits, id);
    callbacks = running.framework().CallbacksOf(host::kFlicker);
    const host::FlickerFormatMessage format(FlickerFormatSampleWidth::kCompressed1);
    callbacks->OnResponse(&format);
    converter.SetOutput(samples.data(), samples.size(), kOutBits);
    converter.ConfigureCompressed1InputFormat();
    message.size = kChunkBytes;
    block.samples = samples.data();
  }

  template <typename Deliver>
  void ForEachChunk(Deliver deliver) {
    for (size_t at = 0; at + kChunkBytes <= stream.bytes.size(); at += kChunkBytes) {
      message.data = stream.bytes.data() + at;
      deliver();
    }
  }
  double Chunks() const {
    const size_t chunks = stream.bytes.size() / kChunkBytes;
    return static_cast<double>(chunks);
  }

  FlickerStream stream = MainsRipple();
  std::vector<int32_t> samples = std::vector<int32_t>(kChunkBytes);
  Running running{MakeSensors(1)};
  std::shared_ptr<Service::AsyncCallbacks> callbacks;
  host::FlickerDataMessage message{{}};
  // The floor's:
  std::mutex mutex;
  spectral::SampleConverter converter;
  BenchClient client;
  FlickerSampleBlock block{};
};

Comparison FlickerDelivery() {
  const auto flicker = std::make_shared<Flicker>();
  const auto library = [flicker] {
    flicker->ForEachChunk([&] {
      flicker->callbacks->OnResponse(&flicker->message);
      flicker->message.offset += kChunkBytes;
    });
  };
  const auto floor = [flicker] {
    HylSpectralApiCallbackInterface* client = &flicker->client;
    benchmark::DoNotOptimize(client);
    flicker->ForEachChunk([&] {
      {
        const std::lock_guard lock(flicker->mutex);
        flicker->converter.Convert(flicker->message.data, flicker->message.size, 0);
      }
      client->OnFlickerData(1, &flicker->block);
    });
  };
  return {"flicker message of 256 B",
          "message",
          {{"library", library, flicker->Chunks()},
           {"floor: lock, Convert, call", floor, flicker->Chunks(), Measure::kTimesCost, 1.3}}};
}

}  // namespace

std::vector<ComparisonMaker> DeliveryComparisons() {
  return {{"delivery/sample", SampleDelivery},
          {"delivery/chain", ChainDelivery},
          {"delivery/flicker", FlickerDelivery}};
}

}  // namespace hyl::v2::bench
