// SPDX-License-Identifier: Apache-2.0
// A regression test from a recording: what a client makes of a warm LED that was recorded with
// hyl-spectral record warm_led.ndjson rear --seconds 0.55
#include <chrono>
#include <memory>
#include <span>

#include <gtest/gtest.h>
#include <hyl/host/replay.h>
#include <hyl/spectral_client.h>

using namespace hyl::v2;

/// Tells warm light, which has more red than blue.
class WarmthMeter {
 public:
  bool Start() {
    return client_.EnableAmbientLight("rear", SensorReportingMode::kContinuous, session_) ==
           HylErr::kOk;
  }
  int samples() const { return samples_; }
  float red_to_blue() const { return red_to_blue_; }

 private:
  void Take(std::span<const float> values) {
    if (values.size() >= 9 && values[2] > 0) {
      ++samples_;
      red_to_blue_ = values[7] / values[2];
    }
  }

  int samples_ = 0;
  float red_to_blue_ = 0;
  SpectralClient client_{{.ambient_light = [this](auto values, auto) { Take(values); }}};
  std::unique_ptr<AmbientLightSession> session_;
};

TEST(WarmthMeterTest, SeesThatTheRecordedLightIsWarm) {
  host::Replay replay(RECORDINGS "/warm_led.ndjson");  // outlives the client
  WarmthMeter meter;
  ASSERT_TRUE(meter.Start());

  replay.Advance(std::chrono::milliseconds(101));
  EXPECT_EQ(meter.samples(), 1);
  EXPECT_FLOAT_EQ(meter.red_to_blue(), 5473.055F / 906.7411F);

  replay.Advance(std::chrono::seconds(1));
  EXPECT_EQ(meter.samples(), 5);
  EXPECT_GT(meter.red_to_blue(), 5);
}
