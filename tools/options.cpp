#include "options.h"

#include <android-base/stringprintf.h>

#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

namespace hyl::v2::tool {
namespace {

const CLI::Validator& NonEmpty() {
  static const CLI::Validator validator(
      [](std::string& text) { return text.empty() ? std::string("must not be empty") : ""; }, "");
  return validator;
}

std::string RangeText(double least, double most) {
  return android::base::StringPrintf("%.10g to %.10g", least, most);
}

}  // namespace

void AddSensorArgument(CLI::App& app, std::string& name) {
  app.add_option("SENSOR", name, "its name, or the beginning of it; the first listed unless given")
      ->check(NonEmpty());
}

void AddTimeoutOption(CLI::App& app, double& seconds) {
  app.add_option("--timeout", seconds, "give up after S seconds without data; 5 unless given")
      ->type_name("S")
      ->check(NumberWithin(0.001, 366 * 86400.0));
}

void SetFooter(CLI::App& app, const std::string& details, const char* example) {
  app.footer(details + "Options of all commands: hyl-spectral --help\nExample: " + example);
}

void AddSecondsOption(CLI::App& app, std::optional<double>& seconds) {
  app.add_option("--seconds", seconds, "end after S seconds; without it, on Ctrl-C")
      ->type_name("S")
      ->check(NumberWithin(0.001, 366 * 86400.0));
}

void AddSetOption(CLI::App& app, std::vector<std::string>& assignments) {
  app.add_option("--set", assignments, "write a setting first; can be given several times")
      ->type_name("NAME=VALUE[,VALUE]")
      ->allow_extra_args(false);
}

void AddFormatOption(CLI::App& app, Format& format) {
  static constexpr Choice kFormats[] = {{"text", static_cast<int>(Format::kText)},
                                        {"json", static_cast<int>(Format::kJson)},
                                        {"csv", static_cast<int>(Format::kCsv)}};
  app.add_option("--format", format, "how to print; text unless given; csv for samples alone")
      ->type_name(JoinNames(kFormats, "|"))
      ->transform(OneOf(kFormats));
}

CLI::Validator NumberWithin(double least, double most) {
  const auto check = [=](std::string& text) -> std::string {
    double value = 0;
    // Written so that "nan" fails.
    if (CLI::detail::lexical_cast(text, value) && value >= least && value <= most) {
      return {};
    }
    return "'" + text + "' is not a number from " + RangeText(least, most);
  };
  return {check, ""};
}

std::string JoinNames(std::span<const Choice> choices, const char* separator) {
  std::string names;
  for (const Choice& choice : choices) {
    names += std::string(names.empty() ? "" : separator) + choice.name;
  }
  return names;
}

CLI::Validator OneOf(std::span<const Choice> choices) {
  const auto choose =
      [known = std::vector(choices.begin(), choices.end())](std::string& text) -> std::string {
    for (const Choice& choice : known) {
      if (text == choice.name) {
        text = std::to_string(choice.value);
        return {};
      }
    }
    return "'" + text + "' is not one of " + JoinNames(known, ", ");
  };
  return {choose, ""};
}

}  // namespace hyl::v2::tool
