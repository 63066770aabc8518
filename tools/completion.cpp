#include "completion.h"

#include <algorithm>

#include "client.h"
#include "sensors.h"
#include "setting_text.h"
#include "settings.h"

namespace hyl::v2::tool {
namespace {

using Words = std::vector<std::string>;

bool IsOption(const std::string& word) {
  return word.starts_with("-");
}

/// What stands before the word that is to be completed.
struct Place {
  CLI::App* command;           // the program where no command has been named
  const CLI::Option* waiting;  // the option whose value is next; null if none
  Words arguments;
};

/// The program itself where there is no such command.
CLI::App* CommandNamed(CLI::App& app, const std::string& name) {
  const auto found =
      app.get_subcommands([&](const CLI::App* command) { return command->get_name() == name; });
  return found.empty() ? &app : found.front();
}

Place PlaceAfter(CLI::App& app, const Words& words) {
  Place place = {&app, nullptr, {}};
  for (auto word = words.begin(); word + 1 != words.end(); ++word) {
    if (place.waiting != nullptr) {
      place.waiting = nullptr;
    } else if (IsOption(*word)) {
      const CLI::Option* option = place.command->get_option_no_throw(*word);
      option = option != nullptr ? option : app.get_option_no_throw(*word);
      place.waiting = option != nullptr && option->get_items_expected_max() > 0 ? option : nullptr;
    } else if (place.command != &app) {
      place.arguments.push_back(*word);
    } else {
      place.command = CommandNamed(app, *word);
    }
  }
  return place;
}

Words SettingNames(SettingAccess Setting::*direction, const char* end) {
  Words names;
  for (const Setting& setting : AllSettings()) {
    if ((setting.*direction).run != nullptr) {
      names.push_back(setting.name + std::string(end));
    }
  }
  return names;
}

/// The words of a list such as "on|off"; none of what stands for a value.
Words Choices(const std::string& list) {
  if (list.find('|') == std::string::npos || list.starts_with("FILE")) {
    return {};
  }
  return Split(list, '|');
}

Words ValuesOf(const CLI::Option& option) {
  return option.check_lname("set") ? SettingNames(&Setting::write, "=")
                                   : Choices(option.get_type_name());
}

Words OptionNames(const CLI::App& command, const CLI::App& app) {
  Words names;
  for (const CLI::App* const owner : {&command, &app}) {
    for (const CLI::Option* const option : owner->get_options()) {
      for (const std::string& name : option->get_lnames()) {
        names.push_back("--" + name);
      }
    }
  }
  std::sort(names.begin(), names.end());
  names.erase(std::unique(names.begin(), names.end()), names.end());
  return names;
}

Words CommandNames(const CLI::App& app) {
  Words names;
  for (const CLI::App* const command : app.get_subcommands({})) {
    names.push_back(command->get_name());
  }
  return names;
}

Words SensorNames(OpticalSensorType type) {
  Client client;
  Words names;
  for (const Sensor& sensor : SensorsOf(client.api(), type)) {
    names.push_back(sensor.name);
  }
  return names;
}

Words SettingArguments(SettingAccess Setting::*direction, const Words& arguments) {
  if (arguments.empty()) {
    return SettingNames(direction, "");
  }
  const std::vector<SettingArgument>& wanted = (FindSetting(arguments[0]).*direction).arguments;
  return arguments.size() <= wanted.size() ? Choices(wanted[arguments.size() - 1].name) : Words();
}

Words ArgumentWords(const std::string& command, const Words& arguments) {
  if (command == "get" || command == "set") {
    return SettingArguments(command == "get" ? &Setting::read : &Setting::write, arguments);
  }
  if (command == "stream" && arguments.empty()) {
    return SensorNames(OpticalSensorType::kAmbientLight);
  }
  if (command == "flicker" && arguments.empty()) {
    return SensorNames(OpticalSensorType::kFlicker);
  }
  return {};
}

Words AllThatFit(CLI::App& app, const Words& words) {
  const Place place = PlaceAfter(app, words);
  if (place.waiting != nullptr) {
    return ValuesOf(*place.waiting);
  }
  if (IsOption(words.back())) {
    return OptionNames(*place.command, app);
  }
  return place.command == &app ? CommandNames(app)
                               : ArgumentWords(place.command->get_name(), place.arguments);
}

}  // namespace

Words Completions(CLI::App& app, const Words& words) {
  Words completions = AllThatFit(app, words);
  std::erase_if(completions,
                [&](const std::string& word) { return !word.starts_with(words.back()); });
  return completions;
}

}  // namespace hyl::v2::tool
