#pragma once

#include <cstdint>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "framework.h"
#include "gate.h"
#include "instance.h"
#include "log_capture.h"
#include "recording_client.h"

namespace hyl::v2::test {

inline constexpr auto kContinuous = SensorReportingMode::kContinuous;
inline constexpr auto kOnChange = SensorReportingMode::kOnChange;

struct Field {
  size_t offset;  ///< counted from the request's table pointer
  size_t width;
  uint64_t value;
};

/// A request of `size` bytes, without its table pointer: zero but for the fields.
inline std::vector<uint8_t> RequestBytes(size_t size, const std::vector<Field>& fields) {
  std::vector<uint8_t> bytes(size);
  for (const Field& field : fields) {
    for (size_t i = 0; i < field.width; ++i) {
      bytes.at(field.offset + i) = static_cast<uint8_t>(field.value >> (8 * i));
    }
  }
  bytes.erase(bytes.begin(), bytes.begin() + 8);
  return bytes;
}

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
  ScriptedFramework framework;
  RecordingClient client;
  int buffer[64] = {};
  Instance instance{&client};
};

}  // namespace hyl::v2::test
