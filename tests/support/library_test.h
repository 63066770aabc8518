// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "client.h"
#include "framework.h"
#include "gate.h"
#include "log_capture.h"

namespace hyl::v2::test {

/// An instance on the scripted framework.
class LibraryTest : public ::testing::Test {
 protected:
  /// The session id of a sensor that can be enabled.
  uint32_t Enable(const char* name, SensorReportingMode mode = kContinuous) {
    uint32_t id = 0;
    EXPECT_EQ(HylErr::kOk, instance->EnableAmbientLightSensor(name, id, mode));
    return id;
  }
  uint32_t EnableFlicker(const char* name = nullptr) {
    uint32_t id = 0;
    EXPECT_EQ(HylErr::kOk, instance->EnableFlickerSensor(name, buffer, std::size(buffer), 16, id));
    return id;
  }
  /// Lists these sensors alone.
  void ListSensors(std::vector<SensorListEntry> sensors) {
    sensors.push_back(MakeEntry(kListMarker, "marker"));
    framework.SetSensorList(std::move(sensors));
  }

  LogCapture log;
  ScriptedFramework framework;
  RecordingClient client;
  int buffer[64] = {};
  SpectralInstance instance = MakeInstance(&client);
};

}  // namespace hyl::v2::test
