#include <memory>
#include <optional>
#include <string>

#include "bar_view.h"
#include "client.h"
#include "command.h"
#include "failure.h"
#include "options.h"
#include "pump.h"
#include "sample_writer.h"
#include "sensors.h"
#include "setting_text.h"
#include "terminal.h"

namespace hyl::v2::tool {
namespace {

struct StreamOptions {
  std::string sensor;
  std::vector<std::string> assignments;
  SensorReportingMode mode = SensorReportingMode::kContinuous;
  std::optional<uint64_t> count;
  std::optional<double> seconds;
  double timeout = 5;
};

constexpr Choice kModes[] = {{"continuous", static_cast<int>(SensorReportingMode::kContinuous)},
                             {"on-change", static_cast<int>(SensorReportingMode::kOnChange)}};

std::unique_ptr<SampleWriter> MakeWriter(const Context& context, const std::string& sensor) {
  const Terminal terminal = TerminalOf(context.out.fd());
  // A log on the same screen would fall between the lines that are drawn anew.
  if (context.format == Format::kText && terminal.redraw && !context.verbose) {
    return std::make_unique<BarView>(context.out, terminal, Printable(sensor));
  }
  return MakeLineWriter(context.out, context.format, sensor);
}

RunLimits LimitsOf(const StreamOptions& options) {
  RunLimits limits;
  if (options.seconds) {
    limits.run_time = std::chrono::duration<double>(*options.seconds);
  }
  if (options.mode == SensorReportingMode::kContinuous) {
    limits.silence = std::chrono::duration<double>(options.timeout);
  }
  return limits;
}

void RunStream(const Context& context, const StreamOptions& options) {
  const std::vector<SettingWrite> writes = ParseAssignments(options.assignments);
  Client client;
  WriteSettings(client.api(), writes, OpticalSensorType::kAmbientLight);
  RunningSensor sensor =
      RunningSensor::StartAmbientLight(client.api(), options.sensor, options.mode);
  const auto writer = MakeWriter(context, sensor.name());
  uint64_t left = options.count.value_or(0);
  const RunEnd end = Pump(context, client.spectral_samples(), LimitsOf(options),
                          [&](const SpectralSample& sample) {
                            writer->Write(sample);
                            return !options.count || --left > 0;
                          });
  sensor.Stop();
  writer->Finish();
  context.out.Flush();
  FinishRun(end, sensor.name(), client.spectral_samples().Dropped());
}

}  // namespace

Command AddStreamCommand(CLI::App& app) {
  CLI::App* const stream =
      app.add_subcommand("stream", "show the samples of an ambient-light sensor");
  SetFooter(
      *stream,
      "On a terminal the text format draws a bar a channel; elsewhere it is a line a sample.\n",
      "hyl-spectral stream rear --seconds 10 --format csv > samples.csv");
  const auto options = std::make_shared<StreamOptions>();
  AddSensorArgument(*stream, options->sensor);
  stream->add_option("--mode", options->mode, "when the sensor reports; continuous unless given")
      ->type_name(JoinNames(kModes, "|"))
      ->transform(OneOf(kModes));
  stream->add_option("--count", options->count, "end after N samples")
      ->type_name("N")
      ->check(NumberWithin(1, 1e15));
  AddSetOption(*stream, options->assignments);
  AddSecondsOption(*stream, options->seconds);
  AddTimeoutOption(*stream, options->timeout);
  return {stream, [options](const Context& context) { RunStream(context, *options); }};
}

}  // namespace hyl::v2::tool
