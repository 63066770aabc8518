#include <android-base/stringprintf.h>

#include <cstdarg>
#include <cstddef>
#include <cstdio>

namespace android::base {
namespace {

__attribute__((__format__(__printf__, 2, 0))) void AppendFormatted(std::string* out,
                                                                   const char* format,
                                                                   va_list arguments) {
  va_list measuring;
  va_copy(measuring, arguments);
  const int length = std::vsnprintf(nullptr, 0, format, measuring);
  va_end(measuring);
  if (length <= 0) {
    return;
  }

  const std::size_t old_size = out->size();
  // vsnprintf ends with a NUL, for which there must be room while it writes.
  out->resize(old_size + static_cast<std::size_t>(length) + 1);
  static_cast<void>(std::vsnprintf(out->data() + old_size, static_cast<std::size_t>(length) + 1,
                                   format, arguments));
  out->pop_back();
}

}  // namespace

std::string StringPrintf(const char* format, ...) {
  std::string text;
  va_list arguments;
  va_start(arguments, format);
  AppendFormatted(&text, format, arguments);
  va_end(arguments);
  return text;
}

void StringAppendF(std::string* out, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  AppendFormatted(out, format, arguments);
  va_end(arguments);
}

}  // namespace android::base
