#include "sample_writer.h"

#include <algorithm>
#include <optional>
#include <string_view>
#include <utility>

#include <android-base/stringprintf.h>

namespace hyl::v2::tool {
namespace {

using android::base::StringAppendF;

/// A line of aligned columns: seconds since the first sample, then the channels.
class TextWriter : public SampleWriter {
 public:
  explicit TextWriter(Output& out) : out_(out) {}

  void Write(const SpectralSample& sample) override {
    if (!start_ns_) {
      start_ns_ = sample.timestamp_ns;
    }
    std::string line;
    StringAppendF(&line, "%10.3f s", static_cast<double>(sample.timestamp_ns - *start_ns_) / 1e9);
    for (const float value : sample.values) {
      StringAppendF(&line, " %9.2f", static_cast<double>(value));
    }
    out_.Add(line + "\n");
  }

 private:
  Output& out_;
  std::optional<int64_t> start_ns_;
};

class CsvWriter : public SampleWriter {
 public:
  explicit CsvWriter(Output& out) : out_(out) {}

  void Write(const SpectralSample& sample) override {
    if (columns_ == 0) {
      WriteHeader(sample.values.size());
    }
    std::string line = std::to_string(sample.timestamp_ns);
    for (const float value : sample.values) {
      line += "," + NumberText(value);
    }
    // A shorter sample keeps the number of columns; a longer one loses nothing.
    const size_t columns = 1 + sample.values.size();
    line.append(columns < columns_ ? columns_ - columns : 0, ',');
    out_.Add(line + "\n");
  }

 private:
  void WriteHeader(size_t channels) {
    std::string line = "timestamp_ns";
    for (size_t channel = 0; channel < channels; ++channel) {
      line += ",channel_" + std::to_string(channel);
    }
    out_.Add(line + "\n");
    columns_ = 1 + channels;
  }

  Output& out_;
  size_t columns_ = 0;
};

class JsonWriter : public SampleWriter {
 public:
  JsonWriter(Output& out, std::string_view sensor) : out_(out), sensor_(JsonString(sensor)) {}

  void Write(const SpectralSample& sample) override {
    std::string line = "{\"sensor\":" + sensor_ +
                       ",\"timestamp_ns\":" + std::to_string(sample.timestamp_ns) + ",\"values\":[";
    for (const float& value : sample.values) {
      line += (&value == sample.values.data() ? "" : ",") + JsonNumber(value);
    }
    out_.Add(line + "]}\n");
  }

 private:
  Output& out_;
  const std::string sensor_;
};

}  // namespace

std::unique_ptr<SampleWriter> MakeLineWriter(Output& out, Format format,
                                             const std::string& sensor) {
  switch (format) {
    case Format::kCsv:
      return std::make_unique<CsvWriter>(out);
    case Format::kJson:
      return std::make_unique<JsonWriter>(out, sensor);
    case Format::kText:
      break;
  }
  return std::make_unique<TextWriter>(out);
}

}  // namespace hyl::v2::tool
