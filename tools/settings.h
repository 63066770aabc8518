#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <variant>
#include <vector>

#include <hyl/hyl_spectral_api.h>

namespace hyl::v2::tool {

/// A part of a setting. Its name is empty where the setting has one part.
struct SettingValue {
  const char* name;
  std::variant<bool, uint64_t, float, std::string> value;
};

/// What an operation returned, and the values that it handed back.
struct SettingAnswer {
  HylErr result;
  std::vector<SettingValue> values;
};

/// What a word on the command line stands for.
enum class ArgumentKind { kSwitch, kByte, kWord, kReal };

struct SettingArgument {
  const char* name;
  ArgumentKind kind;
};

/// Numbers, one for each argument; a switch is 0 or 1.
using SettingNumbers = std::vector<double>;

/// One direction of a setting: reading or writing it.
struct SettingAccess {
  /// Null where the setting cannot be accessed in this direction.
  SettingAnswer (*run)(HylSpectralApi& api, const SettingNumbers& numbers);
  std::vector<SettingArgument> arguments;
};

struct Setting {
  const char* name;
  const char* help;
  SettingAccess read;
  SettingAccess write;
};

/// A write that the command line asks for.
struct SettingWrite {
  const Setting* setting;
  SettingNumbers numbers;
};

/// Reads a setting; the values of the answer count. Throws Failure when that fails.
SettingAnswer ReadSetting(HylSpectralApi& api, const Setting& setting,
                          const SettingNumbers& numbers);
/// Writes a setting; the answer has the values that are in force now, where the library waits for
/// them, and none else. Throws Failure when that fails.
SettingAnswer WriteSetting(HylSpectralApi& api, const SettingWrite& write);
/// Writes settings, in order, for a sensor of the given type that is to run next. Tells the user
/// where another value was applied than was asked for, and where automatic gain overrides a gain.
/// Throws Failure at the first write that fails.
void WriteSettings(HylSpectralApi& api, std::span<const SettingWrite> writes,
                   OpticalSensorType type);

/// All settings of the interface.
std::span<const Setting> AllSettings();

}  // namespace hyl::v2::tool
