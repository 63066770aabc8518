// SPDX-License-Identifier: Apache-2.0
// What the library allocates for a request and for a sample. This program replaces operator new,
// through which the library and the framework's containers take all memory.

#include <malloc.h>
#include <array>
#include <atomic>
#include <cstdlib>
#include <new>
#include <thread>
#include <vector>

#include <android-base/logging.h>
#include <gtest/gtest.h>

#include "client.h"
#include "framework.h"
#include "operations.h"

namespace {

thread_local int t_allocations = 0;
std::atomic<size_t> bytes_in_use{0};

}  // namespace

// Not inlined, so that g++ does not take a delete here for one that does not match its new.
[[gnu::noinline]] void* operator new(size_t size, const std::nothrow_t&) noexcept {
  ++t_allocations;
  void* const place = std::malloc(size);
  bytes_in_use += malloc_usable_size(place);
  return place;
}
[[gnu::noinline]] void* operator new(size_t size) {
  if (void* const place = operator new(size, std::nothrow); place != nullptr) {
    return place;
  }
  std::abort();
}
[[gnu::noinline]] void operator delete(void* place) noexcept {
  bytes_in_use -= malloc_usable_size(place);
  std::free(place);
}
[[gnu::noinline]] void operator delete(void* place, size_t) noexcept {
  operator delete(place);
}
[[gnu::noinline]] void operator delete(void* place, const std::nothrow_t&) noexcept {
  operator delete(place);
}

namespace hyl::v2::test {
namespace {

struct CountingClient final : HylSpectralApiCallbackInterface {
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
    // The library copies names.
    framework.SetSensorList({MakeEntry(kListMarker, ""), MakeEntry(kRearContinuous, ""),
                             MakeEntry(kRearOnChange, ""), MakeEntry(kFlicker, "")});
    framework.SetRecording(false);
    framework.SetHook([this](const FrameworkCall& call) { Reply(call); });
    RunSensors(*api, 0);
  }

  template <typename Work>
  static int Allocations(Work work) {
    const int before = t_allocations;
    work();
    return t_allocations - before;
  }
  int Deliver(uint32_t handle, const Message& message) {
    const auto callbacks = framework.CallbacksOf(handle);
    return Allocations([&] { callbacks->OnResponse(&message); });
  }
  /// All sensors together, each of which delivers that many times.
  void RunSensors(HylSpectralApi& of, int deliveries) {
    std::array<uint32_t, 3> ids{};
    EXPECT_EQ(HylErr::kOk, of.EnableAmbientLightSensor(nullptr, ids[0], kOnChange));
    EXPECT_EQ(HylErr::kOk, of.EnableAmbientLightSensor(nullptr, ids[1], kContinuous));
    EXPECT_EQ(HylErr::kOk,
              of.EnableFlickerSensor(nullptr, buffer.data(), buffer.size(), 16, ids[2]));
    for (int i = 0; i < deliveries; ++i) {
      for (const DataWay& way : {kRearSample, kFlickerData}) {
        way.deliver(*framework.CallbacksOf(way.handle));
      }
    }
    EXPECT_EQ(HylErr::kOk, of.DisableAmbientLightSensor(ids[0]));
    EXPECT_EQ(HylErr::kOk, of.DisableAmbientLightSensor(ids[1]));
    EXPECT_EQ(HylErr::kOk, of.DisableFlickerSensor(ids[2]));
  }

  CountingClient client;
  ScriptedFramework framework;  // takes no memory for a request that it has seen
  SpectralInstance api = MakeInstance(&client);
  std::array<int, 512> buffer{};
  uint32_t id = 0;

 private:
  /// Answers a setting's request on another thread, without being counted.
  void Reply(const FrameworkCall& call) {
    const int before = t_allocations;
    if (call.As<RlsMsgAccessReq>() != nullptr) {
      std::thread([this] {
        framework.Deliver(kRearContinuous, SettingReply(RlsAccess::kRead, RlsCommand::kDeviceUid));
      }).join();
    }
    t_allocations = before;
  }
};

TEST_F(AllocationTest, CountsWhatTheLibraryTakes) {
  EXPECT_EQ(1, Allocations([] { ::operator delete(::operator new(1)); }));
  EXPECT_LE(1, Allocations([&] { api->GetAmbientLightSensorNames(); })) << "in a shared library";
}

TEST_F(AllocationTest, AUseOfTheLibraryLeavesTheHeapAsItWas) {
  const auto use = [this](int deliveries) {
    const SpectralInstance another = MakeInstance(&client);
    RunSensors(*another, deliveries);
    for (const Operation& operation : kOperations) {
      if (operation.IsSetting() || operation.kind == kNames) {
        EXPECT_EQ(HylErr::kOk, operation.Call(*another.get(), 0)) << operation.name;
      }
    }
  };
  use(1);
  const size_t before = bytes_in_use;
  for (const int deliveries : {1, 100, 10000}) {
    use(deliveries);
    EXPECT_EQ(before, bytes_in_use) << "after " << deliveries << " deliveries";
  }
}

TEST_F(AllocationTest, RequestsCostNone) {
  EXPECT_EQ(0, Allocations([&] { api->EnableAmbientLightSensor(nullptr, id, kContinuous); }));
  for (const Operation& operation : kOperations) {
    if (operation.kind != kNames) {
      EXPECT_EQ(0, Allocations([&] { operation.Call(*api.get(), id); })) << operation.name;
    }
  }
}

TEST_F(AllocationTest, SampleCostsOneAtMost) {
  api->EnableAmbientLightSensor(nullptr, id, kContinuous);
  EXPECT_GE(1, Deliver(kRearContinuous, SpectralMessage(std::vector<float>(16, 1))));
  EXPECT_GE(
      2, Deliver(kRearContinuous, EventChainMessage({{kSpectral, {1}}, {kSpectral}, {kIgnored}})));
  EXPECT_EQ(17U, client.received);
  EXPECT_EQ(0, Deliver(kRearContinuous, StatusReply(3, 0)));
  EXPECT_EQ(0, Deliver(kRearContinuous, SettingReply(RlsAccess::kRead, RlsCommand::kGain)));
}

TEST_F(AllocationTest, FlickerDataCostNone) {
  constexpr uint32_t kBytes = 480;  // long enough for the decoders' wide paths
  api->EnableFlickerSensor(nullptr, buffer.data(), buffer.size(), 16, id);
  uint32_t offset = 0;
  for (const auto width :
       {FlickerFormatSampleWidth::kUncompressed2, FlickerFormatSampleWidth::kUncompressed3,
        FlickerFormatSampleWidth::kUncompressed4, FlickerFormatSampleWidth::kCompressed1,
        FlickerFormatSampleWidth::k16BitsIn2}) {
    client.received = 0;
    EXPECT_EQ(0, Deliver(kFlicker, FlickerFormatMessage(width)));
    EXPECT_EQ(0, Deliver(kFlicker, FlickerDataMessage(std::vector<uint8_t>(kBytes, 0x81), offset)));
    offset += kBytes;
    EXPECT_LE(kBytes / 4, client.received);
  }
}

}  // namespace
}  // namespace hyl::v2::test
