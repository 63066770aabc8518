// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <stdexcept>
#include <string>

#include <hyl/hyl_err.h>

namespace hyl::v2::tool {

/// How the tool ends. The values are part of its interface: scripts test them.
enum class ExitCode : int {
  kOk = 0,
  kInternal = 1,
  kUsage = 2,
  kNotFound = 3,
  kAlreadyRunning = 4,
  kFramework = 5,
  kOutput = 6,
  kLost = 7,
  kRecording = 8,
};

/// The codes with their meanings, for the end of --help.
std::string ExitCodesHelp();

/// Ends the tool with a code and one line on standard error. Thrown; what it passes on its way out
/// disables the sensor and destroys the instance.
struct Failure : std::runtime_error {
  Failure(ExitCode exit_code, const std::string& line) : runtime_error(line), code(exit_code) {}

  ExitCode code;
};

/// Ends the tool without a word and with success: the user interrupted it while its output was
/// held up, or the reader of its output has gone. Thrown as Failure is.
struct QuietEnd {};

/// Throws the Failure of `action` ("cannot ...") unless `result` is kOk.
void Require(HylErr result, const std::string& action);

/// Writes a line to standard error, marked as the tool's. Control characters become '?', so that it
/// is one line whatever it quotes.
void PrintNotice(const std::string& line);

/// `text`, which should be UTF-8, with control characters as '?'.
std::string Printable(std::string text);

}  // namespace hyl::v2::tool
