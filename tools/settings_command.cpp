#include <memory>
#include <string>
#include <vector>

#include "client.h"
#include "command.h"
#include "failure.h"
#include "options.h"
#include "setting_text.h"
#include "settings.h"
#include "simulation.h"
#include "text.h"

namespace hyl::v2::tool {
namespace {

struct SettingOptions {
  std::string name;
  std::vector<std::string> words;
  bool all = false;
};

/// A setting with the arguments to read it by.
struct SettingRead {
  const Setting* setting;
  SettingNumbers numbers;
};

/// Those that can be read without an argument.
std::vector<SettingRead> AllReads() {
  std::vector<SettingRead> reads;
  for (const Setting& setting : AllSettings()) {
    if (setting.read.run != nullptr && setting.read.arguments.empty()) {
      reads.push_back({&setting, {}});
    }
  }
  return reads;
}

std::vector<SettingRead> ReadsOf(const SettingOptions& options) {
  if (options.all == !options.name.empty()) {
    throw Failure(ExitCode::kUsage,
                  "name one setting or give --all; 'hyl-spectral get --help' "
                  "lists the settings");
  }
  if (options.all) {
    return AllReads();
  }
  const Setting& setting = FindSetting(options.name);
  RequireAccess(setting, setting.read);
  return {{&setting, ParseArguments(setting, setting.read, options.words)}};
}

void RunGet(const Context& context, const SettingOptions& options) {
  RefuseCsv(context);
  const std::vector<SettingRead> reads = ReadsOf(options);
  Client client;
  std::string text;
  std::string json;
  for (const auto& [setting, numbers] : reads) {
    const SettingAnswer answer = ReadSetting(client.api(), *setting, numbers);
    text += TextOfValues(setting->name, answer.values, BaseOf(options.words));
    json +=
        (json.empty() ? "" : ",") + JsonString(setting->name) + ":" + JsonOfValues(answer.values);
  }
  context.out.Add(context.format == Format::kJson ? "{" + json + "}\n" : text);
  context.out.Flush();
}

void RunSet(const Context& context, const SettingOptions& options) {
  RefuseCsv(context);
  const Setting& setting = FindSetting(options.name);
  RequireAccess(setting, setting.write);
  const SettingWrite write = {&setting, ParseArguments(setting, setting.write, options.words)};
  Client client;
  const SettingAnswer answer = WriteSetting(client.api(), write);
  const bool applied = !answer.values.empty();
  const std::vector<SettingValue> values = applied ? answer.values : WrittenValues(write);
  const std::string state = applied ? "applied" : "sent";
  context.out.Add(context.format == Format::kJson
                      ? "{\"setting\":" + JsonString(setting.name) + ",\"" + state +
                            "\":" + JsonOfValues(values) + "}\n"
                      : TextOfValues(state + " " + setting.name, values, BaseOf(options.words)));
  context.out.Flush();
  NoteSimulatedLifetime();
}

}  // namespace

Command AddGetCommand(CLI::App& app) {
  CLI::App* const get = app.add_subcommand("get", "read a setting of the device");
  const auto options = std::make_shared<SettingOptions>();
  get->add_option("SETTING", options->name, "one of the settings below");
  get->add_option("ADDRESS", options->words, "the address, for a register; 0x for hexadecimal");
  get->add_flag("--all", options->all, "read all that need no address");
  SetFooter(*get, SettingsHelp(&Setting::read) + "Numbers are in the device's units.\n",
            "hyl-spectral get --all");
  return {get, [options](const Context& context) { RunGet(context, *options); }};
}

Command AddSetCommand(CLI::App& app) {
  CLI::App* const set = app.add_subcommand("set", "write a setting of the device");
  const auto options = std::make_shared<SettingOptions>();
  set->add_option("SETTING", options->name, "one of the settings below")->required();
  set->add_option("VALUE", options->words, "its values; 0x for hexadecimal")->required();
  SetFooter(*set,
            SettingsHelp(&Setting::write) +
                "A, B, ADDRESS, VALUE and LEVEL are 0 to 255, TIME and PERIOD 0 to 4294967295,\n"
                "in the device's units.\n" +
                SimulatedRangesHelp(),
            "hyl-spectral set gain 0 4");
  return {set, [options](const Context& context) { RunSet(context, *options); }};
}

}  // namespace hyl::v2::tool
