#include "flicker_source.h"

#include <algorithm>

#include <hyl/flicker_messages.h>

#include "platform_ticks.h"
#include "spectral_model.h"

namespace hyl::v2::host {
namespace {

/// A client that misses a format message waits for at most a tenth of a second.
constexpr uint64_t kTicksPerFormat = 10;

class FormatMessage : public FlickerFormatResp {
 public:
  explicit FormatMessage(const FlickerFormatFields& fields) {
    format_param = fields.format_param;
    width = fields.width;
    little_endian = fields.little_endian;
    lsb = fields.lsb;
    msb = fields.msb;
  }
  uint8_t Type() const override { return static_cast<uint8_t>(MessageType::kFlickerFormat); }
};

/// The auxiliary fields carry: the chunk's time in platform ticks (aux32_0 low, aux32_1 high), the
/// gain (auxf_0) and the number of clipped samples (aux16_0). `chunk` must outlive the message.
class DataMessage : public FlickerDataResp {
 public:
  DataMessage(const FlickerGenerator::Chunk& chunk, float gain, int64_t time_ns) {
    const uint64_t ticks = NsToPlatformTicks(static_cast<uint64_t>(time_ns));
    offset = chunk.offset;
    data = chunk.bytes.data();
    size = chunk.bytes.size();
    restart = chunk.restart ? 1 : 0;
    aux32_0 = static_cast<uint32_t>(ticks);
    aux32_1 = static_cast<uint32_t>(ticks >> 32U);
    auxf_0 = gain;
    aux16_0 = static_cast<uint16_t>(std::clamp(chunk.saturated, 0, 0xFFFF));
  }
  uint8_t Type() const override { return static_cast<uint8_t>(MessageType::kFlickerData); }
};

}  // namespace

FlickerFrontEnd FlickerFrontEndFor(const Conditions& conditions) {
  const FlickerSettings& settings = conditions.flicker;
  const double share = ShareOfChannel(conditions.scene.kind, settings.channel);
  return {.gain = static_cast<float>(settings.gain * share),
          .pedestal = settings.pedestal,
          .auto_gain = settings.auto_gain,
          .extra_lux = conditions.torch ? kTorchLux : 0};
}

FlickerRun::Step FlickerRun::Next(const LightScene& scene, const FlickerFrontEnd& front_end) {
  const std::lock_guard lock(mutex_);
  Step step;
  step.chunk = generator_.Next(scene, front_end);
  step.gain = generator_.Gain();
  return step;
}

std::vector<int32_t> FlickerRun::History(int bits) const {
  const std::lock_guard lock(mutex_);
  return generator_.History(bits);
}

void FlickerSource::OnTick(const Measurement& measurement, const Deliver& deliver) {
  const Conditions& conditions = measurement.conditions;
  const FlickerRun::Step step = run_->Next(conditions.scene, FlickerFrontEndFor(conditions));
  if (tick_count_++ % kTicksPerFormat == 0) {
    deliver(FormatMessage(run_->Format()));
  }
  if (step.chunk) {
    deliver(DataMessage(*step.chunk, step.gain, measurement.tick.time_ns));
  }
}

}  // namespace hyl::v2::host
