// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <iosfwd>

namespace hyl::v2 {

/// Result of a framework or library call. Zero is success.
///
/// The framework may return values that have no name here; they are passed through unchanged, so a
/// switch over a HylErr always needs a default branch.
enum class HylErr : uint8_t {
  kOk = 0,
  kFailed = 2,
  kNotFound = 7,
  kInvalidArgument = 9,
  kNullPointer = 15,
  kNoSession = 17,
  kAlreadyRunning = 19,
};

/// A code with a name, and what to do about it.
struct HylErrText {
  HylErr err;
  const char* name;
  const char* advice;  ///< one line: what happened; what to do
};

/// All codes that have names.
inline constexpr HylErrText kHylErrTexts[] = {
    {HylErr::kOk, "kOk", "done; nothing to do"},
    {HylErr::kFailed, "kFailed",
     "no connection or reply, or a changed list; check that the framework runs, then try again"},
    {HylErr::kNotFound, "kNotFound",
     "no sensor or session matches; compare with the names of the listed sensors"},
    {HylErr::kInvalidArgument, "kInvalidArgument",
     "a value is invalid; see the documentation for those that are valid"},
    {HylErr::kNullPointer, "kNullPointer", "an out pointer is null; correct the call"},
    {HylErr::kNoSession, "kNoSession",
     "all sessions of the instance are open; disable one, then try again"},
    {HylErr::kAlreadyRunning, "kAlreadyRunning",
     "the sensor is running already; use the session that runs it, or disable that first"},
};

/// The number of each code in decimal: the names of those that have no other.
inline constexpr auto kHylErrNumbers = [] {
  std::array<std::array<char, 4>, 256> numbers{};
  for (unsigned code = 0; code < numbers.size(); ++code) {
    size_t length = 0;
    for (const unsigned unit : {100U, 10U, 1U}) {
      if (code >= unit || unit == 1) {
        numbers[code][length++] = static_cast<char>('0' + code / unit % 10);
      }
    }
  }
  return numbers;
}();

/// The words for any code.
constexpr HylErrText Describe(HylErr err) {
  for (const HylErrText& text : kHylErrTexts) {
    if (text.err == err) {
      return text;
    }
  }
  return {err, kHylErrNumbers[static_cast<uint8_t>(err)].data(),
          "the framework refused; look the code up in its documentation"};
}

/// The code's name, such as "kNotFound"; the number of a code that has none.
constexpr const char* NameOf(HylErr err) {
  return Describe(err).name;
}

/// What happened and what to do, in one line.
constexpr const char* AdviceOf(HylErr err) {
  return Describe(err).advice;
}

/// Writes the name; GoogleTest prints a HylErr by it.
template <typename Traits>
std::basic_ostream<char, Traits>& operator<<(std::basic_ostream<char, Traits>& out, HylErr err) {
  return out << NameOf(err);
}

}  // namespace hyl::v2
