#include "text.h"

#include <fmt/format.h>

namespace hyl::v2::tool {
std::string FixedText(std::optional<double> value, int digits, const char* unit) {
  return value ? fmt::format("{:.{}f}{}", *value, digits, unit) : "none";
}

std::string Printable(std::string text) {
  for (size_t i = 0; i < text.size(); ++i) {
    const auto byte = static_cast<unsigned char>(text[i]);
    const auto before = static_cast<unsigned char>(i > 0 ? text[i - 1] : ' ');
    // Of UTF-8's controls beyond ASCII this is the second byte. Behind another it continues a
    // letter.
    const bool ends_control = before == 0xC2 && byte < 0xA0;
    if (byte < 0x20 || byte == 0x7F || ends_control) {
      text[i] = '?';
    }
    if (ends_control) {
      text[i - 1] = '?';
    }
  }
  return text;
}

}  // namespace hyl::v2::tool
