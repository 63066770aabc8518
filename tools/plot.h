// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "flicker_analysis.h"

namespace hyl::v2::tool {

/// Asked before a run, so that a missing gnuplot, or a place that cannot be written, is known in
/// time. Throws Failure where there can be no picture at `path`.
void RequirePlot(const std::string& path);

/// Has gnuplot draw waveform and spectrum, as an SVG or a PNG picture, whichever the end of `path`
/// says. The picture appears there when it is complete, and never before. Throws Failure.
void DrawPlot(const std::string& path, const FlickerReport& report, const std::string& sensor);

/// What is wrong with a picture's path, for the command line; empty where nothing is.
std::string PictureFault(const std::string& path);

}  // namespace hyl::v2::tool
