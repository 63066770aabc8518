#include "text.h"

#include <android-base/stringprintf.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>

namespace hyl::v2::tool {
namespace {

template <typename Float>
std::string ShortestText(Float value) {
  std::array<char, 64> digits;
  const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), value).ptr;
  return {digits.data(), end};
}

bool IsControl(char character) {
  const auto byte = static_cast<unsigned char>(character);
  return byte < 0x20 || byte == 0x7F;
}

}  // namespace

std::string NumberText(float value) {
  return ShortestText(value);
}

std::string NumberText(double value) {
  return ShortestText(value);
}

std::string FixedText(std::optional<double> value, int digits, const char* unit) {
  return value ? android::base::StringPrintf("%.*f%s", digits, *value, unit) : "none";
}

std::string JsonNumber(float value) {
  return std::isfinite(value) ? ShortestText(value) : "null";
}

std::string JsonNumber(double value) {
  return std::isfinite(value) ? ShortestText(value) : "null";
}

std::string JsonString(std::string_view text) {
  std::string quoted = "\"";
  for (const char character : text) {
    if (IsControl(character)) {
      android::base::StringAppendF(&quoted, "\\u%04x", static_cast<unsigned>(character));
      continue;
    }
    if (character == '"' || character == '\\') {
      quoted += '\\';
    }
    quoted += character;
  }
  return quoted + '"';
}

std::string Printable(std::string_view text) {
  std::string shown(text);
  std::replace_if(shown.begin(), shown.end(), IsControl, '?');
  return shown;
}

}  // namespace hyl::v2::tool
