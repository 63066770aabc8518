#include "event_batch.h"

#include <hyl/sampling_messages.h>

#include "platform_ticks.h"

namespace hyl::v2::host {
namespace {

constexpr uint64_t kTicksFlag = uint64_t{1} << 63U;
/// Every so many chains end with an event of the kind that clients ignore.
constexpr uint64_t kChainsPerIgnoredEvent = 3;

class ChainMessage : public EventMessage {
 public:
  uint8_t Type() const override { return static_cast<uint8_t>(MessageType::kEvents); }
};

int64_t TimestampInTicks(int64_t time_ns) {
  return static_cast<int64_t>(NsToPlatformTicks(static_cast<uint64_t>(time_ns)) | kTicksFlag);
}

}  // namespace

/// Every second reading carries its time in ticks.
void EventBatch::Add(int64_t time_ns, const std::array<float, kSpectralChannelCount>& values) {
  const bool in_ticks = reading_count_++ % 2 == 1;
  readings_.push_back({in_ticks ? TimestampInTicks(time_ns) : time_ns, values});
}

void EventBatch::Flush(const Deliver& deliver) {
  if (readings_.empty()) {
    return;
  }
  ChainMessage message;
  message.event_count = readings_.size();
  if (++chain_count_ % kChainsPerIgnoredEvent == 0) {
    message.events = MakeSensorEvent(SensorEventType::kIgnored, readings_.back().timestamp, {});
    ++message.event_count;
  }
  for (auto reading = readings_.rbegin(); reading != readings_.rend(); ++reading) {
    message.events = MakeSensorEvent(SensorEventType::kSpectralSample, reading->timestamp,
                                     reading->values, message.events);
  }
  readings_.clear();
  deliver(message);
}

}  // namespace hyl::v2::host
