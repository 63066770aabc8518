// What the library allocates on the way of a request and of a sample. This program replaces
// operator new, through which the library and the framework's containers take all memory.

#include <array>
#include <cstdlib>
#include <memory>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include <android-base/logging.h>
#include <gtest/gtest.h>
#include <hyl/host/api_factory.h>

#include "instance.h"
#include "messages.h"
#include "operations.h"
#include "scripted_api.h"

namespace {

thread_local int t_allocations = 0;

void* Allocate(size_t size) {
  ++t_allocations;
  return std::malloc(size);
}

}  // namespace

void* operator new(size_t size) {
  if (void* const place = Allocate(size); place != nullptr) {
    return place;
  }
  std::abort();
}
void* operator new(size_t size, const std::nothrow_t&) noexcept {
  return Allocate(size);
}
void operator delete(void* place) noexcept {
  std::free(place);
}
void operator delete(void* place, size_t) noexcept {
  std::free(place);
}
void operator delete(void* place, const std::nothrow_t&) noexcept {
  std::free(place);
}

namespace hyl::v2::test {
namespace {

/// A framework whose own allocations are not counted. Its sensors have no names, since the library
/// copies names.
class QuietApi final : public Api {
 public:
  explicit QuietApi(std::shared_ptr<Service::AsyncCallbacks>& latest) : latest_(latest) {}
  ~QuietApi() override { JoinReplier(); }

  std::vector<SensorListEntry> GetSensorList() override {
    return {MakeEntry(kListMarker, ""), MakeEntry(kRearContinuous, ""),
            MakeEntry(kRearOnChange, ""), MakeEntry(kFlicker, "")};
  }

  HylErr InvokeAsyncServiceCall(uint32_t, uint32_t type, const Request&,
                                std::shared_ptr<Service::AsyncCallbacks> callbacks) override {
    const int before = t_allocations;
    latest_ = callbacks;
    if (type == static_cast<uint32_t>(RequestType::kRlsMsgAccess)) {
      JoinReplier();
      replier_ = std::thread([callbacks] {
        const SettingsReply reply(RlsAccess::kRead, RlsCommand::kDeviceUid);
        callbacks->OnResponse(&reply);
      });
    }
    t_allocations = before;
    return HylErr::kOk;
  }

 private:
  void JoinReplier() {
    if (replier_.joinable()) {
      replier_.join();
    }
  }

  std::shared_ptr<Service::AsyncCallbacks>& latest_;
  std::thread replier_;
};

class CountingClient final : public HylSpectralApiCallbackInterface {
 public:
  void OnSpectralData(uint32_t, uint32_t, const Vector<float>& values, int64_t) override {
    received += values.size();
  }
  void OnFlickerData(uint32_t, const FlickerSampleBlock* block) override {
    received += block->num_samples;
  }

  size_t received = 0;
};

class AllocationTest : public ::testing::Test {
 protected:
  AllocationTest() {
    android::base::SetMinimumLogSeverity(android::base::FATAL);
    host::SetApiFactory([this](ClientType) { return std::make_unique<QuietApi>(latest); });
    api = std::make_unique<Instance>(&client);
    EXPECT_TRUE((*api)->IsSensorSupported(OpticalSensorType::kFlicker, nullptr));
  }
  ~AllocationTest() override {
    api.reset();
    host::SetApiFactory({});
  }

  template <typename Work>
  static int Allocations(Work work) {
    const int before = t_allocations;
    work();
    return t_allocations - before;
  }
  int Deliver(const Message& message) {
    return Allocations([&] { latest->OnResponse(&message); });
  }

  CountingClient client;
  std::shared_ptr<Service::AsyncCallbacks> latest;
  std::unique_ptr<Instance> api;
  std::array<int, 512> buffer{};
  uint32_t id = 0;
};

TEST_F(AllocationTest, CountsWhatTheLibraryTakes) {
  EXPECT_EQ(1, Allocations([] { ::operator delete(::operator new(1)); }));
  EXPECT_LE(1, Allocations([&] { (*api)->GetAmbientLightSensorNames(); })) << "in a shared library";
}

TEST_F(AllocationTest, RequestsCostNone) {
  EXPECT_EQ(0, Allocations([&] {
              (*api)->EnableAmbientLightSensor(nullptr, id, SensorReportingMode::kContinuous);
            }));
  for (const Operation& operation : kOperations) {
    const bool returns_names = operation.name == std::string("GetAmbientLightSensorNames") ||
                               operation.name == std::string("GetFlickerSensorNames");
    if (!returns_names) {
      EXPECT_EQ(0, Allocations([&] { operation.call(*api->get(), id); })) << operation.name;
    }
  }
}

TEST_F(AllocationTest, SampleCostsOneAtMost) {
  (*api)->EnableAmbientLightSensor(nullptr, id, SensorReportingMode::kContinuous);
  EXPECT_GE(1, Deliver(SampleMsg(std::vector<float>(16, 1))));
  EXPECT_GE(3, Deliver(Events(Chain({{1, {1}}, {1, std::vector<float>(16, 1)}, {1, {}}, {3}}), 4)));
  EXPECT_EQ(33U, client.received);
  EXPECT_EQ(0, Deliver(StatusReply(3, 0)));
  EXPECT_EQ(0, Deliver(SettingsReply(RlsAccess::kRead, RlsCommand::kGain)));
}

TEST_F(AllocationTest, FlickerDataCostNone) {
  constexpr uint32_t kBytes = 480;  // long enough for the decoders' wide paths
  (*api)->EnableFlickerSensor(nullptr, buffer.data(), buffer.size(), 16, id);
  uint32_t offset = 0;
  for (const auto width :
       {FlickerFormatSampleWidth::kUncompressed2, FlickerFormatSampleWidth::kUncompressed3,
        FlickerFormatSampleWidth::kUncompressed4, FlickerFormatSampleWidth::kCompressed1,
        FlickerFormatSampleWidth::k16BitsIn2}) {
    client.received = 0;
    EXPECT_EQ(0, Deliver(FlickerFormat(width)));
    EXPECT_EQ(0, Deliver(FlickerData(std::vector<uint8_t>(kBytes, 0x81), offset)));
    offset += kBytes;
    EXPECT_LE(kBytes / 4, client.received);
  }
}

}  // namespace
}  // namespace hyl::v2::test
