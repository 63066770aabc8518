#pragma once

#include <cstdint>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "instance.h"
#include "log_capture.h"
#include "recording_client.h"
#include "scripted_api.h"

namespace hyl::v2::test {

inline constexpr auto kContinuous = SensorReportingMode::kContinuous;
inline constexpr auto kOnChange = SensorReportingMode::kOnChange;

/// An instance on the scripted framework.
class LibraryTest : public ::testing::Test {
 protected:
  /// The session id of a sensor that can be enabled.
  uint32_t Enable(const char* name, SensorReportingMode mode = kContinuous) {
    uint32_t id = 0;
    EXPECT_EQ(HylErr::kOk, instance->EnableAmbientLightSensor(name, id, mode));
    return id;
  }
  uint32_t EnableFlicker() {
    uint32_t id = 0;
    EXPECT_EQ(HylErr::kOk,
              instance->EnableFlickerSensor(nullptr, buffer, std::size(buffer), 16, id));
    return id;
  }

  LogCapture log;
  ScriptedApi framework;
  RecordingClient client;
  int buffer[64] = {};
  Instance instance{&client};
};

}  // namespace hyl::v2::test
