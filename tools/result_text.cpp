#include "result_text.h"

#include <algorithm>
#include <iterator>
#include <string>

#include <android-base/stringprintf.h>

namespace hyl::v2::tool {
namespace {

constexpr ResultText kTexts[] = {
    {"kOk", "done", "nothing is left to do", ExitCode::kOk, HylErr::kOk},
    {"kFailed", "the sensor framework is not reachable or did not answer",
     "check that its service runs, then try again (-v shows the log)", ExitCode::kFramework,
     HylErr::kFailed},
    {"kNotFound", "there is no such sensor or session", "'hyl-spectral list' shows the names",
     ExitCode::kNotFound, HylErr::kNotFound},
    {"kInvalidArgument", "a value is not one that the sensor takes",
     "'hyl-spectral set --help' tells what it takes", ExitCode::kFramework,
     HylErr::kInvalidArgument},
    {"kNullPointer", "a place for the result is missing", "report this as a fault of the tool",
     ExitCode::kInternal, HylErr::kNullPointer},
    {"kNoSession", "all 8 sessions are taken", "disable a running sensor, then try again",
     ExitCode::kAlreadyRunning, HylErr::kNoSession},
    {"kAlreadyRunning", "the sensor is running already",
     "end the session that runs it, then try again", ExitCode::kAlreadyRunning,
     HylErr::kAlreadyRunning},
};

constexpr ResultText kFrameworkCode = {
    "framework code", "the sensor framework refused",
    "try again, and look the code up in the framework's documentation if it stays",
    ExitCode::kFramework, HylErr{}};

}  // namespace

const ResultText& TextOf(HylErr result) {
  const ResultText* const found =
      std::find_if(std::begin(kTexts), std::end(kTexts),
                   [=](const auto& text) { return text.result == result; });
  return found != std::end(kTexts) ? *found : kFrameworkCode;
}

Failure FailureOf(std::string_view action, HylErr result) {
  const ResultText& text = TextOf(result);
  return Failure(
      text.exit_code,
      android::base::StringPrintf("%s: %s (%s, %d); %s", std::string(action).c_str(), text.meaning,
                                  text.name, static_cast<int>(result), text.advice));
}

void Require(HylErr result, std::string_view action) {
  if (result != HylErr::kOk) {
    throw FailureOf(action, result);
  }
}

}  // namespace hyl::v2::tool
