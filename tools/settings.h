// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <span>
#include <string>
#include <vector>

#include <hyl/hyl_spectral_api.h>

#include "text.h"

namespace hyl::v2::tool {

/// What a setting is read or written with: switches, whole and real numbers.
using Values = std::vector<Json>;

struct SettingArgument {
  enum class Kind { kSwitch, kByte, kWord, kReal };
  const char* name = nullptr;  ///< null for none
  Kind kind = Kind::kByte;
};

/// One direction of a setting: reading or writing it.
struct SettingAccess {
  /// Carries it out. `result` gets what the library hands back, if anything: a number, a switch, a
  /// text, or an object of such parts. Null where the setting has no such direction.
  HylErr (*run)(HylSpectralApi& api, const Values& values, Json& result) = nullptr;
  SettingArgument first = {};
  SettingArgument second = {};

  std::vector<SettingArgument> Arguments() const;
};

struct Setting {
  constexpr Setting(const char* its_name, const char* its_help, SettingAccess to_read,
                    SettingAccess to_write)
      : name(its_name), help(its_help), read(to_read), write(to_write) {}

  const char* name;
  const char* help;
  SettingAccess read;
  SettingAccess write;
};

using Direction = SettingAccess Setting::*;

/// The settings that can be accessed in a direction.
std::vector<const Setting*> SettingsTo(Direction direction);

/// The one of that name. Throws Failure when there is none.
const Setting& SettingTo(Direction direction, const std::string& name);

/// An access that the command line asks for.
struct SettingCall {
  const Setting* setting;
  Direction direction;
  Values values;
};

/// The access to the setting of that name with the values that `words` stand for. Throws Failure.
SettingCall ParseCall(Direction direction, const std::string& name,
                      const std::vector<std::string>& words);

/// The writes that texts of the form "NAME=VALUE" or "NAME=VALUE,VALUE" stand for. Throws Failure.
std::vector<SettingCall> ParseAssignments(const std::vector<std::string>& texts);

/// All settings that can be read without an argument, by name. Ends early, lest it wait for each,
/// where the framework does not answer.
Json ReadableSettings(HylSpectralApi& api);

/// Carries out writes, in order, for a sensor of the given type that is to run next. Tells the user
/// where another value was applied than was asked for, and where automatic gain overrides a gain.
/// Throws Failure at the first write that fails.
void WriteSettings(HylSpectralApi& api, std::span<const SettingCall> writes,
                   OpticalSensorType type);

}  // namespace hyl::v2::tool
