// SPDX-License-Identifier: Apache-2.0
// The framework's small types: heap, messages, mutex, requests, events, string, time, vector.
#include <algorithm>
#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <functional>
#include <limits>
#include <mutex>
#include <new>
#include <utility>

#include <hyl/heap.h>
#include <hyl/host/messages.h>
#include <hyl/host/scripted_framework.h>
#include <hyl/hyl_string.h>
#include <hyl/message.h>
#include <hyl/mutex.h>
#include <hyl/ref_counted_sensor_event.h>
#include <hyl/reffed_ptr.h>
#include <hyl/request.h>
#include <hyl/rls_msg_access.h>
#include <hyl/sampling_messages.h>
#include <hyl/vector.h>

namespace hyl::v2 {
namespace {

char* NewChars(size_t size) {
  return static_cast<char*>(::operator new(size, std::nothrow));
}

/// The length of the formatted text; negative if it cannot be formatted.
[[gnu::format(printf, 1, 0)]] int FormattedLength(const char* format, va_list args) {
  va_list copy;
  va_copy(copy, args);
  const int length = std::vsnprintf(nullptr, 0, format, copy);
  va_end(copy);
  return length;
}

constexpr size_t kMinElems = 16;
/// The largest block of the framework's heaps. The limit also keeps byte counts from overflowing.
constexpr size_t kMaxBytes = size_t{1} << 30;

char* ElemAt(void* data, size_t index, size_t elem_size) {
  return static_cast<char*>(data) + index * elem_size;
}

/// The number of elements to make room for, so that appending one at a time costs few moves.
size_t GrownCapacity(size_t capacity, size_t wanted, size_t max) {
  return std::min(std::max({kMinElems, 2 * capacity, wanted}), max);
}

struct GrowthHook {
  std::mutex mutex;             // guards `fails`
  std::function<bool()> fails;  // empty when there is none
};

/// Saves vectors from taking the hook's mutex if there is no hook.
std::atomic<bool> growth_hook_set{false};

GrowthHook& TheGrowthHook() {
  static GrowthHook* const hook = new GrowthHook;  // never destroyed: vectors outlive statics
  return *hook;
}

/// Whether a test wants this growth of a vector to fail.
bool GrowthFails() {
  if (!growth_hook_set.load(std::memory_order_relaxed)) [[likely]] {
    return false;
  }
  std::unique_lock lock(TheGrowthHook().mutex);
  const std::function<bool()> fails = TheGrowthHook().fails;
  lock.unlock();
  return fails && fails();
}

}  // namespace

// NOLINTNEXTLINE(cert-dcl54-cpp): only the framework creates such objects
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
  // A loop, not recursion: a long chain would exhaust the stack.
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

HylString& HylString::operator=(HylString&& other) noexcept {
  if (this != &other) {
    clear();
    Swap(other);
  }
  return *this;
}

void HylString::assign(const char* text) {
  const size_t size = text != nullptr ? std::strlen(text) : 0;
  char* const fresh = size > 0 ? NewChars(size + 1) : nullptr;  // `text` may lie in the old one
  if (fresh != nullptr) {
    std::memcpy(fresh, text, size + 1);
  }
  clear();
  if (fresh != nullptr) {
    chars_ = fresh;
    size_ = size;
    capacity_ = size + 1;
  }
}

void HylString::clear() {
  ::operator delete(chars_);
  chars_ = nullptr;
  size_ = 0;
  capacity_ = 0;
}

// Always writes to new storage, because the arguments may point into this string.
void HylString::appendf(const char* format, ...) {
  va_list args;
  va_start(args, format);
  if (const int length = FormattedLength(format, args); length > 0) {
    const size_t capacity = size_ + static_cast<size_t>(length) + 1;
    if (char* const fresh = NewChars(capacity); fresh != nullptr) {
      std::memcpy(fresh, c_str(), size_);
      static_cast<void>(std::vsnprintf(fresh + size_, capacity - size_, format, args));
      const size_t size = capacity - 1;
      clear();
      chars_ = fresh;
      size_ = size;
      capacity_ = capacity;
    }
  }
  va_end(args);
}

VectorBase::~VectorBase() = default;

HylErr VectorBase::Resize(size_t new_count, size_t elem_size, HylHeapEnum heap) {
  while (count_ > new_count) {
    DestroyElem(ElemAt(data_, --count_, elem_size));
  }
  if (count_ == new_count) {
    return HylErr::kOk;
  }
  const size_t max_count = elem_size > 0 ? kMaxBytes / elem_size : 0;
  if (heap != HylHeapEnum::kDefault || new_count > max_count || GrowthFails()) {
    return HylErr::kFailed;
  }
  if (new_count > reserved_) {
    const size_t capacity = GrownCapacity(reserved_, new_count, max_count);
    void* const fresh = ::operator new(capacity* elem_size, std::nothrow);
    if (fresh == nullptr) {
      return HylErr::kFailed;
    }
    for (size_t i = 0; i < count_; ++i) {
      MoveElem(ElemAt(data_, i, elem_size), ElemAt(fresh, i, elem_size));
    }
    ::operator delete(data_);
    data_ = fresh;
    reserved_ = capacity;
  }
  char* const end = ElemAt(data_, new_count, elem_size);
  for (char* elem = ElemAt(data_, count_, elem_size); elem != end; elem += elem_size) {
    ConstructElem(elem);
  }
  count_ = new_count;
  return HylErr::kOk;
}

void VectorBase::DestroyVector(size_t elem_size) {
  char* const begin = ElemAt(data_, 0, elem_size);
  for (char* elem = ElemAt(data_, count_, elem_size); elem != begin;) {
    elem -= elem_size;
    DestroyElem(elem);
  }
  ::operator delete(data_);
  data_ = nullptr;
  count_ = 0;
  reserved_ = 0;
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

void FailVectorGrowth(std::function<bool()> fails) {
  const std::lock_guard lock(TheGrowthHook().mutex);
  growth_hook_set.store(static_cast<bool>(fails), std::memory_order_relaxed);
  TheGrowthHook().fails.swap(fails);
}

}  // namespace host
}  // namespace hyl::v2
