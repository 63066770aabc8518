#pragma once

#include <cstddef>

namespace hyl::v2::tool {

/// What can be shown on standard output.
struct Terminal {
  bool redraw;   ///< it is a terminal on which lines can be drawn again
  bool colour;   ///< colours may be used
  bool unicode;  ///< block characters can be shown
};

Terminal TerminalOf(int fd);

struct TerminalSize {
  size_t rows;
  size_t columns;
};

/// The present size, which the user can change at any time.
TerminalSize TerminalSizeOf(int fd);

}  // namespace hyl::v2::tool
