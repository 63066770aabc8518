#pragma once

#include <string>

namespace android::base {

/// Formats as printf does and returns the text; no length is too long for it.
std::string StringPrintf(const char* format, ...) __attribute__((__format__(__printf__, 1, 2)));

/// Appends to `*out` what StringPrintf would return. The arguments must not point into `*out`.
void StringAppendF(std::string* out, const char* format, ...)
    __attribute__((__format__(__printf__, 2, 3)));

}  // namespace android::base
