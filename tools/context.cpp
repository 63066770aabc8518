#include "context.h"

#include <cstdio>

namespace hyl::v2::tool {

void PrintNotice(const std::string& line) {
  // Where standard error cannot be written there is nobody to tell.
  static_cast<void>(std::fprintf(stderr, "hyl-spectral: %s\n", line.c_str()));
}

}  // namespace hyl::v2::tool
