#include <algorithm>
#include <chrono>
#include <cmath>
#include <functional>
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
  SensorReportingMode mode = SensorReportingMode::kContinuous;
  uint64_t count = 0;  // 0 for no limit
};

/// Writes a sample on a line.
using LineWriter = std::function<void(const SpectralSample&)>;

/// Aligned columns: seconds since the first sample, then the channels.
LineWriter TextWriter(Output& out) {
  return [&out, start_ns = std::optional<int64_t>()](const SpectralSample& sample) mutable {
    start_ns = start_ns.value_or(sample.timestamp_ns);
    std::string line =
        fmt::format("{:10.3f} s", static_cast<double>(sample.timestamp_ns - *start_ns) / 1e9);
    for (const float value : sample.values) {
      line += fmt::format(" {:9.2f}", value);
    }
    out.Add(line + "\n");
  };
}

std::string CsvHeader(size_t channels) {
  std::string line = "timestamp_ns";
  for (size_t channel = 0; channel < channels; ++channel) {
    line += fmt::format(",channel_{}", channel);
  }
  return line + "\n";
}

LineWriter CsvWriter(Output& out) {
  return [&out, channels = std::optional<size_t>()](const SpectralSample& sample) mutable {
    if (!channels) {
      channels = sample.values.size();
      out.Add(CsvHeader(*channels));
    }
    // A shorter sample keeps the number of columns; a longer one loses nothing.
    const size_t missing = *channels - std::min(*channels, sample.values.size());
    out.Add(fmt::format("{},{}{}\n", sample.timestamp_ns, fmt::join(sample.values, ","),
                        std::string(missing, ',')));
  };
}

LineWriter JsonWriter(Output& out, const std::string& sensor) {
  return [&out, sensor](const SpectralSample& sample) {
    out.Add(JsonLine(Json{
        {"sensor", sensor}, {"timestamp_ns", sample.timestamp_ns}, {"values", sample.values}}));
  };
}

/// The next of 1, 2, 5, 10, 20, ... that is not below `value`.
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

/// Shows the newest sample on a terminal, a bar a channel, up to 20 times a second.
class Bars {
 public:
  Bars(Panel panel, std::string title) : panel_(std::move(panel)), title_(std::move(title)) {}

  void Show(const SpectralSample& sample) {
    if (samples_++ == 0) {
      start_ns_ = sample.timestamp_ns;
    }
    newest_ = sample;
    if (Clock::now() >= next_draw_) {
      Draw();
    }
  }

  /// Shows what has been held back.
  void Finish() {
    if (samples_ > 0) {
      Draw();
    }
  }

 private:
  using Clock = std::chrono::steady_clock;

  void Draw() {
    next_draw_ = Clock::now() + std::chrono::milliseconds(50);
    Rescale();
    panel_.Begin();
    panel_.AddText(fmt::format("{}   sample {}   {:.2f} s", title_, samples_,
                               static_cast<double>(newest_.timestamp_ns - start_ns_) / 1e9));
    for (size_t channel = 0; channel < newest_.values.size(); ++channel) {
      const auto value = static_cast<double>(newest_.values[channel]);
      panel_.AddBar(fmt::format("{:3}  {:12.2f}  ", channel, value), value / scale_);
    }
    panel_.AddText(fmt::format("a full bar is {:g}; Ctrl-C ends", scale_));
    panel_.Draw();
  }

  void Rescale() {
    double largest = 0;
    for (const float value : newest_.values) {
      largest = std::max(largest, static_cast<double>(value));
    }
    const double needed = RoundScale(largest);
    // Shrinks only when the bars would become very short, lest the scale jump to and fro.
    if (needed > scale_ || needed <= scale_ / 5) {
      scale_ = needed;
    }
  }

  Panel panel_;
  const std::string title_;
  SpectralSample newest_{};
  int64_t start_ns_ = 0;
  uint64_t samples_ = 0;
  double scale_ = 1;  // the value of a full bar
  Clock::time_point next_draw_{};
};

LineWriter MakeLineWriter(const Context& context, const std::string& sensor) {
  if (context.format == Format::kJson) {
    return JsonWriter(context.out, sensor);
  }
  return context.format == Format::kCsv ? CsvWriter(context.out) : TextWriter(context.out);
}

void RunStream(const Context& context, const StreamOptions& options) {
  SensorRun run(context, OpticalSensorType::kAmbientLight, options.run,
                [&](HylSpectralApi& api, const char* name, uint32_t& session_id) {
                  return api.EnableAmbientLightSensor(name, session_id, options.mode);
                });
  std::optional<Bars> bars;
  if (auto panel = PanelOf(context)) {
    bars.emplace(*std::move(panel), Printable(run.sensor()));
  }
  const LineWriter write_line = MakeLineWriter(context, run.sensor());
  // Without a change of the light an on-change sensor has nothing to send.
  const double timeout = options.mode == SensorReportingMode::kContinuous
                             ? options.run.timeout
                             : std::numeric_limits<double>::infinity();
  uint64_t left = options.count;
  const RunEnd end = run.Pump(options.run.seconds, timeout, [&](const Delivery& delivery) {
    const auto& sample = std::get<SpectralSample>(delivery);
    if (bars) {
      bars->Show(sample);
    } else {
      write_line(sample);
    }
    return --left != 0;
  });
  if (bars) {
    bars->Finish();
  }
  context.out.Flush();
  run.Finish(end);
}

}  // namespace

void AddStreamCommand(CLI::App& app, const Context& context) {
  CLI::App* const stream =
      app.add_subcommand("stream", "show the samples of an ambient-light sensor");
  const auto options = std::make_shared<StreamOptions>();
  AddRunOptions(*stream, options->run);
  AddChoice<SensorReportingMode>(
      *stream, "--mode",
      {{"continuous", SensorReportingMode::kContinuous},
       {"on-change", SensorReportingMode::kOnChange}},
      [options](SensorReportingMode mode) { options->mode = mode; },
      "when the sensor reports; continuous unless given");
  stream->add_option("--count", options->count, "end after N samples")
      ->type_name("N")
      ->check(NumberWithin(1, 1e15));
  stream->footer(
      "On a terminal the text format draws a bar a channel; elsewhere it is a line a sample.\n"
      "Example: hyl-spectral stream rear --seconds 10 --format csv > samples.csv");
  stream->callback([&context, options] { RunStream(context, *options); });
}

}  // namespace hyl::v2::tool
