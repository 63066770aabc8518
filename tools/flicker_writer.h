#pragma once

#include <memory>
#include <string>

#include "client.h"
#include "flicker_report.h"
#include "output.h"
#include "terminal.h"
#include "text.h"

namespace hyl::v2::tool {

/// Shows a flicker run.
class FlickerWriter {
 public:
  virtual ~FlickerWriter() = default;

  /// Called for each block, in order.
  virtual void WriteBlock(const FlickerBlock&) {}
  /// Called every ReportSeconds of samples, and at the end of the run.
  virtual void WriteReport(const FlickerReport&) {}
  virtual double ReportSeconds() const { return 1; }
};

/// Writes a line a report.
std::unique_ptr<FlickerWriter> MakeFlickerReportWriter(Output& out, Format format,
                                                       const std::string& sensor);
/// Writes the samples: a line each, or for JSON a line a block.
std::unique_ptr<FlickerWriter> MakeFlickerSampleWriter(Output& out, Format format,
                                                       const std::string& sensor);
/// Draws the latest report anew, four times a second.
std::unique_ptr<FlickerWriter> MakeFlickerPanel(Output& out, const Terminal& terminal,
                                                const std::string& sensor);

}  // namespace hyl::v2::tool
