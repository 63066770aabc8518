#include "terminal.h"

#include <langinfo.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <clocale>
#include <cstdlib>
#include <string_view>

namespace hyl::v2::tool {
namespace {

std::string_view Variable(const char* name) {
  // The tool never changes its environment, so that reading it is safe on any thread.
  const char* const value = std::getenv(name);  // NOLINT(concurrency-mt-unsafe)
  return value != nullptr ? value : "";
}

bool IsUtf8Locale() {
  // The character set alone: numbers keep their decimal point. Asked by the main thread alone.
  if (std::setlocale(LC_CTYPE, "") == nullptr) {  // NOLINT(concurrency-mt-unsafe)
    return false;
  }
  return std::string_view(nl_langinfo(CODESET)) == "UTF-8";  // NOLINT(concurrency-mt-unsafe)
}

}  // namespace

Terminal TerminalOf(int fd) {
  const std::string_view kind = Variable("TERM");
  const bool redraw = isatty(fd) == 1 && !kind.empty() && kind != "dumb";
  return {redraw, redraw && Variable("NO_COLOR").empty(), redraw && IsUtf8Locale()};
}

TerminalSize TerminalSizeOf(int fd) {
  winsize size = {};
  if (ioctl(fd, TIOCGWINSZ, &size) != 0 || size.ws_row == 0 || size.ws_col == 0) {
    return {24, 80};
  }
  return {size.ws_row, size.ws_col};
}

}  // namespace hyl::v2::tool
