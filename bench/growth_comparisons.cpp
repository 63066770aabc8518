#include <algorithm>
#include <memory>
#include <string>

#include "comparison.h"
#include "running_sensor.h"

namespace hyl::v2::bench {
namespace {

constexpr size_t kSamplesPerPass = 8192;
constexpr double kFlat = 1.1;

/// A pass that delivers single samples to "ALS 0".
struct SingleSamples {
  SingleSamples(uint32_t sessions, size_t list_size) : running(MakeSensors(sessions, list_size)) {
    // The one that is measured comes last, so that its session is the last of the table.
    for (uint32_t index = sessions; index-- > 0;) {
      callbacks = running.EnableAmbientLight(index);
    }
  }

  void Deliver() const {
    for (size_t i = 0; i < kSamplesPerPass; ++i) {
      callbacks->OnResponse(&sample);
    }
  }

  Running running;
  std::shared_ptr<Service::AsyncCallbacks> callbacks;
  host::SpectralMessage sample{ChannelValues(), 1};
};

Contender WithSessions(uint32_t sessions, size_t list_size, std::string name, double target) {
  auto single = std::make_shared<SingleSamples>(sessions, list_size);
  return {std::move(name), [single] { single->Deliver(); }, kSamplesPerPass, Measure::kTimesCost,
          target};
}

Comparison Sessions() {
  return {"sample, growing number of sessions",
          "sample",
          {WithSessions(8, 0, "8 sessions", 0), WithSessions(1, 0, "1 session", kFlat)}};
}

Comparison Lists() {
  return {"sample, growing sensor list",
          "sample",
          {WithSessions(1, 300, "300 sensors", 0), WithSessions(1, 30, "30 sensors", kFlat),
           WithSessions(1, 3, "3 sensors", kFlat)}};
}

struct Chains {
  explicit Chains(size_t length) : events(MakeChain(length)) {}

  Running running{MakeSensors(1)};
  std::shared_ptr<Service::AsyncCallbacks> callbacks = running.EnableAmbientLight(0);
  host::EventChainMessage events;
};

Contender WithChains(size_t length, double target) {
  auto chains = std::make_shared<Chains>(length);
  const auto pass = [chains, length] {
    for (size_t i = 0; i < kSamplesPerPass; i += length) {
      chains->callbacks->OnResponse(&chains->events);
    }
  };
  return {"chains of " + std::to_string(length), pass, kSamplesPerPass, Measure::kTimesCost,
          target};
}

Comparison ChainLengths() {
  return {"event, growing chains",
          "event",
          {WithChains(1024, 0), WithChains(256, kFlat), WithChains(32, kFlat), WithChains(8, kFlat),
           WithChains(1, kFlat)}};
}

}  // namespace

std::vector<ComparisonMaker> GrowthComparisons() {
  return {{"growth/sessions", Sessions}, {"growth/lists", Lists}, {"growth/chains", ChainLengths}};
}

}  // namespace hyl::v2::bench
