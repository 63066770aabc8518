// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <set>

#include "client.h"
#include "command.h"
#include "settings.h"

namespace hyl::v2::tool {
namespace {

using Words = std::vector<std::string>;

/// The options that may be given with the command: its own and the program's.
std::vector<const CLI::Option*> OptionsOf(const CLI::App& command) {
  std::vector<const CLI::Option*> options = command.get_options();
  if (command.get_parent() != nullptr) {
    const auto others = command.get_parent()->get_options();
    options.insert(options.end(), others.begin(), others.end());
  }
  return options;
}

/// The option of that name that takes a value; null where there is none.
const CLI::Option* ValueOption(const CLI::App& command, const std::string& name) {
  for (const CLI::Option* const option : OptionsOf(command)) {
    if (option->check_name(name) && option->get_items_expected_max() > 0) {
      return option;
    }
  }
  return nullptr;
}

Words SettingNames(Direction direction, const char* end) {
  Words names;
  for (const Setting* const setting : SettingsTo(direction)) {
    names.push_back(setting->name + std::string(end));
  }
  return names;
}

/// The words of a list such as "on|off"; none of what is a value's name.
Words Choices(const std::string& list) {
  return list.find('|') == std::string::npos ? Words() : CLI::detail::split(list, '|');
}

Words OptionNames(const CLI::App& command) {
  std::set<std::string> names;
  for (const CLI::Option* const option : OptionsOf(command)) {
    for (const std::string& name : option->get_lnames()) {
      names.insert("--" + name);
    }
  }
  return {names.begin(), names.end()};
}

/// What can follow the arguments that a command has been given.
Words NextArguments(const std::string& command, const Words& arguments) {
  if (command == "get" || command == "set") {
    const Direction direction = command == "get" ? &Setting::read : &Setting::write;
    if (arguments.empty()) {
      return SettingNames(direction, "");
    }
    const auto wanted = (SettingTo(direction, arguments[0]).*direction).Arguments();
    return arguments.size() <= wanted.size() ? Choices(wanted[arguments.size() - 1].name) : Words();
  }
  Words names;
  if (command == (arguments.empty() ? "stream" : "record")) {
    names = SensorNames(*MakeInstance(nullptr), OpticalSensorType::kAmbientLight);
  }
  if (command == (arguments.empty() ? "flicker" : "record")) {
    const Words flicker = SensorNames(*MakeInstance(nullptr), OpticalSensorType::kFlicker);
    names.insert(names.end(), flicker.begin(), flicker.end());
  }
  return names;
}

Words AllThatFit(const CLI::App& app, const Words& words) {
  Words commands;
  for (const CLI::App* const command : app.get_subcommands({})) {
    commands.push_back(command->get_name());
  }
  const auto last = words.end() - 1;
  const auto named = std::find_first_of(words.begin(), last, commands.begin(), commands.end());
  const CLI::App& command = named == last ? app : *app.get_subcommand(*named);
  const CLI::Option* waiting = nullptr;  // the option whose value is next
  Words arguments;
  for (auto word = words.begin(); word != last; ++word) {
    if (waiting == nullptr && word > named && !word->starts_with("-")) {
      arguments.push_back(*word);
    }
    waiting = waiting == nullptr ? ValueOption(command, *word) : nullptr;
  }
  if (waiting != nullptr) {
    return waiting->check_lname("set") ? SettingNames(&Setting::write, "=")
                                       : Choices(waiting->get_type_name());
  }
  if (last->starts_with("-")) {
    return OptionNames(command);
  }
  return named == last ? commands : NextArguments(*named, arguments);
}

}  // namespace

Words Completions(const CLI::App& app, const Words& words) {
  Words completions = AllThatFit(app, words);
  std::erase_if(completions,
                [&](const std::string& word) { return !word.starts_with(words.back()); });
  return completions;
}

}  // namespace hyl::v2::tool
