#pragma once

#include <string>

namespace android::base {

/// Formats as printf does and returns the text; no length is too long for it.
std::string StringPrintf(const char* format, ...) __attribute__((__format__(__printf__, 1, 2)));

}  // namespace android::base
