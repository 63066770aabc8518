#pragma once

#include <string>
#include <vector>

#include "settings.h"

namespace hyl::v2::tool {

/// The setting of that name. Throws Failure when there is none.
const Setting& FindSetting(const std::string& name);

/// Throws Failure when the setting cannot be accessed in the direction of `access`, which is one of
/// its own.
void RequireAccess(const Setting& setting, const SettingAccess& access);

/// The words of `text`, which are parted by `separator`.
std::vector<std::string> Split(const std::string& text, char separator);

/// The numbers that `words` stand for, one for each argument of `access`. Throws Failure when they
/// do not fit.
SettingNumbers ParseArguments(const Setting& setting, const SettingAccess& access,
                              const std::vector<std::string>& words);

/// The writes that texts of the form "NAME=VALUE" or "NAME=VALUE,VALUE" stand for. Throws Failure.
std::vector<SettingWrite> ParseAssignments(const std::vector<std::string>& texts);

/// The values that a write hands on, for a setting that hands none back.
std::vector<SettingValue> WrittenValues(const SettingWrite& write);

/// How whole numbers are shown.
enum class Base { kDecimal, kHexadecimal };

/// Hexadecimal where one of `words` is.
Base BaseOf(const std::vector<std::string>& words);

/// One line a value; the name of a part follows the setting's name.
std::string TextOfValues(const std::string& setting, const std::vector<SettingValue>& values,
                         Base base);
/// A value, or an object with a member a part.
std::string JsonOfValues(const std::vector<SettingValue>& values);

/// The names of all settings that can be accessed in one direction, with their arguments.
std::string SettingsHelp(SettingAccess Setting::*direction);

}  // namespace hyl::v2::tool
