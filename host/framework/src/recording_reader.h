// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <istream>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

// Reads recordings, which docs/recordings.md describes.
namespace hyl::v2::host {

/// Finds a member quickly in an object of any size. Real numbers are single-precision, as written.
using Json =
    nlohmann::basic_json<std::map, std::vector, std::string, bool, int64_t, uint64_t, float>;

/// The number in `json`, which may hold its bits as text. Throws std::exception for anything else.
float RealFrom(const Json& json);

/// The value in `json`. Throws std::exception if it is of another type or out of range.
template <typename T>
T ValueFrom(const Json& json) {
  if constexpr (std::is_same_v<T, float>) {
    return RealFrom(json);
  } else if constexpr (std::integral<T>) {
    const bool fits = json.is_number_unsigned()
                          ? std::in_range<T>(json.get<uint64_t>())
                          : json.is_number_integer() && std::in_range<T>(json.get<int64_t>());
    return fits ? json.get<T>() : throw std::out_of_range("");
  } else {
    return json.get<T>();
  }
}

/// Throws std::runtime_error unless `holds`.
void Require(bool holds, const std::string& fault);

/// The value of a member. Throws std::runtime_error, whose text names the fault.
template <typename T>
T MemberOf(const Json& json, const char* name) try {
  return ValueFrom<T>(json.at(name));
} catch (const std::exception&) {
  throw std::runtime_error("'" + std::string(name) +
                           "' is missing, of a wrong type or out of range");
}

/// The values of a member that is a list. Throws like MemberOf.
template <typename T>
std::vector<T> ListOf(const Json& json, const char* name) try {
  std::vector<T> values;
  for (const Json& value : json.at(name).get_ref<const Json::array_t&>()) {
    values.push_back(ValueFrom<T>(value));
  }
  return values;
} catch (const std::exception&) {
  throw std::runtime_error("'" + std::string(name) +
                           "' is missing, no list, or has an element of a wrong type or range");
}

/// Reads a recording line by line, in bounded memory. Throws std::runtime_error, whose text names
/// the recording, the line and the fault.
class RecordingReader {
 public:
  /// Reads the header. `name` is the recording's name in messages. `stream` must outlive the
  /// reader.
  RecordingReader(std::istream& stream, std::string name);

  const Json& Header() const { return header_; }
  const std::string& HeaderText() const { return header_text_; }

  struct Line {
    int64_t time_ns;  ///< of its callback, from the beginning of the recording
    Json json;
  };
  /// The next line; nothing at the end, which may be in the middle of a line.
  std::optional<Line> Next();
  /// Whether the recording has ended in the middle of a line.
  bool CutOff() const { return cut_off_; }
  /// Throws; `fault` is a fault of the line that was read last.
  [[noreturn]] void Fail(const std::string& fault) const;

 private:
  bool ReadText();
  Json ParseText() const;

  std::istream& stream_;
  const std::string name_;
  const std::unique_ptr<char[]> text_;
  size_t size_ = 0;
  size_t line_number_ = 0;
  int64_t time_ns_ = 0;  // of the line that was read last
  bool cut_off_ = false;
  Json header_;
  std::string header_text_;
};

}  // namespace hyl::v2::host
