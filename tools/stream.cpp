// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <chrono>
#include <cmath>
#include <limits>
#include <memory>
#include <optional>

#include <fmt/format.h>

#include "client.h"
#include "command.h"
#include "terminal.h"

namespace hyl::v2::tool {
namespace {

struct StreamOptions {
  RunOptions run;
  uint64_t count = 0;  // 0 for no limit
};

/// The next of 1, 2, 5, 10, 20, ... that is not below `value`.
double RoundScale(double value) {
  double scale = 1;
  for (int step = 0; std::isfinite(value) && scale < value; ++step) {
    scale *= step % 3 == 1 ? 2.5 : 2;
  }
  return scale;
}

/// Shows the samples of one sensor: a line each or, on a terminal, the newest with a bar a channel,
/// up to 20 times a second.
class StreamView {
 public:
  StreamView(const Context& context, std::string sensor)
      : context_(context), sensor_(std::move(sensor)), panel_(PanelOf(context)) {}

  void Show(const SpectralSample& sample) {
    if (samples_++ == 0) {
      start_ns_ = sample.timestamp_ns;
      channels_ = sample.values.size();
      context_.out.Add(context_.format == "csv" ? CsvHeader() : "");
    }
    newest_ = sample;
    if (!panel_) {
      context_.out.Add(Line(sample));
    } else if (Clock::now() >= next_draw_) {
      DrawPanel();
    }
  }

  /// Shows what has been held back.
  void Finish() {
    if (panel_ && samples_ > 0) {
      DrawPanel();
    }
  }

 private:
  using Clock = std::chrono::steady_clock;

  std::string CsvHeader() const {
    std::string line = "timestamp_ns";
    for (size_t channel = 0; channel < channels_; ++channel) {
      line += fmt::format(",channel_{}", channel);
    }
    return line + "\n";
  }

  std::string Line(const SpectralSample& sample) const {
    const bool csv = context_.format == "csv";
    std::string line =
        csv ? fmt::format("{}", sample.timestamp_ns) : fmt::format("{:10.3f} s", SecondsAt(sample));
    for (const float value : sample.values) {
      line += csv ? fmt::format(",{}", value) : fmt::format(" {:9.2f}", value);
    }
    // In CSV a shorter sample keeps the number of columns; a longer one loses nothing.
    const size_t missing = channels_ - std::min(channels_, sample.values.size());
    return line + std::string(csv ? missing : 0, ',') + "\n";
  }

  void DrawPanel() {
    next_draw_ = Clock::now() + std::chrono::milliseconds(50);
    Rescale();
    panel_->Begin();
    panel_->AddText(
        fmt::format("{}   sample {}   {:.2f} s", Printable(sensor_), samples_, SecondsAt(newest_)));
    for (size_t channel = 0; channel < newest_.values.size(); ++channel) {
      const auto value = static_cast<double>(newest_.values[channel]);
      panel_->AddBar(fmt::format("{:3}  {:12.2f}  ", channel, value), value / scale_);
    }
    panel_->AddText(fmt::format("a full bar is {:g}; Ctrl-C ends", scale_));
    panel_->Draw();
  }

  void Rescale() {
    const auto largest = std::max_element(newest_.values.begin(), newest_.values.end());
    const double needed = largest == newest_.values.end() ? 1 : RoundScale(*largest);
    // Shrinks only when the bars would become very short, lest the scale jump to and fro.
    if (needed > scale_ || needed <= scale_ / 5) {
      scale_ = needed;
    }
  }

  double SecondsAt(const SpectralSample& sample) const {
    return static_cast<double>(sample.timestamp_ns - start_ns_) / 1e9;
  }

  const Context& context_;
  const std::string sensor_;
  std::optional<Panel> panel_;
  uint64_t samples_ = 0;
  int64_t start_ns_ = 0;  // of the first sample
  size_t channels_ = 0;   // of the first sample
  SpectralSample newest_{};
  double scale_ = 1;  // the value of a full bar
  Clock::time_point next_draw_{};
};

void RunStream(const Context& context, const StreamOptions& options) {
  SensorRun run(context, options.run);
  run.Start({{OpticalSensorType::kAmbientLight, 1}});
  StreamView view(context, run.names());
  const bool json = context.format == "json";
  context.out.Add(json ? RecordingHeader(context, options.run, run) : "");
  // Without a change of the light an on-change sensor has nothing to send.
  const double timeout = options.run.mode == "on-change" ? std::numeric_limits<double>::infinity()
                                                         : options.run.timeout;
  uint64_t left = options.count;
  const RunEnd end = run.Pump(timeout, [&](const Delivery& delivery) {
    const auto* const sample = std::get_if<SpectralSample>(&delivery.what);
    if (json) {
      context.out.Add(RecordingLine(run, delivery));
    } else if (sample != nullptr) {
      view.Show(*sample);
    }
    return sample == nullptr || --left != 0;
  });
  view.Finish();
  context.out.Flush();
  run.Finish(end);
}

}  // namespace

void AddStreamCommand(CLI::App& app, const Context& context) {
  CLI::App* const stream =
      app.add_subcommand("stream", "show the samples of an ambient-light sensor");
  const auto options = std::make_shared<StreamOptions>();
  AddRunOptions(*stream, options->run,
                "its name, or the beginning of it; the first listed unless given", 1);
  AddModeOption(*stream, options->run);
  TakeNumber(stream->add_option("--count", options->count, "end after N samples"), "N", 1, 1e15);
  stream->footer(
      "On a terminal the text format draws a bar a channel; elsewhere it is a line a sample.\n"
      "Example: hyl-spectral stream rear --seconds 10 --format csv > samples.csv");
  stream->callback([&context, options] { RunStream(context, *options); });
}

}  // namespace hyl::v2::tool
