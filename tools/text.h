// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace hyl::v2::tool {

/// JSON whose members stay in order, and whose numbers are single-precision, as the library's are,
/// so that they have no more digits than it takes to read them back.
using Json = nlohmann::basic_json<nlohmann::ordered_map, std::vector, std::string, bool, int64_t,
                                  uint64_t, float>;

/// `json` on a line. Names that are not UTF-8 have their stray bytes replaced.
template <typename AnyJson>
std::string JsonLine(const AnyJson& json) {
  return json.dump(-1, ' ', false, AnyJson::error_handler_t::replace) + "\n";
}

/// With `digits` decimals and the unit; "none" where there is no value.
inline std::string FixedText(std::optional<double> value, int digits, const char* unit) {
  return value ? fmt::format("{:.{}f}{}", *value, digits, unit) : "none";
}

}  // namespace hyl::v2::tool
