#include "exit_codes.h"

#include <android-base/stringprintf.h>

namespace hyl::v2::tool {
namespace {

struct ExitCodeText {
  ExitCode code;
  const char* text;
};

constexpr ExitCodeText kExitCodeTexts[] = {
    {ExitCode::kOk, "done; also after Ctrl-C, or when the reader of a pipe has gone"},
    {ExitCode::kInternal, "no memory, threads or files to be had"},
    {ExitCode::kUsage, "the command line is wrong"},
    {ExitCode::kNotFound, "no sensor has that name"},
    {ExitCode::kAlreadyRunning, "the sensor is running already, or all sessions are taken"},
    {ExitCode::kFramework, "the sensor framework is missing, or refused"},
    {ExitCode::kOutput, "the output or the picture could not be written"},
    {ExitCode::kLost, "the sensor was lost: it sends nothing any more"},
};

}  // namespace

std::string ExitCodesHelp() {
  std::string help = "Exit codes:\n";
  for (const ExitCodeText& entry : kExitCodeTexts) {
    android::base::StringAppendF(&help, "  %d  %s\n", static_cast<int>(entry.code), entry.text);
  }
  return help;
}

}  // namespace hyl::v2::tool
