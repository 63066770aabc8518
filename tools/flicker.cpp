// SPDX-License-Identifier: Apache-2.0
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
  bool samples = false;
  std::string plot;
};

/// A report for programs, which has more digits than the library's own numbers.
nlohmann::ordered_json Fields(const FlickerReport& report) {
  using Field = nlohmann::ordered_json;
  const auto or_null = [](const auto& value) { return value ? Field(*value) : Field(); };
  const auto& hz = report.frequency_hz;
  return {{"seconds", report.Seconds()},
          {"sample_rate_hz", report.sample_rate_hz},
          {"samples", report.samples.size()},
          {"level", report.levels.mean},
          {"level_percent", report.Percent(report.levels.mean)},
          {"modulation_percent", or_null(report.levels.modulation_percent)},
          {"flicker_index", or_null(report.levels.flicker_index)},
          {"frequency_hz", or_null(hz)},
          {"gaps", report.counts.gaps},
          {"lost_samples", report.counts.lost},
          {"steps_back", report.counts.steps_back},
          {"svm", or_null(report.measures.visibility)},
          {"risk", or_null(report.measures.risk)},
          {"absent", or_null(report.measures.absent)},
          {"exposure_step_ms", hz ? Field(host::BandFreeStepMs(*hz)) : Field()}};
}

std::string TextOf(const FlickerReport& report) {
  return fmt::format(
      "{:8.2f} s  {} Hz  level {:.2f} %  modulation {}  index {}  frequency {}  gaps {}\n"
      "            {}; {}\n",
      report.Seconds(), report.sample_rate_hz, report.Percent(report.levels.mean),
      FixedText(report.levels.modulation_percent, 1, " %"),
      FixedText(report.levels.flicker_index, 3, ""), FixedText(report.frequency_hz, 2, " Hz"),
      report.counts.gaps, MeasuresText(report), ExposureAdvice(report));
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
  const host::FlickerLevels& levels = report.levels;
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
  panel.AddText("measures       " + MeasuresText(report));
  panel.AddText("advice         " + ExposureAdvice(report));
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

  /// A line a sample, with its sequence number.
  void Show(const FlickerBlock& block) {
    if (!samples_) {
      return;
    }
    context_.out.Add(BeginsCsv() ? "seq_num,sample\n" : "");
    const char separator = context_.format == "csv" ? ',' : ' ';
    uint32_t seq_num = block.fields.seq_num;  // wraps
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
  FlickerMeter(const RunOptions& options, FlickerView& view) : options_(options), view_(view) {}

  void Take(const FlickerBlock& block) {
    const uint32_t rate_hz = block.fields.format_param;
    if (rate_hz != 0 && rate_hz != rate_hz_) {
      rate_hz_ = rate_hz;
      recorder_ = FlickerRecorder(Window());
      reported_ = 0;
    }
    if (!settled_ && Seconds(recorder_.counts().samples) >= kSettlingTime) {
      recorder_.ForgetSamples();
      reported_ = 0;
      settled_ = true;
    }
    recorder_.Add(block.fields.seq_num, (block.fields.restart & 1) != 0, block.samples);
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
    const auto hz = peak ? std::optional(peak->hz) : std::nullopt;
    return FlickerReport{rate_hz_,
                         std::ldexp(1.0, options_.bits - 1),
                         recorder_.counts(),
                         samples,
                         host::LevelsOf(samples),
                         hz,
                         host::MeasuresOf(samples, rate_hz_, hz)};
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

  const RunOptions& options_;
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
  RunOptions run_options = options.run;
  run_options.seconds += options.samples ? 0 : kSettlingTime;
  SensorRun run(context, run_options);
  run.Start({{OpticalSensorType::kFlicker, 1}});
  FlickerView view(context, options.samples, run.names());
  FlickerMeter meter(run_options, view);
  const bool records = options.samples && context.format == "json";
  context.out.Add(records ? RecordingHeader(context, run_options, run) : "");
  const RunEnd end = run.Pump(options.run.timeout, [&](const Delivery& delivery) {
    if (records) {
      context.out.Add(RecordingLine(run, delivery));
    } else if (const auto* const block = std::get_if<FlickerBlock>(&delivery.what)) {
      meter.Take(*block);
    }
    return true;
  });
  meter.Finish();
  context.out.Flush();
  run.Finish(end);
  const auto report = plots ? meter.Latest() : std::nullopt;
  if (report) {
    DrawPlot(options.plot, *report, run.names());
  } else if (plots && end != RunEnd::kInterrupted) {
    throw Failure(ExitCode::kOutput,
                  "cannot draw the picture: too few samples in a row; let it run for longer");
  }
}

}  // namespace

void AddFlickerCommand(CLI::App& app, const Context& context) {
  CLI::App* const flicker = app.add_subcommand("flicker", "measure how the light flickers");
  const auto options = std::make_shared<FlickerOptions>();
  AddRunOptions(*flicker, options->run,
                "its name, or the beginning of it; the first listed unless given", 1);
  AddFlickerOptions(*flicker, options->run);
  flicker->add_flag("--samples", options->samples, "print the samples instead of their analysis");
  flicker
      ->add_option("--plot", options->plot,
                   "draw the last second, waveform and spectrum, into an .svg or .png")
      ->type_name("FILE")
      ->check(PictureFault);
  flicker->footer(fmt::format(
      "A report for each second, after {} s in which the gain settles: mean level,\n"
      "modulation (max - min) / (max + min), flicker index (area above the mean / whole area),\n"
      "strongest frequency, and gaps in the sequence numbers. Of a second without gaps: SVM by\n"
      "CIE TN 006:2016, 1 is just visible; risk by IEEE Std 1789-2015. Exposures without bands.\n"
      "Example: hyl-spectral flicker flicker --seconds 2 --plot flicker.svg",
      kSettlingTime));
  flicker->callback([&context, options] { RunFlicker(context, *options); });
}

}  // namespace hyl::v2::tool
