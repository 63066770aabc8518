#pragma once

#include <string>

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
};

/// The codes with their meanings, for the end of --help.
std::string ExitCodesHelp();

}  // namespace hyl::v2::tool
