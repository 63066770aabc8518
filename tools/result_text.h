#pragma once

#include <string_view>

#include <hyl/hyl_err.h>

#include "exit_codes.h"
#include "failure.h"

namespace hyl::v2::tool {

/// A result of the library in words.
struct ResultText {
  const char* name;
  const char* meaning;
  const char* advice;  ///< what to do next
  ExitCode exit_code;
  HylErr result;
};

/// The words for `result`; a code without a name is the framework's own.
const ResultText& TextOf(HylErr result);

/// The failure of `action` ("cannot ...") with `result`.
Failure FailureOf(std::string_view action, HylErr result);

/// Throws FailureOf(action, result) unless `result` is kOk.
void Require(HylErr result, std::string_view action);

}  // namespace hyl::v2::tool
