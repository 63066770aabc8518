// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace android::base {

/// Returns the text that printf would write, whatever its length.
std::string StringPrintf(const char* format, ...) __attribute__((__format__(__printf__, 1, 2)));

}  // namespace android::base
