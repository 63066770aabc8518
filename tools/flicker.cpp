#include <algorithm>
#include <cmath>
#include <memory>
#include <optional>
#include <utility>

#include <fmt/format.h>

#include "client.h"
#include "command.h"
#include "errors.h"
#include "flicker_analysis.h"
#include "plot.h"
#include "terminal.h"

namespace hyl::v2::tool {
namespace {

constexpr uint32_t kUsualRateHz = 24000;  // where a sensor states none
constexpr size_t kMaxWindow = 1U << 20U;  // bounds the memory for a sensor of any rate
// Automatic gain may take this long to find its level; the analysis begins after it.
constexpr double kSettlingTime = 0.1;      // s
constexpr double kShortestStretch = 0.02;  // s; less tells nothing about flicker of the mains
constexpr double kPanelWaveTime = 0.04;    // s; two periods of a 50 Hz mains

struct FlickerOptions {
  RunOptions run;
  int bits = 16;
  size_t buffer = 4096;
  bool samples = false;
  std::string plot;
};

/// A report for programs, which has more digits than the library's own numbers.
nlohmann::ordered_json Fields(const FlickerReport& report) {
  const auto or_null = [](std::optional<double> value) {
    return value ? nlohmann::ordered_json(*value) : nlohmann::ordered_json();
  };
  return {{"seconds", report.Seconds()},
          {"sample_rate_hz", report.sample_rate_hz},
          {"samples", report.samples.size()},
          {"level", report.levels.mean},
          {"level_percent", report.Percent(report.levels.mean)},
          {"modulation_percent", or_null(report.levels.modulation_percent)},
          {"flicker_index", or_null(report.levels.flicker_index)},
          {"frequency_hz", or_null(report.frequency_hz)},
          {"gaps", report.counts.gaps},
          {"lost_samples", report.counts.lost},
          {"steps_back", report.counts.steps_back}};
}

std::string TextOf(const FlickerReport& report) {
  return fmt::format(
      "{:8.2f} s  {} Hz  level {:.2f} %  modulation {}  index {}  frequency {}  gaps {}\n",
      report.Seconds(), report.sample_rate_hz, report.Percent(report.levels.mean),
      FixedText(report.levels.modulation_percent, 1, " %"),
      FixedText(report.levels.flicker_index, 3, ""), FixedText(report.frequency_hz, 2, " Hz"),
      report.counts.gaps);
}

/// The names of the fields or, but for the header, their values.
std::string CsvOf(const FlickerReport& report, bool header) {
  const nlohmann::ordered_json fields = Fields(report);
  std::string line;
  for (const auto& field : fields.items()) {
    line += line.empty() ? "" : ",";
    if (header) {
      line += field.key();
    } else if (!field.value().is_null()) {
      line += field.value().dump();
    }
  }
  return line + "\n";
}

/// The newest samples as heights for so many columns; 0 is darkness.
std::vector<double> WaveHeights(const FlickerReport& report, size_t columns) {
  const auto wave = report.Newest(kPanelWaveTime);
  const double bottom = std::min(0.0, report.levels.min);
  const double height = std::max(1.0, report.levels.max - bottom);
  std::vector<double> heights;
  for (size_t column = 0; column < columns && !wave.empty(); ++column) {
    heights.push_back((wave[column * wave.size() / columns] - bottom) / height);
  }
  return heights;
}

void DrawPanel(Panel& panel, const std::string& title, const FlickerReport& report) {
  const auto add_bar = [&](const char* name, const std::string& value, double fill) {
    panel.AddBar(fmt::format("{:<13}  {:<19}  ", name, value), fill);
  };
  const FlickerLevels& levels = report.levels;
  panel.Begin();
  panel.AddText(
      fmt::format("{}   {} samples/s   {:.2f} s", title, report.sample_rate_hz, report.Seconds()));
  add_bar("level", FixedText(report.Percent(report.levels.mean), 2, " % of range"),
          report.Percent(report.levels.mean) / 100);
  add_bar("modulation", FixedText(levels.modulation_percent, 1, " %"),
          levels.modulation_percent.value_or(0) / 100);
  add_bar("flicker index", FixedText(levels.flicker_index, 3, ""),
          levels.flicker_index.value_or(0));
  panel.AddText("frequency      " + FixedText(report.frequency_hz, 2, " Hz"));
  panel.AddText(
      fmt::format("gaps           {} ({} samples lost)", report.counts.gaps, report.counts.lost));
  panel.AddColumns(WaveHeights(report, panel.columns()));
  panel.AddText("the line above shows 40 ms; Ctrl-C ends");
  panel.Draw();
}

/// Shows a flicker run: either its samples, or reports.
class FlickerView {
 public:
  FlickerView(const Context& context, bool samples, std::string sensor)
      : context_(context),
        samples_(samples),
        sensor_(std::move(sensor)),
        panel_(samples ? std::nullopt : PanelOf(context)) {}

  /// Seconds from report to report.
  double ReportPeriod() const { return panel_ ? 0.25 : 1; }

  void Show(const FlickerReport& report) {
    if (samples_) {
      return;
    }
    if (panel_) {
      DrawPanel(*panel_, Printable(sensor_), report);
    } else if (context_.format == "text") {
      context_.out.Add(TextOf(report));
    } else if (context_.format == "json") {
      nlohmann::ordered_json line = {{"sensor", sensor_}};
      line.update(Fields(report));
      context_.out.Add(JsonLine(line));
    } else {
      context_.out.Add(BeginsCsv() ? CsvOf(report, true) : "");
      context_.out.Add(CsvOf(report, false));
    }
  }

  /// A line a sample, with its sequence number; for JSON a line a block.
  void Show(const FlickerBlock& block) {
    if (!samples_) {
      return;
    }
    if (context_.format == "json") {
      context_.out.Add(JsonLine(Json{{"sensor", sensor_},
                                     {"seq_num", block.seq_num},
                                     {"sample_rate_hz", block.sample_rate_hz},
                                     {"restart", block.restart},
                                     {"samples", block.samples}}));
      return;
    }
    context_.out.Add(BeginsCsv() ? "seq_num,sample\n" : "");
    const char separator = context_.format == "csv" ? ',' : ' ';
    uint32_t seq_num = block.seq_num;  // wraps
    for (const int32_t sample : block.samples) {
      context_.out.Add(fmt::format("{}{}{}\n", seq_num++, separator, sample));
    }
  }

 private:
  bool BeginsCsv() { return context_.format == "csv" && !std::exchange(begun_, true); }

  const Context& context_;
  const bool samples_;
  const std::string sensor_;
  std::optional<Panel> panel_;
  bool begun_ = false;
};

/// Takes a run's blocks and shows them.
class FlickerMeter {
 public:
  FlickerMeter(const FlickerOptions& options, FlickerView& view) : options_(options), view_(view) {}

  void Take(const FlickerBlock& block) {
    if (block.sample_rate_hz != 0 && block.sample_rate_hz != rate_hz_) {
      rate_hz_ = block.sample_rate_hz;
      recorder_ = FlickerRecorder(Window());
      reported_ = 0;
    }
    if (!settled_ && Seconds(recorder_.counts().samples) >= kSettlingTime) {
      recorder_.ForgetSamples();
      reported_ = 0;
      settled_ = true;
    }
    recorder_.Add(block.seq_num, block.restart, block.samples);
    if (block.samples.size() >= options_.buffer - options_.buffer % 2) {
      ++full_buffers_;
    }
    view_.Show(block);
    if (settled_ && SecondsSinceReport() >= view_.ReportPeriod()) {
      Report();
      recorder_.BeginPeriod();
    }
  }

  /// Reports what has not been reported.
  void Finish() {
    if (reported_ == 0 || SecondsSinceReport() >= view_.ReportPeriod() / 10) {
      Report();
    }
    if (full_buffers_ > 0) {
      PrintNotice(
          fmt::format("a block filled the buffer {} times, so that samples may be lost; use "
                      "a larger --buffer",
                      full_buffers_));
    }
  }

  /// The newest state; none when there are too few samples.
  std::optional<FlickerReport> Latest() const {
    const std::span<const int32_t> samples = recorder_.Stretch();
    if (Seconds(samples.size()) < kShortestStretch) {
      return std::nullopt;
    }
    const auto peak = DominantPeak(SpectrumOf(samples, rate_hz_));
    return FlickerReport{rate_hz_,           std::ldexp(1.0, options_.bits - 1),
                         recorder_.counts(), samples,
                         LevelsOf(samples),  peak ? std::optional(peak->hz) : std::nullopt};
  }

 private:
  size_t Window() const { return std::min<size_t>(rate_hz_, kMaxWindow); }

  double Seconds(uint64_t samples) const { return static_cast<double>(samples) / rate_hz_; }

  double SecondsSinceReport() const { return Seconds(recorder_.counts().samples - reported_); }

  void Report() {
    if (const auto report = Latest()) {
      view_.Show(*report);
      reported_ = recorder_.counts().samples;
    }
  }

  const FlickerOptions& options_;
  FlickerView& view_;
  uint32_t rate_hz_ = kUsualRateHz;
  FlickerRecorder recorder_{Window()};
  uint64_t reported_ = 0;  // samples received at the latest report
  uint64_t full_buffers_ = 0;
  bool settled_ = false;
};

void RunFlicker(const Context& context, const FlickerOptions& options) {
  const bool plots = !options.plot.empty();
  if (plots) {
    RequirePlot(options.plot);
  }
  std::vector<int> buffer(options.buffer);  // outlives the sensor's run
  SensorRun run(context, OpticalSensorType::kFlicker, options.run,
                [&](HylSpectralApi& api, const char* name, uint32_t& session_id) {
                  return api.EnableFlickerSensor(name, buffer.data(), buffer.size(),
                                                 static_cast<uint8_t>(options.bits), session_id);
                });
  FlickerView view(context, options.samples, run.sensor());
  FlickerMeter meter(options, view);
  const double settling = options.samples ? 0 : kSettlingTime;
  const RunEnd end =
      run.Pump(options.run.seconds + settling, options.run.timeout, [&](const Delivery& delivery) {
        meter.Take(std::get<FlickerBlock>(delivery));
        return true;
      });
  meter.Finish();
  context.out.Flush();
  run.Finish(end);
  const auto report = plots ? meter.Latest() : std::nullopt;
  if (report) {
    DrawPlot(options.plot, *report, run.sensor());
  } else if (plots && end != RunEnd::kInterrupted) {
    throw Failure(ExitCode::kOutput,
                  "cannot draw the picture: too few samples in a row; let it run for longer");
  }
}

}  // namespace

void AddFlickerCommand(CLI::App& app, const Context& context) {
  CLI::App* const flicker = app.add_subcommand("flicker", "measure how the light flickers");
  const auto options = std::make_shared<FlickerOptions>();
  AddRunOptions(*flicker, options->run);
  TakeNumber(flicker->add_option("--bits", options->bits,
                                 "width of the samples, 1 to 32 bits; 16 unless given"),
             "N", 1, 32);
  TakeNumber(flicker->add_option("--buffer", options->buffer,
                                 "samples that the buffer holds, 2 to 16777216; 4096 unless given"),
             "N", 2, 1 << 24);
  flicker->add_flag("--samples", options->samples, "print the samples instead of their analysis");
  flicker
      ->add_option("--plot", options->plot,
                   "draw the last second, waveform and spectrum, into an .svg or .png")
      ->type_name("FILE")
      ->check(PictureFault);
  flicker->footer(fmt::format(
      "A report for each second, after {} s in which the gain settles: mean level,\n"
      "modulation (max - min) / (max + min), flicker index (area above the mean / whole area),\n"
      "strongest frequency, and gaps in the sequence numbers.\n"
      "Example: hyl-spectral flicker flicker --seconds 2 --plot flicker.svg",
      kSettlingTime));
  flicker->callback([&context, options] { RunFlicker(context, *options); });
}

}  // namespace hyl::v2::tool
