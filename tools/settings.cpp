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
#include "simulation.h"

namespace hyl::v2::tool {
namespace {

using Api = HylSpectralApi;
using Kind = SettingArgument::Kind;
using Words = std::vector<std::string>;

// The operations do not consult the sensor's name.
constexpr const char* kNoName = nullptr;

template <typename T, HylErr (Api::*kGet)(const char*, T*)>
HylErr Read(Api& api, const Values&, Json& result) {
  T value{};
  const HylErr err = (api.*kGet)(kNoName, &value);
  result = value;
  return err;
}

template <HylErr (Api::*kSet)(const char*, bool)>
HylErr WriteSwitch(Api& api, const Values& values, Json&) {
  return (api.*kSet)(kNoName, values[0]);
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

HylErr WriteFlickerPedestal(Api& api, const Values& values, Json&) {
  return api.SetFlickerPedestal(kNoName, values[0]);
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
    {"exposure-time",
     "exposure time of the ambient-light sensors",
     kNone,
     {WriteWord<&Api::SetExposureTime>, {"TIME", Kind::kWord}}},
    {"sampling-period",
     "time from sample to sample",
     kNone,
     {WriteWord<&Api::SetSamplingPeriod>, {"PERIOD", Kind::kWord}}},
    {"gain",
     "gain of what the device's parameter A selects",
     kNone,
     {WriteGain, {"A", Kind::kByte}, {"GAIN", Kind::kReal}}},
    {"spectral-auto-gain",
     "whether the ambient-light sensors choose their gain",
     {Read<bool, &Api::GetSpectralAutoGainEnabled>},
     {WriteSwitch<&Api::SetSpectralAutoGainEnabled>, kOnOff}},
    {"factory-calibration",
     "whether the factory calibration is applied",
     {Read<bool, &Api::GetSpectralApplyFacCal>},
     {WriteSwitch<&Api::SetSpectralApplyFacCalEnabled>, kOnOff}},
    {"otp-calibration",
     "whether the one-time-programmed calibration is applied",
     {Read<bool, &Api::GetSpectralApplyOtpCal>},
     {WriteSwitch<&Api::SetSpectralApplyOtpCalEnabled>, kOnOff}},
    {"torch", "the torch light", kNone, {WriteSwitch<&Api::SetTorchLightState>, kOnOff}},
    {"flicker-auto-gain",
     "whether the flicker sensor chooses its gain",
     {Read<bool, &Api::GetFlickerAutoGainEnabled>},
     {WriteSwitch<&Api::SetFlickerAutoGainEnabled>, kOnOff}},
    {"flicker-channel",
     "the channel that the flicker sensor looks through",
     kNone,
     {WriteBytes<&Api::SetFlickerChannel>, {"A", Kind::kByte}, {"B", Kind::kByte}}},
    {"flicker-pedestal",
     "level that is taken off flicker samples",
     kNone,
     {WriteFlickerPedestal, {"LEVEL", Kind::kByte}}},
    {"flicker-config", "flicker configuration value, and flicker gain", {ReadFlickerConfig}, kNone},
    {"flicker-frequency", "the sensor's own analysis of flicker", {ReadFlickerMetrics}, kNone},
    {"flicker-saturation",
     "saturation count of the flicker sensor",
     {Read<uint16_t, &Api::GetFlickerSaturation>},
     kNone},
    {"register",
     "the sensor register of that address",
     {ReadRegister, kAddress},
     {WriteBytes<&Api::SetRegister>, kAddress, {"VALUE", Kind::kByte}}},
    {"device-uid", "the device's unique id", {ReadDeviceUid}, kNone},
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

/// What a word stands for. Throws Failure with `fault` where it stands for nothing.
Json ParseWord(const std::string& word, Kind kind, const std::string& fault) {
  Json value;
  const char* range = "on or off";
  if (kind == Kind::kByte) {
    value = ParseWhole(word, UINT8_MAX);
    range = "a whole number from 0 to 255";
  } else if (kind == Kind::kWord) {
    value = ParseWhole(word, UINT32_MAX);
    range = "a whole number from 0 to 4294967295";
  } else if (kind == Kind::kReal) {
    value = ParseReal(word);
    range = "a number";
  } else if (word == "on" || word == "off") {
    value = word == "on";
  }
  if (value.is_null()) {
    throw UsageFailure(fmt::format("{}; give {}", fault, range));
  }
  return value;
}

std::string NameWithArguments(const Setting& setting, const SettingAccess& access) {
  std::string text = setting.name;
  for (const SettingArgument& argument : access.Arguments()) {
    text += fmt::format(" {}", argument.name);
  }
  return text;
}

Words Split(const std::string& text) {
  Words words(1);
  for (const char character : text) {
    if (character == ',') {
      words.emplace_back();
    } else {
      words.back() += character;
    }
  }
  return words;
}

SettingWrite ParseAssignment(const std::string& text) {
  const size_t equals = text.find('=');
  if (equals == std::string::npos) {
    throw UsageFailure(fmt::format("'{}' has no '='; write it as NAME=VALUE[,VALUE]", text));
  }
  const Setting& setting = FindSetting(text.substr(0, equals), &Setting::write);
  return {&setting, ParseArguments(setting, setting.write, Split(text.substr(equals + 1)))};
}

/// What a write hands on, for a setting that hands nothing back.
Json WrittenValue(const SettingWrite& write) {
  if (write.values.size() == 1) {
    return write.values[0];
  }
  Json value;
  for (size_t i = 0; i < write.values.size(); ++i) {
    value[write.setting->write.Arguments()[i].name] = write.values[i];
  }
  return value;
}

/// One line a value; the name of a part follows the setting's name. Whole numbers are shown in the
/// base in which a number was given.
std::string TextOf(const std::string& name, const Json& value, const Words& given) {
  std::string shown = value.is_string() ? value.get<std::string>() : value.dump();
  if (value.is_object()) {
    std::string text;
    for (const auto& [part, part_value] : value.items()) {
      text += TextOf(name + "." + part, part_value, given);
    }
    return text;
  }
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
std::vector<const Setting*> SettingsToRead(const SettingOptions& options) {
  if (options.all == !options.name.empty()) {
    throw UsageFailure(
        "name one setting or give --all; 'hyl-spectral get --help' lists the settings");
  }
  if (!options.all) {
    return {&FindSetting(options.name, &Setting::read)};
  }
  std::vector<const Setting*> settings;
  for (const Setting& setting : AllSettings()) {
    if (setting.read.run != nullptr && setting.read.Arguments().empty()) {
      settings.push_back(&setting);
    }
  }
  return settings;
}

void RunGet(const Context& context, const SettingOptions& options) {
  RefuseCsv(context);
  const std::vector<const Setting*> settings = SettingsToRead(options);
  const Values values = ParseArguments(*settings[0], settings[0]->read, options.words);
  Client client;
  std::string text;
  Json json;
  for (const Setting* const setting : settings) {
    json[setting->name] = ReadSetting(client.api(), *setting, values);
    text += TextOf(setting->name, json[setting->name], options.words);
  }
  context.out.Add(context.format == Format::kJson ? JsonLine(json) : text);
  context.out.Flush();
}

void RunSet(const Context& context, const SettingOptions& options) {
  RefuseCsv(context);
  const Setting& setting = FindSetting(options.name, &Setting::write);
  const SettingWrite write = {&setting, ParseArguments(setting, setting.write, options.words)};
  Client client;
  const Json applied = WriteSetting(client.api(), write);
  const Json value = applied.is_null() ? WrittenValue(write) : applied;
  const std::string state = applied.is_null() ? "sent" : "applied";
  context.out.Add(context.format == Format::kJson
                      ? JsonLine(Json{{"setting", setting.name}, {state, value}})
                      : TextOf(state + " " + setting.name, value, options.words));
  context.out.Flush();
  NoteSimulatedLifetime();
}

std::string SettingsHelp(SettingAccess Setting::*direction) {
  std::string help = "Settings:\n";
  for (const Setting& setting : AllSettings()) {
    if ((setting.*direction).run != nullptr) {
      help += fmt::format("  {:<26}  {}\n", NameWithArguments(setting, setting.*direction),
                          setting.help);
    }
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

std::span<const Setting> AllSettings() {
  return kSettings;
}

Json ReadSetting(HylSpectralApi& api, const Setting& setting, const Values& values) {
  Json result;
  Require(setting.read.run(api, values, result), fmt::format("cannot read '{}'", setting.name));
  return result;
}

Json WriteSetting(HylSpectralApi& api, const SettingWrite& write) {
  Json result;
  Require(write.setting->write.run(api, write.values, result),
          fmt::format("cannot write '{}'", write.setting->name));
  return result;
}

void WriteSettings(HylSpectralApi& api, std::span<const SettingWrite> writes,
                   OpticalSensorType type) {
  bool gain_written = false;
  for (const SettingWrite& write : writes) {
    const Json applied = WriteSetting(api, write);
    // What is handed back is what was applied of the last value.
    if (!applied.is_null() && applied != write.values.back()) {
      PrintNotice(fmt::format("{} is {}, not {} as asked for", write.setting->name, applied.dump(),
                              write.values.back().dump()));
    }
    gain_written = gain_written || write.setting->write.run == WriteGain;
  }
  if (gain_written) {
    NoteAutomaticGain(api, type);
  }
}

const Setting& FindSetting(const std::string& name, SettingAccess Setting::*direction) {
  const auto settings = AllSettings();
  const auto found = std::find_if(settings.begin(), settings.end(),
                                  [&](const Setting& setting) { return name == setting.name; });
  if (found == settings.end()) {
    throw UsageFailure(
        fmt::format("there is no setting '{}'; 'hyl-spectral get --help' and 'hyl-spectral set "
                    "--help' list them",
                    name));
  }
  if (((*found).*direction).run == nullptr) {
    const char* const advice = direction == &Setting::read ? "read; use set" : "written; use get";
    throw UsageFailure(fmt::format("'{}' cannot be {}", name, advice));
  }
  return *found;
}

Values ParseArguments(const Setting& setting, const SettingAccess& access, const Words& words) {
  const std::vector<SettingArgument> arguments = access.Arguments();
  if (words.size() != arguments.size()) {
    throw UsageFailure(fmt::format("'{}' has the form '{}'; give {} value{}", setting.name,
                                   NameWithArguments(setting, access), arguments.size(),
                                   arguments.size() == 1 ? "" : "s"));
  }
  Values values;
  for (size_t i = 0; i < words.size(); ++i) {
    values.push_back(ParseWord(
        words[i], arguments[i].kind,
        fmt::format("'{}' is no value for {} of {}", words[i], arguments[i].name, setting.name)));
  }
  return values;
}

std::vector<SettingWrite> ParseAssignments(const Words& texts) {
  std::vector<SettingWrite> writes;
  std::transform(texts.begin(), texts.end(), std::back_inserter(writes), ParseAssignment);
  return writes;
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
