// SPDX-License-Identifier: Apache-2.0
#include "settings.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <iterator>
#include <memory>

#include <fmt/format.h>

#include "client.h"
#include "command.h"
#include "errors.h"

namespace hyl::v2::tool {
namespace {

using Api = HylSpectralApi;
using Kind = SettingArgument::Kind;
using Words = std::vector<std::string>;

constexpr const char* kNoName = nullptr;  // the operations do not consult the sensor's name

template <typename T, HylErr (Api::*kGet)(const char*, T*)>
HylErr Read(Api& api, const Values&, Json& result) {
  T value{};
  const HylErr err = (api.*kGet)(kNoName, &value);
  result = value;
  return err;
}

template <typename T, HylErr (Api::*kSet)(const char*, T)>
HylErr Write(Api& api, const Values& values, Json&) {
  return (api.*kSet)(kNoName, values[0].get<T>());
}

template <HylErr (Api::*kSet)(const char*, uint8_t, uint8_t)>
HylErr WriteBytes(Api& api, const Values& values, Json&) {
  return (api.*kSet)(kNoName, values[0], values[1]);
}

template <HylErr (Api::*kSet)(const char*, uint32_t, uint32_t*)>
HylErr WriteWord(Api& api, const Values& values, Json& result) {
  uint32_t applied = 0;
  const HylErr err = (api.*kSet)(kNoName, values[0], &applied);
  result = applied;
  return err;
}

HylErr WriteGain(Api& api, const Values& values, Json& result) {
  float applied = 0;
  const HylErr err = api.SetGain(kNoName, values[0], values[1], &applied);
  result = applied;
  return err;
}

HylErr ReadFlickerConfig(Api& api, const Values&, Json& result) {
  uint32_t value = 0;
  float gain = 0;
  const HylErr err = api.GetFlickerConfig(kNoName, &value, &gain);
  result = {{"value", value}, {"gain", gain}};
  return err;
}

HylErr ReadFlickerMetrics(Api& api, const Values&, Json& result) {
  FlickerFrequencyMetrics metrics = {};
  const HylErr err = api.GetFlickerFrequencyMetrics(kNoName, &metrics);
  result = {{"metric0", metrics.metric0},
            {"metric1", metrics.metric1},
            {"saturation", metrics.saturation},
            {"metric-byte", metrics.metric_byte}};
  return err;
}

HylErr ReadRegister(Api& api, const Values& values, Json& result) {
  uint8_t content = 0;
  const HylErr err = api.GetRegister(kNoName, values[0], &content);
  result = content;
  return err;
}

HylErr ReadDeviceUid(Api& api, const Values&, Json& result) {
  uint64_t uid = 0;
  const HylErr err = api.GetDeviceUid(kNoName, &uid);
  // As text: a number of 64 bits is more than many readers of JSON keep.
  result = fmt::format("0x{:016X}", uid);
  return err;
}

constexpr SettingAccess kNone = {};
constexpr SettingArgument kOnOff = {"on|off", Kind::kSwitch};
constexpr SettingArgument kAddress = {"ADDRESS", Kind::kByte};

constexpr Setting kSettings[] = {
    Setting("exposure-time", "exposure time of the ambient-light sensors", kNone,
            {WriteWord<&Api::SetExposureTime>, {"TIME", Kind::kWord}}),
    Setting("sampling-period", "time from sample to sample", kNone,
            {WriteWord<&Api::SetSamplingPeriod>, {"PERIOD", Kind::kWord}}),
    Setting("gain", "gain of what the device's parameter A selects", kNone,
            {WriteGain, {"A", Kind::kByte}, {"GAIN", Kind::kReal}}),
    Setting("spectral-auto-gain", "whether the ambient-light sensors choose their gain",
            {Read<bool, &Api::GetSpectralAutoGainEnabled>},
            {Write<bool, &Api::SetSpectralAutoGainEnabled>, kOnOff}),
    Setting("factory-calibration", "whether the factory calibration is applied",
            {Read<bool, &Api::GetSpectralApplyFacCal>},
            {Write<bool, &Api::SetSpectralApplyFacCalEnabled>, kOnOff}),
    Setting("otp-calibration", "whether the one-time-programmed calibration is applied",
            {Read<bool, &Api::GetSpectralApplyOtpCal>},
            {Write<bool, &Api::SetSpectralApplyOtpCalEnabled>, kOnOff}),
    Setting("torch", "the torch light", kNone, {Write<bool, &Api::SetTorchLightState>, kOnOff}),
    Setting("flicker-auto-gain", "whether the flicker sensor chooses its gain",
            {Read<bool, &Api::GetFlickerAutoGainEnabled>},
            {Write<bool, &Api::SetFlickerAutoGainEnabled>, kOnOff}),
    Setting("flicker-channel", "the channel that the flicker sensor looks through", kNone,
            {WriteBytes<&Api::SetFlickerChannel>, {"A", Kind::kByte}, {"B", Kind::kByte}}),
    Setting("flicker-pedestal", "level that is taken off flicker samples", kNone,
            {Write<uint8_t, &Api::SetFlickerPedestal>, {"LEVEL", Kind::kByte}}),
    Setting("flicker-config", "flicker configuration value, and flicker gain", {ReadFlickerConfig},
            kNone),
    Setting("flicker-frequency", "the sensor's own analysis of flicker", {ReadFlickerMetrics},
            kNone),
    Setting("flicker-saturation", "saturation count of the flicker sensor",
            {Read<uint16_t, &Api::GetFlickerSaturation>}, kNone),
    Setting("register", "the sensor register of that address", {ReadRegister, kAddress},
            {WriteBytes<&Api::SetRegister>, kAddress, {"VALUE", Kind::kByte}}),
    Setting("device-uid", "the device's unique id", {ReadDeviceUid}, kNone),
};

void NoteAutomaticGain(Api& api, OpticalSensorType type) {
  const bool flicker = type == OpticalSensorType::kFlicker;
  bool automatic = false;
  const HylErr err = flicker ? api.GetFlickerAutoGainEnabled(kNoName, &automatic)
                             : api.GetSpectralAutoGainEnabled(kNoName, &automatic);
  if (err == HylErr::kOk && automatic) {
    PrintNotice(
        fmt::format("automatic gain is on and overrides the gain; add --set {}-auto-gain=off",
                    flicker ? "flicker" : "spectral"));
  }
}

// By kind of argument.
constexpr const char* kRanges[] = {"on or off", "a whole number from 0 to 255",
                                   "a whole number from 0 to 4294967295", "a number"};

Failure UsageFailure(const std::string& line) {
  return Failure(ExitCode::kUsage, line);
}

bool IsHexadecimal(const std::string& word) {
  return word.starts_with("0x") || word.starts_with("0X");
}

/// A decimal or, after "0x", a hexadecimal number; null for what is none or too large.
Json ParseWhole(const std::string& word, uint64_t most) {
  const bool hexadecimal = IsHexadecimal(word);
  const char* const begin = word.data() + (hexadecimal ? 2 : 0);
  const char* const end = word.data() + word.size();
  uint64_t number = 0;
  const auto [rest, error] = std::from_chars(begin, end, number, hexadecimal ? 16 : 10);
  return error == std::errc() && rest == end && number <= most ? Json(number) : Json();
}

Json ParseReal(const std::string& word) {
  float number = 0;
  return CLI::detail::lexical_cast(word, number) && std::isfinite(number) ? Json(number) : Json();
}

/// What a word stands for; null where it stands for nothing.
Json ParseWord(const std::string& word, Kind kind) {
  switch (kind) {
    case Kind::kSwitch:
      return word == "on" || word == "off" ? Json(word == "on") : Json();
    case Kind::kByte:
      return ParseWhole(word, UINT8_MAX);
    case Kind::kWord:
      return ParseWhole(word, UINT32_MAX);
    case Kind::kReal:
      break;
  }
  return ParseReal(word);
}

std::string NameWithArguments(const Setting& setting, Direction direction) {
  std::string text = setting.name;
  for (const SettingArgument& argument : (setting.*direction).Arguments()) {
    text += fmt::format(" {}", argument.name);
  }
  return text;
}

SettingCall ParseAssignment(const std::string& text) {
  const size_t equals = text.find('=');
  if (equals == std::string::npos) {
    throw UsageFailure(fmt::format("'{}' has no '='; write it as NAME=VALUE[,VALUE]", text));
  }
  // With a separator behind it, split keeps an empty last word.
  const Words words = CLI::detail::split(text.substr(equals + 1) + ",", ',');
  return ParseCall(&Setting::write, text.substr(0, equals), words);
}

/// What is handed back: a value that is in force now, or null. Throws Failure when it fails.
Json Run(HylSpectralApi& api, const SettingCall& call) {
  Json result;
  const HylErr err = (call.setting->*call.direction).run(api, call.values, result);
  Require(err, fmt::format("cannot {} '{}'", call.direction == &Setting::read ? "read" : "write",
                           call.setting->name));
  return result;
}

/// What a write hands on, for a setting that hands nothing back.
Json WrittenValue(const SettingCall& write) {
  if (write.values.size() == 1) {
    return write.values[0];
  }
  const SettingAccess& access = write.setting->write;
  return {{access.first.name, write.values[0]}, {access.second.name, write.values[1]}};
}

/// One line a value; the name of a part follows the setting's name. Whole numbers are shown in the
/// base in which a number was given.
std::string TextOf(const std::string& name, const Json& value, const Words& given) {
  if (value.is_object()) {
    std::string text;
    for (const auto& [part, part_value] : value.items()) {
      text += TextOf(fmt::format("{}.{}", name, part), part_value, given);
    }
    return text;
  }
  std::string shown = value.is_string() ? value.get<std::string>() : value.dump();
  if (value.is_boolean()) {
    shown = value ? "on" : "off";
  } else if (value.is_number_float()) {
    shown = fmt::format("{}", value.get<float>());
  } else if (value.is_number() && std::any_of(given.begin(), given.end(), IsHexadecimal)) {
    shown = fmt::format("0x{:02X}", value.get<uint64_t>());
  }
  return fmt::format("{:<30} {}\n", name, shown);
}

struct SettingOptions {
  std::string name;
  Words words;
  bool all = false;
};

/// The reads that the command line asks for; of all, those that need no argument.
std::vector<SettingCall> ReadsOf(const SettingOptions& options) {
  if (options.all == !options.name.empty()) {
    throw UsageFailure(
        "name one setting or give --all; 'hyl-spectral get --help' lists the settings");
  }
  if (!options.all) {
    return {ParseCall(&Setting::read, options.name, options.words)};
  }
  std::vector<SettingCall> reads;
  for (const Setting* const setting : SettingsTo(&Setting::read)) {
    if (setting->read.Arguments().empty()) {
      reads.push_back({setting, &Setting::read, {}});
    }
  }
  return reads;
}

void RunGet(const Context& context, const SettingOptions& options) {
  const std::vector<SettingCall> reads = ReadsOf(options);
  const SpectralInstance client = MakeInstance(nullptr);
  std::string text;
  Json json;
  for (const SettingCall& read : reads) {
    const Json value = Run(*client, read);
    text += TextOf(read.setting->name, value, options.words);
    json[read.setting->name] = value;
  }
  context.out.Add(context.format == "json" ? JsonLine(json) : text);
  context.out.Flush();
}

void RunSet(const Context& context, const SettingOptions& options) {
  const SettingCall write = ParseCall(&Setting::write, options.name, options.words);
  const SpectralInstance client = MakeInstance(nullptr);
  const Json applied = Run(*client, write);
  const Json value = applied.is_null() ? WrittenValue(write) : applied;
  const std::string state = applied.is_null() ? "sent" : "applied";
  context.out.Add(context.format == "json"
                      ? JsonLine(Json{{"setting", options.name}, {state, value}})
                      : TextOf(state + " " + options.name, value, options.words));
  context.out.Flush();
  NoteSimulatedLifetime();
}

std::string SettingsHelp(Direction direction) {
  std::string help = "Settings:\n";
  for (const Setting* const setting : SettingsTo(direction)) {
    help += fmt::format("  {:<26}  {}\n", NameWithArguments(*setting, direction), setting->help);
  }
  return help;
}

}  // namespace

std::vector<SettingArgument> SettingAccess::Arguments() const {
  std::vector<SettingArgument> arguments = {first, second};
  std::erase_if(arguments,
                [](const SettingArgument& argument) { return argument.name == nullptr; });
  return arguments;
}

std::vector<const Setting*> SettingsTo(Direction direction) {
  std::vector<const Setting*> settings;
  for (const Setting& setting : kSettings) {
    if ((setting.*direction).run != nullptr) {
      settings.push_back(&setting);
    }
  }
  return settings;
}

const Setting& SettingTo(Direction direction, const std::string& name) {
  for (const Setting& setting : kSettings) {
    if (name == setting.name && (setting.*direction).run == nullptr) {
      const char* const advice = direction == &Setting::read ? "read; use set" : "written; use get";
      throw UsageFailure(fmt::format("'{}' cannot be {}", name, advice));
    }
    if (name == setting.name) {
      return setting;
    }
  }
  throw UsageFailure(fmt::format(
      "there is no setting '{}'; 'hyl-spectral get --help' and 'hyl-spectral set --help' list them",
      name));
}

SettingCall ParseCall(Direction direction, const std::string& name, const Words& words) {
  const Setting& setting = SettingTo(direction, name);
  const std::vector<SettingArgument> arguments = (setting.*direction).Arguments();
  if (words.size() != arguments.size()) {
    throw UsageFailure(fmt::format("'{}' has the form '{}'; give {} value{}", name,
                                   NameWithArguments(setting, direction), arguments.size(),
                                   arguments.size() == 1 ? "" : "s"));
  }
  SettingCall call = {&setting, direction, {}};
  for (size_t i = 0; i < words.size(); ++i) {
    call.values.push_back(ParseWord(words[i], arguments[i].kind));
    if (call.values.back().is_null()) {
      throw UsageFailure(fmt::format("'{}' is no value for {} of {}; give {}", words[i],
                                     arguments[i].name, name,
                                     kRanges[static_cast<size_t>(arguments[i].kind)]));
    }
  }
  return call;
}

std::vector<SettingCall> ParseAssignments(const Words& texts) {
  std::vector<SettingCall> writes;
  std::transform(texts.begin(), texts.end(), std::back_inserter(writes), ParseAssignment);
  return writes;
}

Json ReadableSettings(HylSpectralApi& api) {
  Json settings = Json::object();
  HylErr err = HylErr::kOk;
  for (const SettingCall& read : ReadsOf({.name = {}, .words = {}, .all = true})) {
    Json value;
    err = err == HylErr::kFailed ? err : read.setting->read.run(api, {}, value);
    if (err == HylErr::kOk) {
      settings[read.setting->name] = value;
    }
  }
  return settings;
}

void WriteSettings(HylSpectralApi& api, std::span<const SettingCall> writes,
                   OpticalSensorType type) {
  bool gain_written = false;
  for (const SettingCall& write : writes) {
    // What is handed back is what was applied of the last value.
    const Json applied = Run(api, write);
    const Json& asked = write.values.back();
    if (!applied.is_null() && applied != asked) {
      PrintNotice(fmt::format("{} is {}, not {} as asked for", write.setting->name, applied.dump(),
                              asked.dump()));
    }
    gain_written = gain_written || write.setting->write.run == WriteGain;
  }
  if (gain_written) {
    NoteAutomaticGain(api, type);
  }
}

void AddGetCommand(CLI::App& app, const Context& context) {
  CLI::App* const get = app.add_subcommand("get", "read a setting of the device");
  const auto options = std::make_shared<SettingOptions>();
  get->add_option("SETTING", options->name, "one of the settings below");
  get->add_option("ADDRESS", options->words, "the address, for a register; 0x for hexadecimal");
  get->add_flag("--all", options->all, "read all that need no address");
  get->footer(SettingsHelp(&Setting::read) +
              "Numbers are in the device's units.\nExample: hyl-spectral get --all");
  get->callback([&context, options] { RunGet(context, *options); });
}

void AddSetCommand(CLI::App& app, const Context& context) {
  CLI::App* const set = app.add_subcommand("set", "write a setting of the device");
  const auto options = std::make_shared<SettingOptions>();
  set->add_option("SETTING", options->name, "one of the settings below")->required();
  set->add_option("VALUE", options->words, "its values; 0x for hexadecimal")->required();
  set->footer(SettingsHelp(&Setting::write) +
              "A, B, ADDRESS, VALUE and LEVEL are 0 to 255, TIME and PERIOD 0 to 4294967295,\n"
              "in the device's units.\n" +
              SimulatedRangesHelp() + "Example: hyl-spectral set gain 0 4");
  set->callback([&context, options] { RunSet(context, *options); });
}

}  // namespace hyl::v2::tool
