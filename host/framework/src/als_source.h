#pragma once

#include <array>
#include <cstdint>
#include <optional>

#include "event_batch.h"
#include "sensor_source.h"
#include "spectral_model.h"

namespace hyl::v2::host {

enum class Reporting : uint8_t { kContinuous, kOnChange };

/// An ambient-light sensor. The rear one reports each measurement in a sample message. The front
/// one reports in chains of events, which it collects, in continuous sampling, in fours.
class AlsSource : public SensorSource {
 public:
  AlsSource(AlsPlace place, Reporting reporting) : place_(place), reporting_(reporting) {}

  void OnTick(const Measurement& measurement, const Deliver& deliver) override;

 private:
  using Values = std::array<float, kSpectralChannelCount>;

  bool IsWorthReporting(const Channels& light);
  void ReportFromFront(int64_t time_ns, const Values& values, const Deliver& deliver);

  const AlsPlace place_;
  const Reporting reporting_;
  std::optional<Channels> reported_;  // on-change: the light last reported
  EventBatch batch_;                  // of the front sensor
};

}  // namespace hyl::v2::host
