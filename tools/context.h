#pragma once

#include <string>

#include "interrupt.h"
#include "output.h"
#include "text.h"

namespace hyl::v2::tool {

/// What a command works with.
struct Context {
  Output& out;
  const Interrupt& interrupt;
  Format format;
  bool verbose;  ///< the library's log goes to standard error
};

/// Throws Failure where the user wants CSV, for a command that has none.
void RefuseCsv(const Context& context);

/// Writes a line to standard error, marked as the tool's. Control characters become '?', so that it
/// is one line whatever it quotes.
void PrintNotice(const std::string& line);

}  // namespace hyl::v2::tool
