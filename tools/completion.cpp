#include <algorithm>
#include <set>

#include "client.h"
#include "command.h"
#include "settings.h"

namespace hyl::v2::tool {
namespace {

using Words = std::vector<std::string>;

/// The option of that name that takes a value; null where there is none.
const CLI::Option* ValueOption(const CLI::App& command, const std::string& name) {
  const CLI::Option* option = command.get_option_no_throw(name);
  if (option == nullptr && command.get_parent() != nullptr) {
    option = command.get_parent()->get_option_no_throw(name);
  }
  return option != nullptr && option->get_items_expected_max() > 0 ? option : nullptr;
}

/// The words from `begin` to `end` that are neither options nor their values.
template <typename Iterator>
Words ArgumentsBetween(const CLI::App& command, Iterator begin, Iterator end) {
  Words arguments;
  bool is_value = false;
  for (auto word = begin; word != end; ++word) {
    if (!is_value && !word->starts_with("-")) {
      arguments.push_back(*word);
    }
    is_value = !is_value && ValueOption(command, *word) != nullptr;
  }
  return arguments;
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

/// The words of a list such as "on|off"; none of what is a value's name.
Words Choices(const std::string& list) {
  return list.find('|') == std::string::npos ? Words() : CLI::detail::split(list, '|');
}

Words OptionNames(const CLI::App& command) {
  std::set<std::string> names;
  for (const CLI::App* owner = &command; owner != nullptr; owner = owner->get_parent()) {
    for (const CLI::Option* const option : owner->get_options()) {
      for (const std::string& name : option->get_lnames()) {
        names.insert("--" + name);
      }
    }
  }
  return {names.begin(), names.end()};
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
  const auto wanted = (FindSetting(arguments[0], direction).*direction).Arguments();
  return arguments.size() <= wanted.size() ? Choices(wanted[arguments.size() - 1].name) : Words();
}

/// What can follow the arguments that a command has been given.
Words NextArguments(const std::string& command, const Words& arguments) {
  if (command == "get" || command == "set") {
    return SettingArguments(command == "get" ? &Setting::read : &Setting::write, arguments);
  }
  if (!arguments.empty() || command == "list") {
    return {};
  }
  return SensorNames(command == "stream" ? OpticalSensorType::kAmbientLight
                                         : OpticalSensorType::kFlicker);
}

Words AllThatFit(const CLI::App& app, const Words& words) {
  Words commands;
  for (const CLI::App* const command : app.get_subcommands({})) {
    commands.push_back(command->get_name());
  }
  const auto last = words.end() - 1;
  const auto named = std::find_first_of(words.begin(), last, commands.begin(), commands.end());
  const CLI::App& command = named == last ? app : *app.get_subcommand(*named);
  if (words.size() > 1) {
    if (const CLI::Option* const option = ValueOption(command, *(last - 1))) {
      return option->check_lname("set") ? SettingNames(&Setting::write, "=")
                                        : Choices(option->get_type_name());
    }
  }
  if (last->starts_with("-")) {
    return OptionNames(command);
  }
  return named == last ? commands
                       : NextArguments(*named, ArgumentsBetween(command, named + 1, last));
}

}  // namespace

Words Completions(const CLI::App& app, const Words& words) {
  Words completions = AllThatFit(app, words);
  std::erase_if(completions,
                [&](const std::string& word) { return !word.starts_with(words.back()); });
  return completions;
}

}  // namespace hyl::v2::tool
