#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace hyl::v2::tool {

/// How a command prints its results.
enum class Format { kText, kCsv, kJson };

/// The shortest text that reads back as the same number.
std::string NumberText(float value);
std::string NumberText(double value);

/// With `digits` decimals and the unit; "none" where there is no value.
std::string FixedText(std::optional<double> value, int digits, const char* unit);

/// As NumberText; null where JSON has no text for the value.
std::string JsonNumber(float value);
std::string JsonNumber(double value);

/// `text`, which is UTF-8, as a JSON string with its quotes.
std::string JsonString(std::string_view text);

/// Whether `text` has control characters of ASCII, among which is the end of a line.
bool HasControls(std::string_view text);

/// `text`, which should be UTF-8, as it may be shown on a terminal: control characters and stray
/// bytes become '?'.
std::string Printable(std::string_view text);

}  // namespace hyl::v2::tool
