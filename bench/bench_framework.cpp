#include "bench_framework.h"

#include <algorithm>
#include <cstdio>
#include <utility>

#include <hyl/host/api_factory.h>
#include <hyl/rls_msg_access.h>
#include <hyl/sampling_messages.h>

namespace hyl::v2::bench {
namespace {

constexpr uint32_t kMarkerHandle = 21U << 16;
constexpr uint32_t kOtherHandle = 1U << 16;

SensorListEntry MakeEntry(uint32_t handle, const char* name, size_t number) {
  SensorListEntry entry{};
  entry.handle = handle + static_cast<uint32_t>(number);
  std::snprintf(entry.name, sizeof(entry.name), "%s %zu", name, number);
  return entry;
}

class StatusReply final : public SamplingStatusResp {
 public:
  explicit StatusReply(uint32_t type) : type_(static_cast<uint8_t>(type)) {}
  uint8_t Type() const override { return type_; }
  uint8_t Status() const override { return 0; }

 private:
  uint8_t type_;
};

class ConfigReply final : public RlsMsgAccessResp {
 public:
  uint8_t Type() const override { return static_cast<uint8_t>(MessageType::kRlsMsgAccessResp); }
};

class BenchApi final : public Api {
 public:
  explicit BenchApi(BenchFramework& framework) : framework_(framework) {}

  std::vector<SensorListEntry> GetSensorList() override { return framework_.sensors(); }
  HylErr InvokeAsyncServiceCall(uint32_t sensor_handle, uint32_t request_type,
                                const Request& request,
                                std::shared_ptr<Service::AsyncCallbacks> callbacks) override {
    framework_.Take(sensor_handle, request_type, request, std::move(callbacks));
    return HylErr::kOk;
  }

 private:
  BenchFramework& framework_;
};

}  // namespace

std::vector<SensorListEntry> MakeSensors(int count, size_t list_size) {
  std::vector<SensorListEntry> sensors;
  sensors.reserve(std::max(static_cast<size_t>(count) + 2, list_size));
  for (int i = 0; i < count; ++i) {
    sensors.push_back(MakeEntry(kRearHandle, "ALS", static_cast<size_t>(i)));
  }
  sensors.push_back(MakeEntry(kFlickerHandle, "Flicker", 0));
  sensors.push_back(MakeEntry(kMarkerHandle, "Marker", 0));
  while (sensors.size() < list_size) {
    sensors.push_back(MakeEntry(kOtherHandle, "Other", sensors.size()));
  }
  return sensors;
}

BenchFramework::BenchFramework(std::vector<SensorListEntry> sensors, Answering answering)
    : sensors_(std::move(sensors)), answering_(answering) {
  if (answering_ == Answering::kOnThread) {
    thread_ = std::thread([this] { AnswerAll(); });
  }
  host::SetApiFactory([this](ClientType) { return std::make_unique<BenchApi>(*this); });
}

BenchFramework::~BenchFramework() {
  {
    const std::lock_guard lock(mutex_);
    stop_ = true;
  }
  requested_.notify_one();
  if (thread_.joinable()) {
    thread_.join();
  }
}

std::shared_ptr<Service::AsyncCallbacks> BenchFramework::CallbacksOf(uint32_t handle) {
  const std::lock_guard lock(mutex_);
  return callbacks_[handle];
}

void BenchFramework::WaitUntilAnswered() {
  std::unique_lock lock(mutex_);
  answered_.wait(lock, [this] { return unanswered_ == 0; });
}

void BenchFramework::Take(uint32_t handle, uint32_t type, const Request& request,
                          std::shared_ptr<Service::AsyncCallbacks> callbacks) {
  Pending pending{type, 0, std::move(callbacks)};
  if (type == static_cast<uint32_t>(RequestType::kRlsMsgAccess)) {
    const auto& access = static_cast<const RlsMsgAccessReq&>(request);
    pending.access_and_command = static_cast<uint16_t>(static_cast<unsigned>(access.access) << 8 |
                                                       static_cast<unsigned>(access.command));
  }
  if (answering_ == Answering::kWithinCall) {
    Answer(pending);
    return;
  }
  {
    const std::lock_guard lock(mutex_);
    if (answering_ == Answering::kNever) {
      callbacks_[handle] = std::move(pending.callbacks);
      return;
    }
    ++unanswered_;
    pending_.push_back(std::move(pending));
  }
  requested_.notify_one();
}

void BenchFramework::Answer(const Pending& pending) {
  if (pending.type != static_cast<uint32_t>(RequestType::kRlsMsgAccess)) {
    const StatusReply reply(pending.type);
    pending.callbacks->OnResponse(&reply);
    return;
  }
  ConfigReply reply;
  reply.access = static_cast<RlsAccess>(pending.access_and_command >> 8);
  reply.command = static_cast<RlsCommand>(pending.access_and_command & 0xFF);
  pending.callbacks->OnResponse(&reply);
}

void BenchFramework::AnswerAll() {
  std::vector<Pending> taken;
  std::unique_lock lock(mutex_);
  for (;;) {
    requested_.wait(lock, [this] { return stop_ || !pending_.empty(); });
    if (stop_) {
      return;
    }
    taken.swap(pending_);
    lock.unlock();
    std::for_each(taken.begin(), taken.end(), Answer);
    lock.lock();
    unanswered_ -= taken.size();
    taken.clear();
    answered_.notify_all();
  }
}

}  // namespace hyl::v2::bench
