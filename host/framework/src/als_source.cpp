#include "als_source.h"

#include <algorithm>

#include <hyl/sampling_messages.h>

namespace hyl::v2::host {
namespace {

constexpr size_t kEventsPerChain = 4;

class RearMessage : public SampleMessage {
 public:
  explicit RearMessage(const SpectralSample& sample) : sample_(sample) {}
  uint8_t Type() const override { return static_cast<uint8_t>(MessageType::kSample); }
  SpectralSample Sample() const override { return sample_; }

 private:
  const SpectralSample sample_;
};

SpectralSample MakeSample(int64_t time_ns, const std::array<float, kSpectralChannelCount>& values) {
  SpectralSample sample{};
  std::copy(values.begin(), values.end(), std::begin(sample.values));
  sample.value_count = static_cast<uint32_t>(values.size());
  sample.timestamp = time_ns;
  return sample;
}

}  // namespace

void AlsSource::OnTick(const Measurement& measurement, const Deliver& deliver) {
  const Conditions& conditions = measurement.conditions;
  const Channels light = LightOnChannels(conditions, place_, measurement.elapsed_ns);
  if (!IsWorthReporting(light)) {
    return;
  }
  const int64_t time_ns = measurement.tick.time_ns;
  NoiseSource noise(conditions.scene.seed, static_cast<uint64_t>(place_), measurement.tick.index);
  const Values values = Measure(light, conditions.spectral, noise);
  if (place_ == AlsPlace::kRear) {
    deliver(RearMessage(MakeSample(time_ns, values)));
  } else {
    ReportFromFront(time_ns, values, deliver);
  }
}

bool AlsSource::IsWorthReporting(const Channels& light) {
  if (reporting_ == Reporting::kContinuous) {
    return true;
  }
  if (reported_ && !NoticeablyDifferent(light, *reported_)) {
    return false;
  }
  reported_ = light;
  return true;
}

void AlsSource::ReportFromFront(int64_t time_ns, const Values& values, const Deliver& deliver) {
  batch_.Add(time_ns, values);
  if (reporting_ == Reporting::kOnChange || batch_.Size() >= kEventsPerChain) {
    batch_.Flush(deliver);
  }
}

}  // namespace hyl::v2::host
