// Memory stays flat however many messages come. A program of plain builds alone.

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#error "Sanitizers take memory by the message; resident size says nothing about the library."
#endif

#include <malloc.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <fstream>

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

class MemoryTest : public ::testing::Test, private HylSpectralApiCallbackInterface {
 protected:
  MemoryTest() {
    android::base::SetMinimumLogSeverity(android::base::FATAL);  // drops would flood the log
    EXPECT_EQ(HylErr::kOk, instance->EnableAmbientLightSensor("Front", id, kContinuous));
    EXPECT_EQ(HylErr::kOk, instance->EnableFlickerSensor("", buffer, std::size(buffer), 16, id));
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

  /// Delivers `count` messages from each sensor. The front and the flicker sensor stream; the rear
  /// one is started and stopped again and again.
  void Flood(uint64_t count) {
    for (uint64_t i = 0; i < count; ++i) {
      if (i % 1000 == 0) {
        StartAndStopRear();
      }
      for (const DataWay& way : kDataWays) {
        way.deliver(*framework.CallbacksOf(way.handle));
      }
    }
  }

  LogCapture log;  // brings the severity back
  ScriptedFramework framework;
  uint64_t received = 0;
  int buffer[64] = {};
  uint32_t id = 0;
  Instance instance{this};
};

TEST_F(MemoryTest, IsFlatFromAMillionMessagesToTen) {
  Flood(kThirdOfAMillion);
  const size_t few = ResidentSize();
  Flood(9 * kThirdOfAMillion);
  EXPECT_LE(ResidentSize(), few + kMiB);
  EXPECT_LE(20 * kThirdOfAMillion, received) << "all of two sensors, and some of the third";
}

}  // namespace
}  // namespace hyl::v2::test
