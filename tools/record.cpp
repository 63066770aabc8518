// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cmath>
#include <ctime>
#include <memory>
#include <optional>
#include <system_error>

#include <fmt/chrono.h>
#include <fmt/format.h>

#include "client.h"
#include "command.h"
#include "text.h"

namespace hyl::v2::tool {
namespace {

struct RecordOptions {
  RunOptions run;
  std::string file;
};

/// Puts its bits in the place of each number that JSON does not know.
void ReplaceNonFinite(Json& json) {
  if (json.is_structured()) {
    std::for_each(json.begin(), json.end(), ReplaceNonFinite);
  } else if (json.is_number_float() && !std::isfinite(json.get<float>())) {
    json = fmt::format("0x{:08x}", std::bit_cast<uint32_t>(json.get<float>()));
  }
}

std::string Text(Json line) {
  ReplaceNonFinite(line);
  return JsonLine(line);
}

/// Tells how far a recording is: on a terminal up to 20 times a second, elsewhere at its end.
class RecordView {
 public:
  explicit RecordView(const Context& context) : context_(context), panel_(PanelOf(context)) {}

  void Count(const std::string& line, int64_t time_ns) {
    ++lines_;
    bytes_ += line.size();
    seconds_ = static_cast<double>(time_ns) / 1e9;
  }

  void Show(uint64_t dropped, bool last) {
    const std::string text = fmt::format("{:.1f} s   {} lines   {} bytes   {} dropped", seconds_,
                                         lines_, bytes_, dropped);
    const int64_t now = Clock().Now();
    if (panel_ && (last || now >= next_draw_)) {
      next_draw_ = now + 50'000'000;
      panel_->Begin();
      panel_->AddText(text);
      panel_->Draw();
    } else if (!panel_ && last) {
      context_.out.Add(text + "\n");
    }
  }

 private:
  const Context& context_;
  std::optional<Panel> panel_;
  uint64_t lines_ = 0;
  uint64_t bytes_ = 0;
  double seconds_ = 0;
  int64_t next_draw_ = 0;
};

void RunRecord(const Context& context, const RecordOptions& options) {
  SensorRun run(context, options.run);
  run.Start({{OpticalSensorType::kAmbientLight, 2}, {OpticalSensorType::kFlicker, 1}});
  const FileDescriptor fd(
      open(options.file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666));
  if (fd.get() < 0) {
    throw Failure(ExitCode::kOutput,
                  fmt::format("cannot write '{}': {}; choose another place", options.file,
                              std::generic_category().message(errno)));
  }
  Output file(fd.get());
  RecordView view(context);
  const auto write = [&](const std::string& line, int64_t time_ns) {
    file.Add(line);
    file.Flush();
    view.Count(line, time_ns);
    view.Show(run.dropped(), false);
    return true;
  };
  write(RecordingHeader(context, options.run, run), 0);
  const RunEnd end = run.Pump(options.run.timeout, [&](const Delivery& delivery) {
    return write(RecordingLine(run, delivery), delivery.time_ns);
  });
  view.Show(run.dropped(), true);
  context.out.Flush();
  run.Finish(end);
}

}  // namespace

std::string RecordingHeader(const Context& context, const RunOptions& options, SensorRun& run) {
  Json sensors = Json::array();
  for (const SensorRun::Sensor& sensor : run.sensors()) {
    Json json = {{"name", sensor.name}, {"type", TypeName(sensor.type)}};
    if (sensor.type == OpticalSensorType::kFlicker) {
      json["bits"] = options.bits;
      json["buffer"] = options.buffer;
    } else {
      json["mode"] = options.mode;
    }
    sensors.push_back(json);
  }
  // A replay has no settings to ask for.
  const std::string replayed = context.clock->header();
  const Json settings = replayed.empty() ? ReadableSettings(run.api())
                                         : Json::parse(replayed).value("settings", Json::object());
  return Text({{"line", "header"},
               {"format", 1},
               {"tool", "hyl-spectral " HYL_TOOL_VERSION},
               {"time", fmt::format("{:%FT%TZ}", fmt::gmtime(std::time(nullptr)))},
               {"sensors", sensors},
               {"settings", settings}});
}

std::string RecordingLine(const SensorRun& run, const Delivery& delivery) {
  Json line = {{"line", "drop"}, {"time_ns", delivery.time_ns}};
  if (const auto* const drop = std::get_if<Drop>(&delivery.what)) {
    line["count"] = drop->count;
    return Text(line);
  }
  line["sensor"] =
      std::ranges::find(run.sensors(), delivery.session_id, &SensorRun::Sensor::session_id)->name;
  if (const auto* const sample = std::get_if<SpectralSample>(&delivery.what)) {
    line["line"] = "spectral";
    line["kind"] = sample->kind;
    line["timestamp_ns"] = sample->timestamp_ns;
    line["values"] = sample->values;
    return Text(line);
  }
  const auto& [fields, samples] = std::get<FlickerBlock>(delivery.what);
  line["line"] = "flicker";
  line["seq_num"] = fields.seq_num;
  line["restart"] = fields.restart;
  line["format_param"] = fields.format_param;
  line["aux8_0"] = fields.aux8_0;
  line["aux8_1"] = fields.aux8_1;
  line["aux16_0"] = fields.aux16_0;
  line["aux16_1"] = fields.aux16_1;
  line["aux16_2"] = fields.aux16_2;
  line["aux32_0"] = fields.aux32_0;
  line["aux32_1"] = fields.aux32_1;
  line["auxf_0"] = fields.auxf_0;
  line["auxf_1"] = fields.auxf_1;
  line["samples"] = samples;
  return Text(line);
}

void AddRecordCommand(CLI::App& app, const Context& context) {
  CLI::App* const record = app.add_subcommand("record", "write what sensors send into a file");
  const auto options = std::make_shared<RecordOptions>();
  record->add_option("FILE", options->file, "the recording, which is replaced")->required();
  AddRunOptions(*record, options->run,
                "names, or beginnings of them; one for each position and kind unless given", 8);
  AddModeOption(*record, options->run);
  AddFlickerOptions(*record, options->run);
  record->footer(
      "A header, then a line of JSON for each callback, as stream --format json and\n"
      "flicker --samples --format json print them; --replay takes them all.\n"
      "Example: hyl-spectral record session.ndjson --seconds 10");
  record->callback([&context, options] { RunRecord(context, *options); });
}

}  // namespace hyl::v2::tool
