// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

#include <gtest/gtest.h>
#include <hyl/hyl_spectral_api.h>

namespace hyl::v2::test {

/// Room for what the operations hand back, at first full of values that the tests' replies do not
/// have.
struct Outs {
  bool flag = true;
  uint8_t byte = 0xEE;
  uint16_t half = 0xEEEE;
  uint32_t word = 0xEEEEEEEE;
  uint64_t uid = 0xEEEEEEEEEEEEEEEE;
  float gain = -1;
  FlickerFrequencyMetrics metrics = {0xEEEE, 0xEEEE, 0xEEEE, 0xEE};

  friend bool operator==(const Outs& a, const Outs& b) {
    return a.flag == b.flag && a.byte == b.byte && a.half == b.half && a.word == b.word &&
           a.uid == b.uid && a.gain == b.gain && a.metrics.metric0 == b.metrics.metric0 &&
           a.metrics.metric1 == b.metrics.metric1 && a.metrics.saturation == b.metrics.saturation &&
           a.metrics.metric_byte == b.metrics.metric_byte;
  }
};

enum class OperationKind {
  kNames,  ///< of sensors
  kSupport,
  kSessionName,
  kEnableLight,
  kEnableFlicker,
  kChange,
  kDisable,
  kSet,  ///< writes a setting and does not wait
  kAsk,  ///< reads or writes a setting and waits
};

/// One call of a public operation, with arguments that suit the scripted framework's sensors. What
/// takes a session takes `session`. Operations that return something else than a HylErr give
/// kNotFound when that is empty or false.
struct Operation {
  const char* name;
  OperationKind kind;
  HylErr (*call_with)(HylSpectralApi& api, uint32_t session, Outs& out);

  /// The result. Out values must stay as they are when the call fails.
  HylErr Call(HylSpectralApi& api, uint32_t session) const {
    Outs out;
    const HylErr err = call_with(api, session, out);
    EXPECT_TRUE(err == HylErr::kOk || out == Outs()) << name;
    return err;
  }
  bool IsControl() const {
    using enum OperationKind;
    return kind == kEnableLight || kind == kEnableFlicker || kind == kChange || kind == kDisable;
  }
  bool IsSetting() const { return kind == OperationKind::kSet || kind == OperationKind::kAsk; }
};

inline HylErr FoundIf(bool found) {
  return found ? HylErr::kOk : HylErr::kNotFound;
}

using enum OperationKind;

/// Every operation of the interface, in the order of their slots.
inline constexpr Operation kOperations[] = {
    {"GetAmbientLightSensorNames", kNames,
     [](auto& api, auto, auto&) { return FoundIf(!api.GetAmbientLightSensorNames().empty()); }},
    {"GetFlickerSensorNames", kNames,
     [](auto& api, auto, auto&) { return FoundIf(!api.GetFlickerSensorNames().empty()); }},
    {"GetSensorName", kSessionName,
     [](auto& api, auto session, auto&) { return FoundIf(!api.GetSensorName(session).empty()); }},
    {"EnableAmbientLightSensor", kEnableLight,
     [](auto& api, auto, auto& out) {
       return api.EnableAmbientLightSensor(nullptr, out.word, SensorReportingMode::kOnChange);
     }},
    {"ChangeAmbientLightSensorReporting", kChange,
     [](auto& api, auto session, auto&) {
       return api.ChangeAmbientLightSensorReporting(session, SensorReportingMode::kOnChange);
     }},
    {"EnableFlickerSensor", kEnableFlicker,
     [](auto& api, auto, auto& out) {
       return api.EnableFlickerSensor(nullptr, nullptr, 0, 16, out.word);
     }},
    {"DisableAmbientLightSensor", kDisable,
     [](auto& api, auto session, auto&) { return api.DisableAmbientLightSensor(session); }},
    {"DisableFlickerSensor", kDisable,
     [](auto& api, auto session, auto&) { return api.DisableFlickerSensor(session); }},
    {"GetFlickerAutoGainEnabled", kAsk,
     [](auto& api, auto, auto& out) { return api.GetFlickerAutoGainEnabled("x", &out.flag); }},
    {"GetFlickerConfig", kAsk,
     [](auto& api, auto, auto& out) { return api.GetFlickerConfig("", &out.word, &out.gain); }},
    {"GetFlickerFrequencyMetrics", kAsk,
     [](auto& api, auto, auto& out) {
       return api.GetFlickerFrequencyMetrics(nullptr, &out.metrics);
     }},
    {"GetFlickerSaturation", kAsk,
     [](auto& api, auto, auto& out) { return api.GetFlickerSaturation(nullptr, &out.half); }},
    {"GetRegister", kAsk,
     [](auto& api, auto, auto& out) { return api.GetRegister(nullptr, 0x21, &out.byte); }},
    {"GetSpectralAutoGainEnabled", kAsk,
     [](auto& api, auto, auto& out) { return api.GetSpectralAutoGainEnabled(nullptr, &out.flag); }},
    {"GetSpectralApplyFacCal", kAsk,
     [](auto& api, auto, auto& out) { return api.GetSpectralApplyFacCal(nullptr, &out.flag); }},
    {"GetSpectralApplyOtpCal", kAsk,
     [](auto& api, auto, auto& out) { return api.GetSpectralApplyOtpCal(nullptr, &out.flag); }},
    {"GetDeviceUid", kAsk,
     [](auto& api, auto, auto& out) { return api.GetDeviceUid(nullptr, &out.uid); }},
    {"IsSensorSupported", kSupport,
     [](auto& api, auto, auto&) {
       return FoundIf(api.IsSensorSupported(OpticalSensorType::kAnyOptical, "Rear"));
     }},
    {"SetExposureTime", kAsk,
     [](auto& api, auto, auto& out) { return api.SetExposureTime("", 0x01020304, &out.word); }},
    {"SetFlickerAutoGainEnabled", kSet,
     [](auto& api, auto, auto&) { return api.SetFlickerAutoGainEnabled(nullptr, true); }},
    {"SetFlickerChannel", kSet,
     [](auto& api, auto, auto&) { return api.SetFlickerChannel(nullptr, 0x12, 0x34); }},
    {"SetFlickerPedestal", kSet,
     [](auto& api, auto, auto&) { return api.SetFlickerPedestal("no such sensor", 0x12); }},
    {"SetGain", kAsk,
     [](auto& api, auto, auto& out) { return api.SetGain(nullptr, 3, 2.5F, &out.gain); }},
    {"SetRegister", kSet,
     [](auto& api, auto, auto&) { return api.SetRegister(nullptr, 0x12, 0x34); }},
    {"SetSamplingPeriod", kAsk,
     [](auto& api, auto, auto& out) { return api.SetSamplingPeriod("", 0xA1A2A3A4, &out.word); }},
    {"SetSpectralAutoGainEnabled", kSet,
     [](auto& api, auto, auto&) { return api.SetSpectralAutoGainEnabled(nullptr, true); }},
    {"SetSpectralApplyFacCalEnabled", kSet,
     [](auto& api, auto, auto&) { return api.SetSpectralApplyFacCalEnabled(nullptr, true); }},
    {"SetSpectralApplyOtpCalEnabled", kSet,
     [](auto& api, auto, auto&) { return api.SetSpectralApplyOtpCalEnabled(nullptr, true); }},
    {"SetTorchLightState", kSet,
     [](auto& api, auto, auto&) { return api.SetTorchLightState(nullptr, true); }},
};

}  // namespace hyl::v2::test
