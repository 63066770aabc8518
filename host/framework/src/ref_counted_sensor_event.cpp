#include <hyl/ref_counted_sensor_event.h>

#include <algorithm>
#include <new>

#include <hyl/host/sensor_event.h>

namespace hyl::v2 {

void RefCountedSensorEvent::Unref() const {
  // A loop, not recursion: chains can be longer than the stack is deep.
  const RefCountedSensorEvent* event = this;
  while (event != nullptr) {
    const uint8_t previous_count = event->ref_count.fetch_sub(1, std::memory_order_acq_rel);
    Assert(previous_count > 0, "previous_count > 0", __PRETTY_FUNCTION__);
    if (previous_count > 1) {
      return;
    }
    const RefCountedSensorEvent* const following = event->next;
    event->~RefCountedSensorEvent();
    ::operator delete(const_cast<RefCountedSensorEvent*>(event));
    event = following;
  }
}

namespace host {

SensorEventPtr MakeSensorEvent(SensorEventType type, int64_t timestamp,
                               std::span<const float> values, const SensorEventPtr& next) {
  const auto kept = values.first(std::min<size_t>(values.size(), 255));
  void* const place = ::operator new(sizeof(RefCountedSensorEvent) + kept.size_bytes());
  auto* const event = ::new (place) RefCountedSensorEvent;
  std::copy(kept.begin(), kept.end(), reinterpret_cast<float*>(event + 1));
  event->event_type = type;
  event->value_count = static_cast<uint8_t>(kept.size());
  event->timestamp = timestamp;
  if (next) {
    next->Ref();
    event->next = next.get();
  }
  return SensorEventPtr(event);
}

}  // namespace host
}  // namespace hyl::v2
