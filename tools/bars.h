#pragma once

#include <cstddef>
#include <string>

#include "terminal.h"

namespace hyl::v2::tool {

/// A horizontal bar of `width` cells, of which the part `fill` (0 to 1) is full.
std::string Bar(double fill, size_t width, const Terminal& terminal);

/// The next of 1, 2, 5, 10, 20, ... that is not below `value`.
double RoundScale(double value);

/// Draws a block of lines over the one drawn before it.
class Redraw {
 public:
  /// The text that brings `lines`, each ended by a line feed and none too wide, onto the screen.
  /// Where they are too many, the last that fits says so.
  std::string Frame(const std::string& lines, const TerminalSize& size);

 private:
  size_t drawn_lines_ = 0;
};

}  // namespace hyl::v2::tool
