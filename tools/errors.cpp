// SPDX-License-Identifier: Apache-2.0
#include "errors.h"

#include <cstdio>
#include <utility>

#include <fmt/format.h>

namespace hyl::v2::tool {
namespace {

constexpr std::pair<ExitCode, const char*> kExitCodeTexts[] = {
    {ExitCode::kOk, "done; also after Ctrl-C, or when the reader of a pipe has gone"},
    {ExitCode::kInternal, "memory, threads or files are used up"},
    {ExitCode::kUsage, "the command line is wrong"},
    {ExitCode::kNotFound, "no sensor has that name"},
    {ExitCode::kAlreadyRunning, "the sensor is running already, or all sessions are taken"},
    {ExitCode::kFramework, "the sensor framework is missing, or refused"},
    {ExitCode::kOutput, "the output or the picture could not be written"},
    {ExitCode::kLost, "the sensor was lost: it no longer sends anything"},
    {ExitCode::kRecording, "the recording cannot be replayed"},
};

ExitCode ExitCodeOf(HylErr result) {
  switch (result) {
    case HylErr::kNotFound:
      return ExitCode::kNotFound;
    case HylErr::kNullPointer:
      return ExitCode::kInternal;
    case HylErr::kNoSession:
    case HylErr::kAlreadyRunning:
      return ExitCode::kAlreadyRunning;
    default:
      return ExitCode::kFramework;
  }
}

}  // namespace

std::string ExitCodesHelp() {
  std::string help = "Exit codes:\n";
  for (const auto& [code, text] : kExitCodeTexts) {
    help += fmt::format("  {}  {}\n", static_cast<int>(code), text);
  }
  return help;
}

void Require(HylErr result, const std::string& action) {
  if (result != HylErr::kOk) {
    throw Failure(ExitCodeOf(result),
                  fmt::format("{} ({}): {}", action, NameOf(result), AdviceOf(result)));
  }
}

void PrintNotice(const std::string& line) {
  // Where standard error cannot be written there is nobody to tell.
  static_cast<void>(std::fprintf(stderr, "hyl-spectral: %s\n", Printable(line).c_str()));
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
