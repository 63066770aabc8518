#pragma once

#include <string>

#include "interrupt.h"
#include "output.h"

namespace hyl::v2::tool {

/// What a command works with.
struct Context {
  Output& out;
  const Interrupt& interrupt;
  bool verbose;  ///< the library's log goes to standard error
};

/// Writes a line to standard error, marked as the tool's.
void PrintNotice(const std::string& line);

}  // namespace hyl::v2::tool
