#include "context.h"

#include <cstdio>

#include "failure.h"

namespace hyl::v2::tool {

void RefuseCsv(const Context& context) {
  if (context.format == Format::kCsv) {
    throw Failure(ExitCode::kUsage, "csv is for stream and flicker; choose text or json");
  }
}

void PrintNotice(const std::string& line) {
  // Where standard error cannot be written there is nobody to tell.
  static_cast<void>(std::fprintf(stderr, "hyl-spectral: %s\n", Printable(line).c_str()));
}

}  // namespace hyl::v2::tool
