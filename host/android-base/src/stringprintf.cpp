// SPDX-License-Identifier: Apache-2.0
#include <android-base/stringprintf.h>

#include <algorithm>
#include <cstdarg>
#include <cstddef>
#include <cstdio>

namespace android::base {

std::string StringPrintf(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  va_list measured;
  va_copy(measured, arguments);
  const int length = std::vsnprintf(nullptr, 0, format, measured);
  va_end(measured);
  std::string text(static_cast<std::size_t>(std::max(length, 0)), '\0');
  // The NUL that vsnprintf adds takes the place of the string's own.
  static_cast<void>(std::vsnprintf(text.data(), text.size() + 1, format, arguments));
  va_end(arguments);
  return text;
}

}  // namespace android::base
