#include "bars.h"

#include <algorithm>
#include <cmath>
#include <string_view>

namespace hyl::v2::tool {
namespace {

// Blocks of one to eight eighths of a cell.
constexpr const char* kEighths[] = {"", "▏", "▎", "▍", "▌", "▋", "▊", "▉", "█"};

std::string Repeat(const char* cell, size_t count) {
  std::string cells;
  while (count-- > 0) {
    cells += cell;
  }
  return cells;
}

std::string Cells(double fill, size_t width, bool unicode) {
  const size_t steps = unicode ? 8 : 1;
  const auto full = static_cast<size_t>(std::lround(fill * static_cast<double>(width * steps)));
  const char* const rest = unicode ? kEighths[full % steps] : "";
  const size_t used = full / steps + (*rest != '\0' ? 1 : 0);
  return Repeat(unicode ? "█" : "#", full / steps) + rest + Repeat(" ", width - used);
}

size_t CountLines(std::string_view text) {
  return static_cast<size_t>(std::count(text.begin(), text.end(), '\n'));
}

/// `lines` without those for which there is no room above the cursor's line.
std::string Fitted(const std::string& lines, const TerminalSize& size) {
  const size_t count = CountLines(lines);
  const size_t room = std::max<size_t>(size.rows, 2) - 1;
  if (count <= room) {
    return lines;
  }
  size_t end = 0;
  for (size_t line = 1; line < room; ++line) {
    end = lines.find('\n', end) + 1;
  }
  const std::string rest = std::to_string(count - room + 1) + " more lines need a taller window";
  return lines.substr(0, end) + rest.substr(0, size.columns - 1) + "\n";
}

}  // namespace

std::string Bar(double fill, size_t width, const Terminal& terminal) {
  const double part = std::isfinite(fill) ? std::clamp(fill, 0.0, 1.0) : 0;
  const std::string cells = Cells(part, width, terminal.unicode);
  return terminal.colour ? "\033[36m" + cells + "\033[0m" : cells;
}

double RoundScale(double value) {
  if (!std::isfinite(value) || value <= 0) {
    return 1;
  }
  const double decade = std::pow(10, std::floor(std::log10(value)));
  for (const double factor : {1.0, 2.0, 5.0}) {
    if (value <= factor * decade) {
      return factor * decade;
    }
  }
  return 10 * decade;
}

std::string Redraw::Frame(const std::string& all_lines, const TerminalSize& size) {
  const std::string lines = Fitted(all_lines, size);
  // Ctrl-C may have moved the cursor within its line, by its echo.
  std::string frame = "\r";
  if (drawn_lines_ > 0) {
    frame += "\033[" + std::to_string(drawn_lines_) + "A";
  }
  for (const char character : lines) {
    // What the frame before left on the line is erased.
    frame += character == '\n' ? std::string("\033[K\n") : std::string(1, character);
  }
  drawn_lines_ = CountLines(lines);
  return frame + "\033[J";
}

}  // namespace hyl::v2::tool
