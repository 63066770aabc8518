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
  const char* name;
  const char* help;
  SettingAccess read;
  SettingAccess write;
};

/// All settings of the interface.
std::span<const Setting> AllSettings();

/// The setting of that name that can be accessed in that direction. Throws Failure when there is
/// none.
const Setting& FindSetting(const std::string& name, SettingAccess Setting::*direction);

/// What `words` stand for, one for each argument. Throws Failure when they do not fit.
Values ParseArguments(const Setting& setting, const SettingAccess& access,
                      const std::vector<std::string>& words);

/// A write that the command line asks for.
struct SettingWrite {
  const Setting* setting;
  Values values;
};

/// The writes that texts of the form "NAME=VALUE" or "NAME=VALUE,VALUE" stand for. Throws Failure.
std::vector<SettingWrite> ParseAssignments(const std::vector<std::string>& texts);

/// Reads a setting. Throws Failure when that fails.
Json ReadSetting(HylSpectralApi& api, const Setting& setting, const Values& values);

/// Writes a setting; returns what is in force now, where the library waits for it, and null
/// elsewhere. Throws Failure when that fails.
Json WriteSetting(HylSpectralApi& api, const SettingWrite& write);

/// Writes settings, in order, for a sensor of the given type that is to run next. Tells the user
/// where another value was applied than was asked for, and where automatic gain overrides a gain.
/// Throws Failure at the first write that fails.
void WriteSettings(HylSpectralApi& api, std::span<const SettingWrite> writes,
                   OpticalSensorType type);

}  // namespace hyl::v2::tool
