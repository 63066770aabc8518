#pragma once

#include <optional>
#include <span>
#include <string>
#include <vector>

#include <CLI/App.hpp>
#include <CLI/Validators.hpp>

#include "text.h"

namespace hyl::v2::tool {

/// Adds the sensor's name as the command's first argument, which may be left out.
void AddSensorArgument(CLI::App& app, std::string& name);

/// Adds --seconds.
void AddSecondsOption(CLI::App& app, std::optional<double>& seconds);

/// Adds --timeout.
void AddTimeoutOption(CLI::App& app, double& seconds);

/// Ends the command's help with details, which are whole lines, and an example.
void SetFooter(CLI::App& app, const std::string& details, const char* example);

/// Adds --set, for settings that are written before the sensor starts.
void AddSetOption(CLI::App& app, std::vector<std::string>& assignments);

/// Adds --format.
void AddFormatOption(CLI::App& app, Format& format);

/// Accepts a number from `least` to `most`.
CLI::Validator NumberWithin(double least, double most);

/// A word for an enumerator's value.
struct Choice {
  const char* name;
  int value;
};

std::string JoinNames(std::span<const Choice> choices, const char* separator);

/// Turns one of the words into its value, for an option that is an enumeration.
CLI::Validator OneOf(std::span<const Choice> choices);

}  // namespace hyl::v2::tool
