// SPDX-License-Identifier: Apache-2.0
// The built library on the simulated hub: from what each kind of sensor measures, through messages
// and conversion, to what the client receives, on a clock that the tests move; and settings.

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <span>
#include <thread>
#include <utility>
#include <vector>

#include <android-base/logging.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <hyl/host/sensors.h>
#include <hyl/host/simulated_hub.h>

#include "client.h"
#include "log_capture.h"

namespace hyl::v2::test {
namespace {

using std::chrono::seconds;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using Width = FlickerFormatSampleWidth;

class EndToEndTest : public ::testing::Test {
 protected:
  EndToEndTest() {
    hub.Reset();
    hub.UseVirtualClock();
    Light(700);
    android::base::SetMinimumLogSeverity(android::base::WARNING);
  }
  ~EndToEndTest() override {
    instance.reset();
    hub.Reset();
  }
  void Light(double lux) {
    hub.SetScene({.kind = host::LightKind::kWarmLed,
                  .illuminance_lux = lux,
                  .drift_period_s = 0,
                  .pwm_hz = 1990});
  }

  host::SimulatedHub& hub = host::SimulatedHub::Instance();
  LogCapture log;
  RecordingClient client;
  SpectralInstance instance = MakeInstance(&client);
};

TEST_F(EndToEndTest, AmbientLightArrivesFromBothSensorsInBothModes) {
  std::map<uint32_t, std::vector<int64_t>> times;  // of the samples, by session
  const auto advance = [&](seconds time) {
    hub.Advance(time);
    times.clear();
    for (const SpectralCall& call : client.TakeSpectral()) {
      EXPECT_THAT(call.values, SizeIs(host::kSpectralChannelCount));
      times[call.session_id].push_back(call.timestamp);
    }
  };
  uint32_t ids[2] = {};
  EXPECT_EQ(HylErr::kOk, instance->EnableAmbientLightSensor("rear", ids[0], kContinuous));
  EXPECT_EQ(HylErr::kOk, instance->EnableAmbientLightSensor("front", ids[1], kContinuous));
  advance(seconds(2));
  for (const uint32_t id : ids) {
    ASSERT_THAT(times[id], SizeIs(20));
    for (size_t i = 0; i < times[id].size(); ++i) {
      // Some of the front sensor's times are in ticks.
      EXPECT_NEAR(1e8 * static_cast<double>(i + 1), static_cast<double>(times[id][i]), 53);
    }
    EXPECT_EQ(HylErr::kOk, instance->ChangeAmbientLightSensorReporting(id, kOnChange));
  }
  for (const double lux : {700, 640}) {
    Light(lux);
    advance(seconds(4));
    EXPECT_THAT(times[ids[0]], SizeIs(1)) << "steady light";
    EXPECT_THAT(times[ids[1]], SizeIs(1)) << "steady light";
  }
  EXPECT_EQ(HylErr::kOk, instance->ChangeAmbientLightSensorReporting(ids[0], kContinuous));
  EXPECT_EQ(HylErr::kOk, instance->DisableAmbientLightSensor(ids[1]));
  EXPECT_THAT(hub.RunningRequests(), SizeIs(1));
  advance(seconds(2));
  EXPECT_THAT(times[ids[0]], SizeIs(20));
  EXPECT_THAT(times[ids[1]], IsEmpty());
  EXPECT_THAT(log.Take(), IsEmpty());
}

constexpr size_t kChunkSamples = 240;
constexpr int kBits = 24;

class FlickerEndToEndTest : public EndToEndTest,
                            public ::testing::WithParamInterface<host::FlickerPacking> {
 protected:
  /// The blocks that came while the sensor ran. Then measured_ is what it saw.
  std::vector<FlickerCall> Run(seconds time, const host::FlickerFaults& faults) {
    hub.SetFlickerPacking(GetParam());
    hub.SetFlickerFaults(faults);
    uint32_t session = 0;
    EXPECT_EQ(HylErr::kOk, instance->EnableFlickerSensor(nullptr, buffer_.data(), buffer_.size(),
                                                         kBits, session));
    hub.Advance(time);
    EXPECT_EQ(HylErr::kOk, instance->DisableFlickerSensor(session));
    hub.Advance(time);
    measured_ = hub.FlickerHistory(kBits);
    EXPECT_GT(std::set<int32_t>(measured_.begin(), measured_.end()).size(), 100U) << "levels";
    return client.TakeFlicker();
  }

  std::vector<int32_t> buffer_ = std::vector<int32_t>(2 * kChunkSamples);
  std::vector<int32_t> measured_;
};
INSTANTIATE_TEST_SUITE_P(, FlickerEndToEndTest,
                         ::testing::Values(host::FlickerPacking{Width::kCompressed1},
                                           host::FlickerPacking{Width::k16BitsIn2, true},
                                           host::FlickerPacking{Width::k16BitsIn2, false},
                                           host::FlickerPacking{Width::kUncompressed2, true, 3, 1},
                                           host::FlickerPacking{Width::kUncompressed3, false, 0, 5},
                                           host::FlickerPacking{Width::kUncompressed4, true, 8, 8},
                                           host::FlickerPacking{Width::kUncompressed4, false, 2}));

/// Lost and unreadable chunks are gaps. Behind one, compressed-1 is off by a constant until its
/// next restart, and estimates the numbers.
TEST_P(FlickerEndToEndTest, TheWaveformArrivesSampleForSample) {
  const std::pair<seconds, host::FlickerFaults> cases[] = {
      {seconds(1), {}},
      {seconds(10), {.lose_every = 7, .unreadable_chunk = 5}},
      {seconds(10), {}}};  // from 0 again
  for (const auto& [time, faults] : cases) {
    const bool faulty = faults.lose_every != 0;
    const bool estimated = faulty && GetParam().width == Width::kCompressed1;
    const std::vector<FlickerCall> blocks = Run(time, faults);
    ASSERT_EQ(24000U * static_cast<size_t>(time.count()), measured_.size());
    auto block = blocks.begin();
    size_t next = 0;
    for (size_t chunk = 0; chunk < measured_.size() / kChunkSamples; ++chunk) {
      if (faulty && (chunk == faults.unreadable_chunk || (chunk + 1) % faults.lose_every == 0)) {
        next += kChunkSamples;
        continue;
      }
      ASSERT_NE(blocks.end(), block);
      ASSERT_EQ(chunk % 10 == 0 ? 1 : 0, block->block.restart);
      ASSERT_EQ(24000U, block->block.format_param);
      const double tolerance = estimated ? 0.05 * static_cast<double>(next) + 10 : 0;
      ASSERT_NEAR(static_cast<double>(next), block->block.seq_num, tolerance);
      const std::span samples(block->samples);
      ASSERT_FALSE(samples.empty() || next + samples.size() > measured_.size());
      const int32_t shift = estimated ? samples[0] - measured_[next] : 0;
      ASSERT_TRUE(std::ranges::equal(samples, std::span(measured_).subspan(next, samples.size()),
                                     {}, [=](int32_t sample) { return sample - shift; }));
      next += samples.size();
      ++block;
    }
    EXPECT_EQ(blocks.end(), block);
    EXPECT_THAT(log.Take(), SizeIs(faulty ? 1 : 0)) << "the unreadable chunk";
  }
}

/// On a real clock. The hub answers late and out of order.
class ReplyFaultsTest : public testing::Test {
 protected:
  ReplyFaultsTest() {
    hub_.Reset();
    hub_.SetReplyFaults({.max_delay = std::chrono::microseconds(200), .reorder = true});
  }
  ~ReplyFaultsTest() override {
    api_.reset();
    hub_.Reset();
  }

  /// Writes that nobody waits for, and a read of what one of them wrote. Only one thread may use
  /// each `reg`, which four registers follow.
  void WriteAndRead(uint8_t reg, uint8_t round) {
    for (uint8_t i = 0; i < 5; ++i) {
      EXPECT_EQ(HylErr::kOk, api_->SetRegister(nullptr, static_cast<uint8_t>(reg + i),
                                               static_cast<uint8_t>(round + i)));
    }
    uint8_t read = 0;
    const auto third = static_cast<uint8_t>(reg + 2);
    CheckInTime([&] { EXPECT_EQ(HylErr::kOk, api_->GetRegister(nullptr, third, &read)); },
                [&] { EXPECT_EQ(static_cast<uint8_t>(round + 2), read); });
  }
  void ChangeExposure(uint8_t round) {
    const uint32_t time = 100 * (round + 1U);
    uint32_t applied = 0;
    CheckInTime([&] { EXPECT_EQ(HylErr::kOk, api_->SetExposureTime(nullptr, time, &applied)); },
                [&] { EXPECT_EQ(time, applied); });
  }
  void ReadUid() {
    uint64_t uid = 0;
    EXPECT_EQ(HylErr::kOk, api_->GetDeviceUid(nullptr, &uid));
    EXPECT_EQ(host::kDeviceUid, uid);
  }

  host::SimulatedHub& hub_ = host::SimulatedHub::Instance();
  SpectralInstance api_ = MakeInstance(nullptr);
};

TEST_F(ReplyFaultsTest, ConcurrentCallsGetTheirOwnValues) {
  const std::function<void(uint8_t)> work[] = {[&](uint8_t round) { WriteAndRead(0x40, round); },
                                               [&](uint8_t round) { WriteAndRead(0x50, round); },
                                               [&](uint8_t round) { ChangeExposure(round); },
                                               [&](uint8_t) { ReadUid(); }};
  std::vector<std::jthread> threads;  // joined at its end
  for (const auto& each : work) {
    threads.emplace_back([&each] {
      for (uint8_t round = 0; round < 100; ++round) {
        each(round);
      }
    });
  }
}

}  // namespace
}  // namespace hyl::v2::test
