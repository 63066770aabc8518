#include "errors.h"

#include <algorithm>
#include <cstdio>
#include <iterator>
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
};

/// A result of the library in words.
struct ResultText {
  HylErr result;
  ExitCode exit_code;
  const char* name;
  const char* meaning;
  const char* advice;  // what to do next
};

constexpr ResultText kResultTexts[] = {
    {HylErr::kFailed, ExitCode::kFramework, "kFailed",
     "the sensor framework is not reachable or did not answer",
     "check that its service runs, then try again (-v shows the log)"},
    {HylErr::kNotFound, ExitCode::kNotFound, "kNotFound", "there is no such sensor or session",
     "'hyl-spectral list' shows the names"},
    {HylErr::kInvalidArgument, ExitCode::kFramework, "kInvalidArgument",
     "a value is not one that the sensor takes", "'hyl-spectral set --help' tells what it takes"},
    {HylErr::kNullPointer, ExitCode::kInternal, "kNullPointer", "a place for the result is missing",
     "report this as a fault of the tool"},
    {HylErr::kNoSession, ExitCode::kAlreadyRunning, "kNoSession", "all sessions are taken",
     "disable a running sensor, then try again"},
    {HylErr::kAlreadyRunning, ExitCode::kAlreadyRunning, "kAlreadyRunning",
     "the sensor is running already", "end the session that runs it, then try again"},
};

constexpr ResultText kFrameworkCode = {
    HylErr{}, ExitCode::kFramework, "framework code", "the sensor framework refused",
    "try again, and look the code up in the framework's documentation if it stays"};

}  // namespace

std::string ExitCodesHelp() {
  std::string help = "Exit codes:\n";
  for (const auto& [code, text] : kExitCodeTexts) {
    help += fmt::format("  {}  {}\n", static_cast<int>(code), text);
  }
  return help;
}

void Require(HylErr result, const std::string& action) {
  if (result == HylErr::kOk) {
    return;
  }
  const ResultText* const found =
      std::find_if(std::begin(kResultTexts), std::end(kResultTexts),
                   [=](const ResultText& text) { return text.result == result; });
  const ResultText& text = found != std::end(kResultTexts) ? *found : kFrameworkCode;
  throw Failure(text.exit_code, fmt::format("{}: {} ({}, {}); {}", action, text.meaning, text.name,
                                            static_cast<int>(result), text.advice));
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
