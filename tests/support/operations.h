#pragma once

#include <array>
#include <cstdint>
#include <cstring>
#include <iterator>

#include <gtest/gtest.h>
#include <hyl/hyl_spectral_api.h>

namespace hyl::v2::test {

/// One call of a public operation, with arguments that suit the scripted framework's sensors. What
/// takes a session takes `session`. Operations that return something else than a HylErr give
/// kNotFound when that is empty or false.
struct Operation {
  enum class Kind { kOther, kSetting, kSettingThatWaits };

  const char* name;
  Kind kind;
  HylErr (*call)(HylSpectralApi& api, uint32_t session);
};

/// Calls with room for a value, which must stay as it is when the call fails.
template <typename T, typename Call>
HylErr KeepsOnFailure(Call call) {
  std::array<unsigned char, sizeof(T)> before;
  before.fill(1);
  T value;
  std::memcpy(&value, before.data(), sizeof(T));
  const HylErr err = call(&value);
  std::array<unsigned char, sizeof(T)> after;
  std::memcpy(after.data(), &value, sizeof(T));
  EXPECT_TRUE(err == HylErr::kOk || before == after);
  return err;
}

template <typename T>
HylErr ReadValue(HylSpectralApi& api, HylErr (HylSpectralApi::*read)(const char*, T*)) {
  return KeepsOnFailure<T>([&](T* out) { return (api.*read)(nullptr, out); });
}

inline HylErr FoundIf(bool found) {
  return found ? HylErr::kOk : HylErr::kNotFound;
}

#define HYL_ROW(kind, name, expression)                                                       \
  {                                                                                           \
#name, Operation::Kind::kind,                                                             \
        [](HylSpectralApi & api, [[maybe_unused]] uint32_t session) -> HylErr { expression; } \
  }
#define HYL_OTHER(name, expression) HYL_ROW(kOther, name, expression)
#define HYL_READ(name) \
  HYL_ROW(kSettingThatWaits, name, return ReadValue(api, &HylSpectralApi::name))
#define HYL_SETTING(name, expression) HYL_ROW(kSetting, name, expression)
#define HYL_WAITS(name, expression) HYL_ROW(kSettingThatWaits, name, expression)

/// Every operation of the interface, in the order of their slots.
inline constexpr Operation kOperations[] = {
    HYL_OTHER(GetAmbientLightSensorNames,
              return FoundIf(!api.GetAmbientLightSensorNames().empty())),
    HYL_OTHER(GetFlickerSensorNames, return FoundIf(!api.GetFlickerSensorNames().empty())),
    HYL_OTHER(GetSensorName, return FoundIf(!api.GetSensorName(session).empty())),
    HYL_OTHER(EnableAmbientLightSensor, uint32_t id = 0;
              return api.EnableAmbientLightSensor(nullptr, id, SensorReportingMode::kOnChange)),
    HYL_OTHER(ChangeAmbientLightSensorReporting, return api.ChangeAmbientLightSensorReporting(
                                                     session, SensorReportingMode::kOnChange)),
    HYL_OTHER(EnableFlickerSensor, uint32_t id = 0;
              return api.EnableFlickerSensor(nullptr, nullptr, 0, 16, id)),
    HYL_OTHER(DisableAmbientLightSensor, return api.DisableAmbientLightSensor(session)),
    HYL_OTHER(DisableFlickerSensor, return api.DisableFlickerSensor(session)),
    HYL_READ(GetFlickerAutoGainEnabled),
    HYL_WAITS(GetFlickerConfig, return KeepsOnFailure<float>([&](auto* gain) {
                return KeepsOnFailure<uint32_t>(
                    [&](auto* out) { return api.GetFlickerConfig(nullptr, out, gain); });
              })),
    HYL_READ(GetFlickerFrequencyMetrics),
    HYL_READ(GetFlickerSaturation),
    HYL_WAITS(GetRegister, return KeepsOnFailure<uint8_t>(
                               [&](auto* out) { return api.GetRegister(nullptr, 1, out); })),
    HYL_READ(GetSpectralAutoGainEnabled),
    HYL_READ(GetSpectralApplyFacCal),
    HYL_READ(GetSpectralApplyOtpCal),
    HYL_READ(GetDeviceUid),
    HYL_OTHER(IsSensorSupported,
              return FoundIf(api.IsSensorSupported(OpticalSensorType::kAnyOptical, "Rear"))),
    HYL_WAITS(SetExposureTime, return KeepsOnFailure<uint32_t>([&](auto* out) {
                return api.SetExposureTime(nullptr, 1, out);
              })),
    HYL_SETTING(SetFlickerAutoGainEnabled, return api.SetFlickerAutoGainEnabled(nullptr, true)),
    HYL_SETTING(SetFlickerChannel, return api.SetFlickerChannel(nullptr, 1, 2)),
    HYL_SETTING(SetFlickerPedestal, return api.SetFlickerPedestal(nullptr, 1)),
    HYL_WAITS(SetGain, return KeepsOnFailure<float>(
                           [&](auto* out) { return api.SetGain(nullptr, 0, 2, out); })),
    HYL_SETTING(SetRegister, return api.SetRegister(nullptr, 1, 2)),
    HYL_WAITS(SetSamplingPeriod, return KeepsOnFailure<uint32_t>([&](auto* out) {
                return api.SetSamplingPeriod(nullptr, 1, out);
              })),
    HYL_SETTING(SetSpectralAutoGainEnabled, return api.SetSpectralAutoGainEnabled(nullptr, true)),
    HYL_SETTING(SetSpectralApplyFacCalEnabled,
                return api.SetSpectralApplyFacCalEnabled(nullptr, true)),
    HYL_SETTING(SetSpectralApplyOtpCalEnabled,
                return api.SetSpectralApplyOtpCalEnabled(nullptr, true)),
    HYL_SETTING(SetTorchLightState, return api.SetTorchLightState(nullptr, true)),
};

#undef HYL_WAITS
#undef HYL_SETTING
#undef HYL_READ
#undef HYL_OTHER
#undef HYL_ROW

}  // namespace hyl::v2::test
