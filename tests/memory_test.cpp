// Memory stays flat however many messages come. A program of plain builds alone.

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#error "Sanitizers take memory by the message; resident size says nothing about the library."
#endif

#include <malloc.h>
#include <unistd.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <fstream>
#include <future>

#include "library_test.h"

namespace hyl::v2::test {
namespace {

constexpr uint64_t kThirdOfAMillion = 333'334;  // messages, of each of three sensors
constexpr size_t kMiB = 1U << 20;

/// Of the process, in bytes, without what the heap keeps for later.
size_t ResidentSize() {
  malloc_trim(0);
  size_t total = 0;
  size_t resident = 0;
  std::ifstream("/proc/self/statm") >> total >> resident;
  return resident * static_cast<size_t>(sysconf(_SC_PAGESIZE));
}

/// The front and the flicker sensor stream; the rear one is started and stopped all the time.
class MemoryTest : public ::testing::Test, private HylSpectralApiCallbackInterface {
 protected:
  MemoryTest() {
    android::base::SetMinimumLogSeverity(android::base::FATAL);  // drops would flood the log
    EXPECT_EQ(HylErr::kOk, instance->EnableAmbientLightSensor("Front", id, kContinuous));
    EXPECT_EQ(HylErr::kOk, instance->EnableFlickerSensor("", buffer, std::size(buffer), 16, id));
    framework.Deliver(kFlicker, FlickerFormatMessage(FlickerFormatSampleWidth::kUncompressed2));
    StartAndStopRear();
  }

  void OnSpectralData(uint32_t, uint32_t, const Vector<float>&, int64_t) override { ++received; }
  void OnFlickerData(uint32_t, const FlickerSampleBlock*) override { ++received; }

  void StartAndStopRear() {
    EXPECT_EQ(HylErr::kOk, instance->EnableAmbientLightSensor("Rear", id, kContinuous));
    EXPECT_EQ(HylErr::kOk, instance->ChangeAmbientLightSensorReporting(id, kOnChange));
    EXPECT_EQ(HylErr::kOk, instance->DisableAmbientLightSensor(id));
    EXPECT_EQ(HylErr::kOk, instance->SetTorchLightState(nullptr, true));
    framework.Deliver(kRearContinuous, SettingReply(RlsAccess::kWrite, RlsCommand::kTorchLight));
    framework.Take();
  }

  /// Delivers `count` messages from each sensor, side by side.
  void Flood(uint64_t count) {
    const SpectralMessage sample(std::vector<float>(16, 1));
    const EventChainMessage events({{kIgnored}, {kSpectral, {1, 2}}});
    const FlickerDataMessage data(std::vector<uint8_t>(16, 0x81));
    std::atomic<int> busy{3};
    const auto pour = [&](uint32_t handle, const Message& message) {
      return std::async(std::launch::async, [&, handle] {
        const ScriptedFramework::Callbacks object = framework.CallbacksOf(handle);
        for (uint64_t i = 0; i < count; ++i) {
          object->OnResponse(&message);
        }
        --busy;
      });
    };
    const std::future<void> all[] = {pour(kRearContinuous, sample), pour(kFrontContinuous, events),
                                     pour(kFlicker, data)};
    while (busy != 0) {
      StartAndStopRear();
    }
  }

  LogCapture log;  // brings the severity back
  ScriptedFramework framework;
  std::atomic<uint64_t> received{0};
  int buffer[64] = {};
  uint32_t id = 0;
  Instance instance{this};
};

TEST_F(MemoryTest, IsFlatFromAMillionMessagesToTen) {
  Flood(kThirdOfAMillion);
  const size_t few = ResidentSize();
  Flood(9 * kThirdOfAMillion);
  EXPECT_LE(ResidentSize(), few + kMiB);
  EXPECT_LT(20 * kThirdOfAMillion, received) << "all of two sensors, and some of the third";
}

}  // namespace
}  // namespace hyl::v2::test
