#pragma once

#include <stdexcept>
#include <string>

#include "exit_codes.h"

namespace hyl::v2::tool {

/// Ends the tool with a code and one line on standard error. Thrown; what it passes on its way out
/// disables the sensor and destroys the instance.
class Failure : public std::runtime_error {
 public:
  Failure(ExitCode code, const std::string& line) : std::runtime_error(line), code_(code) {}

  ExitCode code() const { return code_; }

 private:
  ExitCode code_;
};

/// Ends the tool without a word and with success: the user interrupted it while its output was
/// held up, or the reader of its output has gone. Thrown as Failure is.
struct QuietEnd {};

}  // namespace hyl::v2::tool
