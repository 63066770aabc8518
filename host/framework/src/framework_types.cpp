// The framework's small types: heap, messages, mutex, requests, sensor events, time.
#include <algorithm>
#include <limits>
#include <new>

#include <hyl/heap.h>
#include <hyl/host/messages.h>
#include <hyl/message.h>
#include <hyl/mutex.h>
#include <hyl/ref_counted_sensor_event.h>
#include <hyl/reffed_ptr.h>
#include <hyl/request.h>
#include <hyl/rls_msg_access.h>
#include <hyl/time.h>

namespace hyl::v2 {

// NOLINTNEXTLINE(cert-dcl54-cpp): creating such objects is the framework's own affair
void HeapAllocable::operator delete(void* object) {
  ::operator delete(object);
}

Message::~Message() = default;

Mutex::Mutex() {
  Assert(pthread_mutex_init(&native_, nullptr) == 0, "pthread_mutex_init", __PRETTY_FUNCTION__);
}

Mutex::~Mutex() {
  pthread_mutex_destroy(&native_);
}

void Mutex::lock() {
  Assert(pthread_mutex_lock(&native_) == 0, "pthread_mutex_lock", __PRETTY_FUNCTION__);
}

void Mutex::unlock() {
  Assert(pthread_mutex_unlock(&native_) == 0, "pthread_mutex_unlock", __PRETTY_FUNCTION__);
}

bool Mutex::try_lock() {
  return pthread_mutex_trylock(&native_) == 0;
}

Request::~Request() = default;

StopSamplingReq::~StopSamplingReq() = default;
uint32_t StopSamplingReq::ClientId() const {
  return client_id;
}

StartOnChangeSamplingReq::~StartOnChangeSamplingReq() = default;
uint32_t StartOnChangeSamplingReq::ClientId() const {
  return client_id;
}
bool StartOnChangeSamplingReq::Passive() const {
  return passive;
}
uint64_t StartOnChangeSamplingReq::MaxLatency() const {
  return max_latency;
}
uint8_t StartOnChangeSamplingReq::TransformMask() const {
  return transform_mask;
}
bool StartOnChangeSamplingReq::IsWakeUp() const {
  return is_wake_up;
}

StartContinuousSamplingReq::~StartContinuousSamplingReq() = default;
uint32_t StartContinuousSamplingReq::ClientId() const {
  return client_id;
}
bool StartContinuousSamplingReq::Passive() const {
  return passive;
}
uint64_t StartContinuousSamplingReq::MaxLatency() const {
  return max_latency;
}
uint8_t StartContinuousSamplingReq::TransformMask() const {
  return transform_mask;
}
bool StartContinuousSamplingReq::IncludeRuntimeBias() const {
  return include_runtime_bias;
}
uint8_t StartContinuousSamplingReq::Reserved() const {
  return reserved;
}
uint64_t StartContinuousSamplingReq::Period() const {
  return period;
}
bool StartContinuousSamplingReq::IsWakeUp() const {
  return is_wake_up;
}

RlsMsgAccessReq::~RlsMsgAccessReq() = default;

uint64_t Time::PlatformTicksToNs(uint64_t ticks) {
  __extension__ using Wide = unsigned __int128;
  const Wide ns = static_cast<Wide>(ticks) * host::kNsPerUnit / host::kTicksPerUnit;
  return static_cast<uint64_t>(
      std::min(ns, static_cast<Wide>(std::numeric_limits<uint64_t>::max())));
}

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

SensorEventPtr MakeEventChain(const std::vector<SensorEvent>& events) {
  SensorEventPtr chain;
  for (auto wanted = events.rbegin(); wanted != events.rend(); ++wanted) {
    const size_t count = std::min<size_t>(wanted->values.size(), 255);
    void* const place = ::operator new(sizeof(RefCountedSensorEvent) + count * sizeof(float));
    auto* const event = ::new (place) RefCountedSensorEvent;
    std::copy_n(wanted->values.begin(), count, reinterpret_cast<float*>(event + 1));
    event->event_type = wanted->type;
    event->value_count = static_cast<uint8_t>(count);
    event->timestamp = wanted->timestamp;
    if (chain) {
      chain->Ref();
      event->next = chain.get();
    }
    chain = SensorEventPtr(event);
  }
  return chain;
}

}  // namespace host
}  // namespace hyl::v2
