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

/// Bytes of the UTF-8 character that `text` begins with; 0 for a control character, of which there
/// are some beyond ASCII, and for what is not UTF-8.
size_t PrintableLength(std::string_view text) {
  const auto byte = [=](size_t index) {
    return index < text.size() ? static_cast<unsigned char>(text[index]) : 0U;
  };
  if (byte(0) < 0x80) {
    return IsControl(text[0]) ? 0 : 1;
  }
  const size_t length = byte(0) >= 0xF0 ? 4 : byte(0) >= 0xE0 ? 3 : 2;
  for (size_t i = 1; i < length; ++i) {
    if ((byte(i) & 0xC0) != 0x80) {
      return 0;
    }
  }
  const bool control = byte(0) == 0xC2 && byte(1) < 0xA0;
  return control || byte(0) < 0xC2 || byte(0) > 0xF4 ? 0 : length;
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

bool HasControls(std::string_view text) {
  return std::any_of(text.begin(), text.end(), IsControl);
}

std::string Printable(std::string_view text) {
  std::string shown;
  while (!text.empty()) {
    const size_t length = PrintableLength(text);
    shown += length > 0 ? text.substr(0, length) : "?";
    text.remove_prefix(std::max<size_t>(length, 1));
  }
  return shown;
}

}  // namespace hyl::v2::tool
