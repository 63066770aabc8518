#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "flicker_generator.h"
#include "sensor_source.h"

namespace hyl::v2::host {

/// One chunk of flicker samples covers this time, in nanoseconds.
inline constexpr int64_t kFlickerChunkNs = 10000000;
/// Late chunks that the flicker sensor's memory holds. When a client is later than that, the sensor
/// pauses: what it would have measured is missing, without a trace in the stream.
inline constexpr uint64_t kFlickerBacklog = 50;

/// How the flicker sensor is set up for the light and the settings.
FlickerFrontEnd FlickerFrontEndFor(const Conditions& conditions);

/// A run of the flicker sensor that its stream advances and others look into.
class FlickerRun {
 public:
  FlickerRun(const LightScene& scene, const FlickerPacking& packing, const FlickerFaults& faults)
      : generator_(scene, packing, faults) {}

  struct Step {
    std::optional<FlickerGenerator::Chunk> chunk;
    float gain = 0;
  };
  Step Next(const LightScene& scene, const FlickerFrontEnd& front_end);
  FlickerFormatFields Format() const { return generator_.Format(); }  // never changes
  std::vector<int32_t> History(int bits) const;

 private:
  mutable std::mutex mutex_;  // guards the generator; innermost lock, taken without the hub mutex
  FlickerGenerator generator_;
};

/// The flicker sensor: a chunk of data at each tick, and the format before every tenth of them.
class FlickerSource : public SensorSource {
 public:
  explicit FlickerSource(std::shared_ptr<FlickerRun> run) : run_(std::move(run)) {}

  void OnTick(const Measurement& measurement, const Deliver& deliver) override;

 private:
  const std::shared_ptr<FlickerRun> run_;
  uint64_t tick_count_ = 0;
};

}  // namespace hyl::v2::host
