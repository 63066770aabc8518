#pragma once

#include <memory>
#include <string>

#include "flicker_report.h"
#include "gnuplot.h"

namespace hyl::v2::tool {

/// Draws the waveform and the spectrum of a flicker run into a file. Made before the run, so that
/// a place that cannot be written or a missing gnuplot is known in time.
class FlickerPlot {
 public:
  explicit FlickerPlot(const std::string& path) : file_(path) {}

  /// To be called once. Throws Failure.
  void Draw(const FlickerReport& report, const std::string& sensor);

 private:
  PictureFile file_;
  Gnuplot gnuplot_{file_.fd()};
};

}  // namespace hyl::v2::tool
