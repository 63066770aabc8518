#include "settings.h"

#include <android-base/stringprintf.h>

#include <cinttypes>

#include "context.h"
#include "result_text.h"

namespace hyl::v2::tool {
namespace {

using Api = HylSpectralApi;
using Numbers = SettingNumbers;
using Answer = SettingAnswer;

// The operations do not consult the sensor's name.
constexpr const char* kNoName = nullptr;

uint8_t Byte(double number) {
  return static_cast<uint8_t>(number);
}

uint32_t Word(double number) {
  return static_cast<uint32_t>(number);
}

template <HylErr (Api::*kGet)(const char*, bool*)>
Answer ReadSwitch(Api& api, const Numbers&) {
  bool enabled = false;
  const HylErr result = (api.*kGet)(kNoName, &enabled);
  return {result, {{"", enabled}}};
}

/// Writes that do not wait hand nothing back.
template <HylErr (Api::*kSet)(const char*, bool)>
Answer WriteSwitch(Api& api, const Numbers& numbers) {
  return {(api.*kSet)(kNoName, numbers[0] != 0), {}};
}

template <HylErr (Api::*kSet)(const char*, uint32_t, uint32_t*)>
Answer WriteWord(Api& api, const Numbers& numbers) {
  uint32_t applied = 0;
  const HylErr result = (api.*kSet)(kNoName, Word(numbers[0]), &applied);
  return {result, {{"", uint64_t{applied}}}};
}

Answer WriteGain(Api& api, const Numbers& numbers) {
  float applied = 0;
  const HylErr result =
      api.SetGain(kNoName, Byte(numbers[0]), static_cast<float>(numbers[1]), &applied);
  return {result, {{"", applied}}};
}

Answer ReadFlickerConfig(Api& api, const Numbers&) {
  uint32_t value = 0;
  float gain = 0;
  const HylErr result = api.GetFlickerConfig(kNoName, &value, &gain);
  return {result, {{"value", uint64_t{value}}, {"gain", gain}}};
}

Answer ReadFlickerMetrics(Api& api, const Numbers&) {
  FlickerFrequencyMetrics metrics = {};
  const HylErr result = api.GetFlickerFrequencyMetrics(kNoName, &metrics);
  return {result,
          {{"metric0", uint64_t{metrics.metric0}},
           {"metric1", uint64_t{metrics.metric1}},
           {"saturation", uint64_t{metrics.saturation}},
           {"metric-byte", uint64_t{metrics.metric_byte}}}};
}

Answer ReadFlickerSaturation(Api& api, const Numbers&) {
  uint16_t saturation = 0;
  const HylErr result = api.GetFlickerSaturation(kNoName, &saturation);
  return {result, {{"", uint64_t{saturation}}}};
}

Answer ReadRegister(Api& api, const Numbers& numbers) {
  uint8_t value = 0;
  const HylErr result = api.GetRegister(kNoName, Byte(numbers[0]), &value);
  return {result, {{"", uint64_t{value}}}};
}

Answer WriteRegister(Api& api, const Numbers& numbers) {
  return {api.SetRegister(kNoName, Byte(numbers[0]), Byte(numbers[1])), {}};
}

Answer ReadDeviceUid(Api& api, const Numbers&) {
  uint64_t uid = 0;
  const HylErr result = api.GetDeviceUid(kNoName, &uid);
  // As text: a number of 64 bits is more than many readers of JSON keep.
  return {result, {{"", android::base::StringPrintf("0x%016" PRIX64, uid)}}};
}

Answer WriteFlickerChannel(Api& api, const Numbers& numbers) {
  return {api.SetFlickerChannel(kNoName, Byte(numbers[0]), Byte(numbers[1])), {}};
}

Answer WriteFlickerPedestal(Api& api, const Numbers& numbers) {
  return {api.SetFlickerPedestal(kNoName, Byte(numbers[0])), {}};
}

std::vector<SettingArgument> OnOff() {
  return {{"on|off", ArgumentKind::kSwitch}};
}

SettingAccess Nothing() {
  return {nullptr, {}};
}

std::vector<Setting> LightSettings() {
  return {
      {"exposure-time",
       "exposure time of the ambient-light sensors",
       Nothing(),
       {WriteWord<&Api::SetExposureTime>, {{"TIME", ArgumentKind::kWord}}}},
      {"sampling-period",
       "time from sample to sample",
       Nothing(),
       {WriteWord<&Api::SetSamplingPeriod>, {{"PERIOD", ArgumentKind::kWord}}}},
      {"gain",
       "gain of what the device's parameter A selects",
       Nothing(),
       {WriteGain, {{"A", ArgumentKind::kByte}, {"GAIN", ArgumentKind::kReal}}}},
      {"spectral-auto-gain",
       "whether the ambient-light sensors choose their gain",
       {ReadSwitch<&Api::GetSpectralAutoGainEnabled>, {}},
       {WriteSwitch<&Api::SetSpectralAutoGainEnabled>, OnOff()}},
      {"factory-calibration",
       "whether the factory calibration is applied",
       {ReadSwitch<&Api::GetSpectralApplyFacCal>, {}},
       {WriteSwitch<&Api::SetSpectralApplyFacCalEnabled>, OnOff()}},
      {"otp-calibration",
       "whether the one-time-programmed calibration is applied",
       {ReadSwitch<&Api::GetSpectralApplyOtpCal>, {}},
       {WriteSwitch<&Api::SetSpectralApplyOtpCalEnabled>, OnOff()}},
      {"torch", "the torch light", Nothing(), {WriteSwitch<&Api::SetTorchLightState>, OnOff()}},
  };
}

std::vector<Setting> FlickerSettings() {
  return {
      {"flicker-auto-gain",
       "whether the flicker sensor chooses its gain",
       {ReadSwitch<&Api::GetFlickerAutoGainEnabled>, {}},
       {WriteSwitch<&Api::SetFlickerAutoGainEnabled>, OnOff()}},
      {"flicker-channel",
       "the channel that the flicker sensor looks through",
       Nothing(),
       {WriteFlickerChannel, {{"A", ArgumentKind::kByte}, {"B", ArgumentKind::kByte}}}},
      {"flicker-pedestal",
       "level that is taken off flicker samples",
       Nothing(),
       {WriteFlickerPedestal, {{"LEVEL", ArgumentKind::kByte}}}},
      {"flicker-config",
       "flicker configuration value, and flicker gain",
       {ReadFlickerConfig, {}},
       Nothing()},
      {"flicker-frequency",
       "the sensor's own analysis of flicker",
       {ReadFlickerMetrics, {}},
       Nothing()},
      {"flicker-saturation",
       "saturation count of the flicker sensor",
       {ReadFlickerSaturation, {}},
       Nothing()},
  };
}

std::vector<Setting> DeviceSettings() {
  return {
      {"register",
       "the sensor register of that address",
       {ReadRegister, {{"ADDRESS", ArgumentKind::kByte}}},
       {WriteRegister, {{"ADDRESS", ArgumentKind::kByte}, {"VALUE", ArgumentKind::kByte}}}},
      {"device-uid", "the device's unique id", {ReadDeviceUid, {}}, Nothing()},
  };
}

std::vector<Setting> MakeSettings() {
  std::vector<Setting> settings;
  for (const auto& group : {LightSettings(), FlickerSettings(), DeviceSettings()}) {
    settings.insert(settings.end(), group.begin(), group.end());
  }
  return settings;
}

/// Only writes of one number, or of a number after a selector, are answered with what was applied.
void NoteOtherValue(const SettingWrite& write, const SettingAnswer& answer) {
  for (const SettingValue& value : answer.values) {
    const float* const real = std::get_if<float>(&value.value);
    const double applied = real != nullptr ? static_cast<double>(*real)
                                           : static_cast<double>(std::get<uint64_t>(value.value));
    const double asked = write.numbers.back();
    if (applied != asked) {
      PrintNotice(android::base::StringPrintf("%s is %.9g, not %.9g as asked for",
                                              write.setting->name, applied, asked));
    }
  }
}

void NoteAutomaticGain(Api& api, OpticalSensorType type) {
  const bool flicker = type == OpticalSensorType::kFlicker;
  bool automatic = false;
  const HylErr result = flicker ? api.GetFlickerAutoGainEnabled(kNoName, &automatic)
                                : api.GetSpectralAutoGainEnabled(kNoName, &automatic);
  if (result == HylErr::kOk && automatic) {
    PrintNotice(std::string("automatic gain is on and overrides the gain; add --set ") +
                (flicker ? "flicker" : "spectral") + "-auto-gain=off");
  }
}

}  // namespace

SettingAnswer ReadSetting(HylSpectralApi& api, const Setting& setting,
                          const SettingNumbers& numbers) {
  SettingAnswer answer = setting.read.run(api, numbers);
  Require(answer.result, std::string("cannot read '") + setting.name + "'");
  return answer;
}

SettingAnswer WriteSetting(HylSpectralApi& api, const SettingWrite& write) {
  SettingAnswer answer = write.setting->write.run(api, write.numbers);
  Require(answer.result, std::string("cannot write '") + write.setting->name + "'");
  return answer;
}

void WriteSettings(HylSpectralApi& api, std::span<const SettingWrite> writes,
                   OpticalSensorType type) {
  bool gain_written = false;
  for (const SettingWrite& write : writes) {
    NoteOtherValue(write, WriteSetting(api, write));
    gain_written = gain_written || write.setting->write.run == WriteGain;
  }
  if (gain_written) {
    NoteAutomaticGain(api, type);
  }
}

std::span<const Setting> AllSettings() {
  static const std::vector<Setting> settings = MakeSettings();
  return settings;
}

}  // namespace hyl::v2::tool
