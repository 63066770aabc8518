#include <algorithm>
#include <string>
#include <utility>

#include <android-base/stringprintf.h>

#include "bars.h"
#include "flicker_writer.h"

namespace hyl::v2::tool {
namespace {

using android::base::StringPrintf;

constexpr size_t kRowLabelColumns = 36;
constexpr double kPanelWaveSeconds = 0.04;  // two periods of a 50 Hz mains

/// The samples as one line of `columns` cells; an empty cell is darkness.
std::string WaveLine(std::span<const int32_t> samples, size_t columns,
                     const FlickerLevels& levels) {
  constexpr const char* kHeights[] = {" ", "▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
  const double bottom = std::min(0.0, levels.min);
  const double height = std::max(1.0, levels.max - bottom);
  std::string line;
  for (size_t column = 0; column < columns; ++column) {
    const double part = (samples[column * samples.size() / columns] - bottom) / height;
    line += kHeights[static_cast<size_t>(std::clamp(part, 0.0, 1.0) * 8)];
  }
  return line;
}

class Panel : public FlickerWriter {
 public:
  Panel(Output& out, const Terminal& terminal, std::string title)
      : out_(out), terminal_(terminal), title_(std::move(title)) {}

  double ReportSeconds() const override { return 0.25; }

  void WriteReport(const FlickerReport& report) override {
    const TerminalSize size = TerminalSizeOf(out_.fd());
    columns_ = size.columns;
    const FlickerLevels& levels = report.levels;
    std::string lines = Cut(StringPrintf("%s   %u samples/s   %.2f s", title_.c_str(),
                                         report.sample_rate_hz, report.seconds));
    const double level = LevelPercent(report);
    lines += Gauge("level", FixedText(level, 2, " % of range"), level / 100);
    lines += Gauge("modulation", FixedText(levels.modulation_percent, 1, " %"),
                   levels.modulation_percent.value_or(0) / 100);
    lines += Gauge("flicker index", FixedText(levels.flicker_index, 3, ""),
                   levels.flicker_index.value_or(0));
    lines += Cut("frequency      " + FixedText(report.frequency_hz, 2, " Hz"));
    lines += Cut(StringPrintf("gaps           %llu (%llu samples lost)",
                              static_cast<unsigned long long>(report.gaps),
                              static_cast<unsigned long long>(report.lost_samples)));
    lines += Wave(report) + Cut("the line above shows 40 ms; Ctrl-C ends");
    out_.Add(redraw_.Frame(lines, size));
  }

 private:
  /// A line that does not wrap. `text` is ASCII.
  std::string Cut(const std::string& text) const {
    return text.substr(0, columns_ > 0 ? columns_ - 1 : 0) + "\n";
  }

  std::string Gauge(const char* name, const std::string& value, double fill) const {
    const std::string label = StringPrintf("%-13s  %-19s  ", name, value.c_str());
    if (columns_ <= kRowLabelColumns + 1) {
      return Cut(label);
    }
    return label + Bar(fill, columns_ - kRowLabelColumns - 1, terminal_) + "\n";
  }

  std::string Wave(const FlickerReport& report) const {
    const auto wanted = static_cast<size_t>(kPanelWaveSeconds * report.sample_rate_hz);
    const auto wave = report.samples.last(std::min(wanted, report.samples.size()));
    if (!terminal_.unicode || wave.empty() || columns_ < 2) {
      return {};
    }
    return WaveLine(wave, columns_ - 1, report.levels) + "\n";
  }

  Output& out_;
  const Terminal terminal_;
  const std::string title_;
  Redraw redraw_;
  size_t columns_ = 0;  // of the terminal, as of the latest report
};

}  // namespace

std::unique_ptr<FlickerWriter> MakeFlickerPanel(Output& out, const Terminal& terminal,
                                                const std::string& sensor) {
  return std::make_unique<Panel>(out, terminal, Printable(sensor));
}

}  // namespace hyl::v2::tool
