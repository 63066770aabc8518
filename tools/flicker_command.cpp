#include <algorithm>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "client.h"
#include "command.h"
#include "failure.h"
#include "flicker_plot.h"
#include "flicker_recorder.h"
#include "flicker_report.h"
#include "flicker_writer.h"
#include "options.h"
#include "pump.h"
#include "sensors.h"
#include "setting_text.h"
#include "terminal.h"

namespace hyl::v2::tool {
namespace {

constexpr uint32_t kUsualRateHz = 24000;  // where a sensor states none
constexpr size_t kMaxWindow = 1U << 20U;  // bounds the memory for a sensor of any rate
// Automatic gain may take this long to find its level; the analysis begins after it.
constexpr double kSettlingTime = 0.1;      // s
constexpr double kShortestStretch = 0.02;  // s; less tells nothing about flicker of the mains

struct FlickerOptions {
  std::string sensor;
  std::vector<std::string> assignments;
  int bits = 16;
  size_t buffer = 4096;
  std::optional<double> seconds;
  double timeout = 5;
  bool samples = false;
  std::string plot;
};

/// Takes a run's blocks and shows them.
class FlickerRun {
 public:
  FlickerRun(const FlickerOptions& options, FlickerWriter& writer)
      : options_(options), writer_(writer) {}

  void Take(const FlickerBlock& block) {
    if (block.sample_rate_hz != 0 && block.sample_rate_hz != rate_hz_) {
      rate_hz_ = block.sample_rate_hz;
      recorder_ = FlickerRecorder(Window());
      reported_ = 0;
    }
    if (!settled_ && Seconds(recorder_.samples()) >= kSettlingTime) {
      recorder_.ForgetSamples();
      reported_ = 0;
      settled_ = true;
    }
    recorder_.Add(block.seq_num, block.restart, block.samples);
    if (block.samples.size() >= options_.buffer - options_.buffer % 2) {
      ++full_buffers_;
    }
    writer_.WriteBlock(block);
    if (settled_ && SecondsSinceReport() >= writer_.ReportSeconds()) {
      Report();
      recorder_.BeginPeriod();
    }
  }

  /// Reports what has not been reported.
  void Finish() {
    if (reported_ == 0 || SecondsSinceReport() >= writer_.ReportSeconds() / 10) {
      Report();
    }
    if (full_buffers_ > 0) {
      PrintNotice("a block filled the buffer " + std::to_string(full_buffers_) +
                  " times, so that samples may be lost; use a larger --buffer");
    }
  }

  /// The newest state; none when there are too few samples.
  std::optional<FlickerReport> Latest() const {
    if (Seconds(recorder_.Stretch().size()) < kShortestStretch) {
      return std::nullopt;
    }
    return MakeFlickerReport(recorder_, rate_hz_, options_.bits);
  }

 private:
  size_t Window() const { return std::min<size_t>(rate_hz_, kMaxWindow); }

  double Seconds(uint64_t samples) const { return static_cast<double>(samples) / rate_hz_; }

  double SecondsSinceReport() const { return Seconds(recorder_.samples() - reported_); }

  void Report() {
    if (const auto report = Latest()) {
      writer_.WriteReport(*report);
      reported_ = recorder_.samples();
    }
  }

  const FlickerOptions& options_;
  FlickerWriter& writer_;
  uint32_t rate_hz_ = kUsualRateHz;
  FlickerRecorder recorder_{Window()};
  uint64_t reported_ = 0;  // samples received at the latest report
  uint64_t full_buffers_ = 0;
  bool settled_ = false;
};

std::unique_ptr<FlickerWriter> MakeWriter(const Context& context, const FlickerOptions& options,
                                          const std::string& sensor) {
  if (options.samples) {
    return MakeFlickerSampleWriter(context.out, context.format, sensor);
  }
  const Terminal terminal = TerminalOf(context.out.fd());
  if (context.format == Format::kText && terminal.redraw && !context.verbose) {
    return MakeFlickerPanel(context.out, terminal, sensor);
  }
  return MakeFlickerReportWriter(context.out, context.format, sensor);
}

RunLimits LimitsOf(const FlickerOptions& options) {
  RunLimits limits = {{}, std::chrono::duration<double>(options.timeout)};
  if (options.seconds) {
    const double settling = options.samples ? 0 : kSettlingTime;
    limits.run_time = std::chrono::duration<double>(*options.seconds + settling);
  }
  return limits;
}

/// An interrupted run may be too short for a picture; any other has to show one.
void DrawPlot(FlickerPlot& plot, const FlickerRun& run, const std::string& sensor, RunEnd end) {
  if (const auto report = run.Latest()) {
    plot.Draw(*report, sensor);
  } else if (end != RunEnd::kInterrupted) {
    throw Failure(ExitCode::kOutput,
                  "cannot draw the picture: too few samples in a row; let it run for longer");
  }
}

void RunFlicker(const Context& context, const FlickerOptions& options) {
  std::optional<FlickerPlot> plot;
  if (!options.plot.empty()) {
    plot.emplace(options.plot);
  }
  std::vector<int> buffer(options.buffer);  // outlives the sensor's run and the client
  const std::vector<SettingWrite> writes = ParseAssignments(options.assignments);
  Client client;
  WriteSettings(client.api(), writes, OpticalSensorType::kFlicker);
  RunningSensor sensor = RunningSensor::StartFlicker(client.api(), options.sensor, buffer,
                                                     static_cast<uint8_t>(options.bits));
  const auto writer = MakeWriter(context, options, sensor.name());
  FlickerRun run(options, *writer);
  const RunEnd end =
      Pump(context, client.flicker_blocks(), LimitsOf(options), [&](const FlickerBlock& block) {
        run.Take(block);
        return true;
      });
  sensor.Stop();
  run.Finish();
  context.out.Flush();
  FinishRun(end, sensor.name(), client.flicker_blocks().Dropped());
  if (plot) {
    DrawPlot(*plot, run, sensor.name(), end);
  }
}

std::string CheckPicture(const std::string& path) {
  if (HasControls(path)) {
    return "'" + path + "' has control characters";
  }
  const std::string ending = path.size() > 4 ? path.substr(path.size() - 4) : "";
  return ending == ".svg" || ending == ".png" ? "" : "'" + path + "' does not end in .svg or .png";
}

void AddFlickerOptions(CLI::App& app, FlickerOptions& options) {
  AddSensorArgument(app, options.sensor);
  app.add_option("--bits", options.bits, "width of the samples, 1 to 32 bits; 16 unless given")
      ->type_name("N")
      ->check(NumberWithin(1, 32));
  app.add_option("--buffer", options.buffer,
                 "samples that the buffer holds, 2 to 16777216; 4096 unless given")
      ->type_name("N")
      ->check(NumberWithin(2, 1 << 24));
  AddSetOption(app, options.assignments);
  AddSecondsOption(app, options.seconds);
  AddTimeoutOption(app, options.timeout);
  app.add_flag("--samples", options.samples, "print the samples instead of their analysis");
  app.add_option("--plot", options.plot, "draw the last second's waveform and spectrum at the end")
      ->type_name("FILE.svg|FILE.png")
      ->check(CheckPicture);
}

}  // namespace

Command AddFlickerCommand(CLI::App& app) {
  CLI::App* const flicker = app.add_subcommand("flicker", "measure how the light flickers");
  SetFooter(
      *flicker,
      "A report for each second, after 0.1 s in which the gain settles: mean level,\n"
      "modulation (max - min) / (max + min), flicker index (area above the mean / whole area),\n"
      "strongest frequency, and gaps in the sequence numbers.\n",
      "hyl-spectral flicker flicker --seconds 2 --plot flicker.svg");
  const auto options = std::make_shared<FlickerOptions>();
  AddFlickerOptions(*flicker, *options);
  return {flicker, [options](const Context& context) { RunFlicker(context, *options); }};
}

}  // namespace hyl::v2::tool
