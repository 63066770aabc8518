#include "setting_text.h"

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cmath>
#include <cstdlib>

#include <android-base/stringprintf.h>

#include "failure.h"
#include "text.h"

namespace hyl::v2::tool {
namespace {

using android::base::StringPrintf;

Failure UsageFailure(const std::string& line) {
  return Failure(ExitCode::kUsage, line);
}

/// What an argument of this kind may be.
const char* RangeOf(ArgumentKind kind) {
  switch (kind) {
    case ArgumentKind::kSwitch:
      return "on or off";
    case ArgumentKind::kByte:
      return "a whole number from 0 to 255";
    case ArgumentKind::kWord:
      return "a whole number from 0 to 4294967295";
    case ArgumentKind::kReal:
      break;
  }
  return "a number";
}

bool IsHexadecimal(const std::string& word) {
  return word.starts_with("0x") || word.starts_with("0X");
}

/// A decimal or, after "0x", a hexadecimal number.
bool ParseWhole(const std::string& word, unsigned long long most, double& number) {
  const bool hexadecimal = IsHexadecimal(word);
  const std::string digits = hexadecimal ? word.substr(2) : word;
  const char* const allowed = hexadecimal ? "0123456789abcdefABCDEF" : "0123456789";
  if (digits.empty() || digits.find_first_not_of(allowed) != std::string::npos) {
    return false;
  }
  errno = 0;
  const unsigned long long value = std::strtoull(digits.c_str(), nullptr, hexadecimal ? 16 : 10);
  number = static_cast<double>(value);
  return errno == 0 && value <= most;
}

bool ParseReal(const std::string& word, double& number) {
  char* end = nullptr;
  const float value = std::strtof(word.c_str(), &end);
  number = static_cast<double>(value);
  return end != word.c_str() && *end == '\0' && std::isfinite(value);
}

bool ParseWord(const std::string& word, ArgumentKind kind, double& number) {
  switch (kind) {
    case ArgumentKind::kSwitch:
      number = word == "on" ? 1 : 0;
      return word == "on" || word == "off";
    case ArgumentKind::kByte:
      return ParseWhole(word, UINT8_MAX, number);
    case ArgumentKind::kWord:
      return ParseWhole(word, UINT32_MAX, number);
    case ArgumentKind::kReal:
      break;
  }
  return ParseReal(word, number);
}

std::string NameWithArguments(const Setting& setting, const SettingAccess& access) {
  std::string text = setting.name;
  for (const SettingArgument& argument : access.arguments) {
    text += std::string(" ") + argument.name;
  }
  return text;
}

std::string CountText(size_t values) {
  return values == 0 ? "no value" : std::to_string(values) + (values == 1 ? " value" : " values");
}

/// How a value is shown in text and in JSON.
struct PlainText {
  Base base;
  std::string operator()(bool value) const { return value ? "on" : "off"; }
  std::string operator()(uint64_t value) const {
    return base == Base::kDecimal ? std::to_string(value) : StringPrintf("0x%02" PRIX64, value);
  }
  std::string operator()(float value) const { return NumberText(value); }
  std::string operator()(const std::string& value) const { return value; }
};
struct JsonText {
  std::string operator()(bool value) const { return value ? "true" : "false"; }
  std::string operator()(uint64_t value) const { return std::to_string(value); }
  std::string operator()(float value) const { return JsonNumber(value); }
  std::string operator()(const std::string& value) const { return JsonString(value); }
};

SettingValue ValueOf(const SettingArgument& argument, double number, bool only) {
  const char* const name = only ? "" : argument.name;
  switch (argument.kind) {
    case ArgumentKind::kSwitch:
      return {name, number != 0};
    case ArgumentKind::kReal:
      return {name, static_cast<float>(number)};
    case ArgumentKind::kByte:
    case ArgumentKind::kWord:
      break;
  }
  return {name, static_cast<uint64_t>(number)};
}

}  // namespace

std::vector<std::string> Split(const std::string& text, char separator) {
  std::vector<std::string> words(1);
  for (const char character : text) {
    if (character == separator) {
      words.emplace_back();
    } else {
      words.back() += character;
    }
  }
  return words;
}

const Setting& FindSetting(const std::string& name) {
  const auto settings = AllSettings();
  const auto found = std::find_if(settings.begin(), settings.end(),
                                  [&](const Setting& setting) { return name == setting.name; });
  if (found == settings.end()) {
    throw UsageFailure("there is no setting '" + name +
                       "'; 'hyl-spectral get --help' and 'hyl-spectral set --help' list them");
  }
  return *found;
}

SettingNumbers ParseArguments(const Setting& setting, const SettingAccess& access,
                              const std::vector<std::string>& words) {
  if (words.size() != access.arguments.size()) {
    throw UsageFailure("'" + std::string(setting.name) + "' has the form '" +
                       NameWithArguments(setting, access) + "'; give " +
                       CountText(access.arguments.size()));
  }
  SettingNumbers numbers(words.size());
  for (size_t i = 0; i < words.size(); ++i) {
    const SettingArgument& argument = access.arguments[i];
    if (!ParseWord(words[i], argument.kind, numbers[i])) {
      throw UsageFailure("'" + words[i] + "' is no value for " + argument.name + " of " +
                         setting.name + "; give " + RangeOf(argument.kind));
    }
  }
  return numbers;
}

void RequireAccess(const Setting& setting, const SettingAccess& access) {
  if (access.run == nullptr) {
    throw UsageFailure(std::string("'") + setting.name + "' cannot be " +
                       (&access == &setting.read ? "read; use set" : "written; use get"));
  }
}

static SettingWrite ParseAssignment(const std::string& text) {
  const size_t equals = text.find('=');
  if (equals == std::string::npos) {
    throw UsageFailure("'" + text + "' has no '='; write it as NAME=VALUE[,VALUE]");
  }
  const Setting& setting = FindSetting(text.substr(0, equals));
  RequireAccess(setting, setting.write);
  return {&setting, ParseArguments(setting, setting.write, Split(text.substr(equals + 1), ','))};
}

std::vector<SettingWrite> ParseAssignments(const std::vector<std::string>& texts) {
  std::vector<SettingWrite> writes;
  writes.reserve(texts.size());
  for (const std::string& text : texts) {
    writes.push_back(ParseAssignment(text));
  }
  return writes;
}

std::vector<SettingValue> WrittenValues(const SettingWrite& write) {
  std::vector<SettingValue> values;
  const std::vector<SettingArgument>& arguments = write.setting->write.arguments;
  for (size_t i = 0; i < arguments.size(); ++i) {
    values.push_back(ValueOf(arguments[i], write.numbers[i], arguments.size() == 1));
  }
  return values;
}

Base BaseOf(const std::vector<std::string>& words) {
  return std::any_of(words.begin(), words.end(), IsHexadecimal) ? Base::kHexadecimal
                                                                : Base::kDecimal;
}

std::string TextOfValues(const std::string& setting, const std::vector<SettingValue>& values,
                         Base base) {
  std::string text;
  for (const SettingValue& value : values) {
    const std::string name = setting + (*value.name == '\0' ? "" : ".") + value.name;
    text +=
        StringPrintf("%-30s %s\n", name.c_str(), std::visit(PlainText{base}, value.value).c_str());
  }
  return text;
}

std::string JsonOfValues(const std::vector<SettingValue>& values) {
  if (values.size() == 1) {
    return std::visit(JsonText{}, values[0].value);
  }
  std::string text = "{";
  for (const SettingValue& value : values) {
    text += std::string(text.size() == 1 ? "" : ",") + JsonString(value.name) + ":" +
            std::visit(JsonText{}, value.value);
  }
  return text + "}";
}

std::string SettingsHelp(SettingAccess Setting::*direction) {
  std::string help = "Settings:\n";
  for (const Setting& setting : AllSettings()) {
    if ((setting.*direction).run != nullptr) {
      help += StringPrintf("  %-26s  %s\n", NameWithArguments(setting, setting.*direction).c_str(),
                           setting.help);
    }
  }
  return help;
}

}  // namespace hyl::v2::tool
