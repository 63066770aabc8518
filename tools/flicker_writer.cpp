#include "flicker_writer.h"

#include <android-base/stringprintf.h>

#include <utility>
#include <vector>

namespace hyl::v2::tool {
namespace {

using android::base::StringPrintf;

/// A column of a report, for CSV and JSON.
struct Column {
  const char* name;
  std::optional<double> value;
};

std::vector<Column> ColumnsOf(const FlickerReport& report) {
  return {{"seconds", report.seconds},
          {"sample_rate_hz", report.sample_rate_hz},
          {"samples", static_cast<double>(report.samples.size())},
          {"level", report.levels.mean},
          {"level_percent", LevelPercent(report)},
          {"modulation_percent", report.levels.modulation_percent},
          {"flicker_index", report.levels.flicker_index},
          {"frequency_hz", report.frequency_hz},
          {"gaps", static_cast<double>(report.gaps)},
          {"lost_samples", static_cast<double>(report.lost_samples)},
          {"steps_back", static_cast<double>(report.steps_back)}};
}

class TextReports : public FlickerWriter {
 public:
  explicit TextReports(Output& out) : out_(out) {}

  void WriteReport(const FlickerReport& report) override {
    out_.Add(StringPrintf(
        "%8.2f s  %u Hz  level %.2f %%  modulation %s  index %s  frequency %s  gaps %llu\n",
        report.seconds, report.sample_rate_hz, LevelPercent(report),
        FixedText(report.levels.modulation_percent, 1, " %").c_str(),
        FixedText(report.levels.flicker_index, 3, "").c_str(),
        FixedText(report.frequency_hz, 2, " Hz").c_str(),
        static_cast<unsigned long long>(report.gaps)));
  }

 private:
  Output& out_;
};

class CsvReports : public FlickerWriter {
 public:
  explicit CsvReports(Output& out) : out_(out) {}

  void WriteReport(const FlickerReport& report) override {
    std::string header;
    std::string line;
    for (const Column& column : ColumnsOf(report)) {
      header += (header.empty() ? "" : ",") + std::string(column.name);
      line += (line.empty() ? "" : ",") + (column.value ? NumberText(*column.value) : "");
    }
    out_.Add(std::exchange(header_written_, true) ? line + "\n" : header + "\n" + line + "\n");
  }

 private:
  Output& out_;
  bool header_written_ = false;
};

class JsonReports : public FlickerWriter {
 public:
  JsonReports(Output& out, const std::string& sensor) : out_(out), sensor_(JsonString(sensor)) {}

  void WriteReport(const FlickerReport& report) override {
    std::string line = "{\"sensor\":" + sensor_;
    for (const Column& column : ColumnsOf(report)) {
      line += std::string(",\"") + column.name +
              "\":" + (column.value ? JsonNumber(*column.value) : "null");
    }
    out_.Add(line + "}\n");
  }

 private:
  Output& out_;
  const std::string sensor_;
};

/// A line a sample: its sequence number and its value.
class SampleLines : public FlickerWriter {
 public:
  SampleLines(Output& out, char separator) : out_(out), separator_(separator) {}

  void WriteBlock(const FlickerBlock& block) override {
    uint32_t seq_num = block.seq_num;  // wraps
    std::string lines;
    for (const int32_t sample : block.samples) {
      lines += std::to_string(seq_num++) + separator_ + std::to_string(sample) + '\n';
    }
    out_.Add(lines);
  }

 private:
  Output& out_;
  const char separator_;
};

class JsonBlocks : public FlickerWriter {
 public:
  JsonBlocks(Output& out, const std::string& sensor) : out_(out), sensor_(JsonString(sensor)) {}

  void WriteBlock(const FlickerBlock& block) override {
    std::string line = StringPrintf(
        "{\"sensor\":%s,\"seq_num\":%u,\"sample_rate_hz\":%u,\"restart\":%s,", sensor_.c_str(),
        block.seq_num, block.sample_rate_hz, block.restart ? "true" : "false");
    line += "\"samples\":[";
    for (const int32_t& sample : block.samples) {
      line += (&sample == block.samples.data() ? "" : ",") + std::to_string(sample);
    }
    out_.Add(line + "]}\n");
  }

 private:
  Output& out_;
  const std::string sensor_;
};

}  // namespace

std::unique_ptr<FlickerWriter> MakeFlickerReportWriter(Output& out, Format format,
                                                       const std::string& sensor) {
  switch (format) {
    case Format::kCsv:
      return std::make_unique<CsvReports>(out);
    case Format::kJson:
      return std::make_unique<JsonReports>(out, sensor);
    case Format::kText:
      break;
  }
  return std::make_unique<TextReports>(out);
}

std::unique_ptr<FlickerWriter> MakeFlickerSampleWriter(Output& out, Format format,
                                                       const std::string& sensor) {
  switch (format) {
    case Format::kCsv:
      out.Add("seq_num,sample\n");
      return std::make_unique<SampleLines>(out, ',');
    case Format::kJson:
      return std::make_unique<JsonBlocks>(out, sensor);
    case Format::kText:
      break;
  }
  return std::make_unique<SampleLines>(out, ' ');
}

}  // namespace hyl::v2::tool
