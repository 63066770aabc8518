#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include "bars.h"
#include "sample_writer.h"
#include "terminal.h"

namespace hyl::v2::tool {

/// Shows the newest sample on a terminal: a bar a channel, drawn anew for each sample, up to 20
/// times a second.
class BarView : public SampleWriter {
 public:
  BarView(Output& out, const Terminal& terminal, std::string title);

  void Write(const SpectralSample& sample) override;
  void Finish() override;

 private:
  void Draw();
  void Rescale();
  std::string Heading() const;
  std::string ChannelLine(size_t channel, size_t columns) const;

  Output& out_;
  const Terminal terminal_;
  const std::string title_;
  Redraw redraw_;
  SpectralSample newest_{};
  int64_t start_ns_ = 0;
  uint64_t samples_ = 0;
  double scale_ = 1;  // the value of a full bar
  std::chrono::steady_clock::time_point next_draw_{};
};

}  // namespace hyl::v2::tool
