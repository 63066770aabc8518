#include "bar_view.h"

#include <algorithm>
#include <utility>

#include <android-base/stringprintf.h>

namespace hyl::v2::tool {
namespace {

using android::base::StringPrintf;

constexpr size_t kLabelColumns = 22;  // channel number, value and blanks

}  // namespace

BarView::BarView(Output& out, const Terminal& terminal, std::string title)
    : out_(out), terminal_(terminal), title_(std::move(title)) {}

void BarView::Write(const SpectralSample& sample) {
  if (samples_++ == 0) {
    start_ns_ = sample.timestamp_ns;
  }
  newest_ = sample;
  if (std::chrono::steady_clock::now() >= next_draw_) {
    Draw();
  }
}

void BarView::Finish() {
  if (samples_ > 0) {
    Draw();
  }
}

void BarView::Draw() {
  next_draw_ = std::chrono::steady_clock::now() + std::chrono::milliseconds(50);
  Rescale();
  const TerminalSize size = TerminalSizeOf(out_.fd());
  std::string lines = Heading().substr(0, size.columns - 1) + "\n";
  for (size_t channel = 0; channel < newest_.values.size(); ++channel) {
    lines += ChannelLine(channel, size.columns) + "\n";
  }
  lines += StringPrintf("a full bar is %g; Ctrl-C ends", scale_).substr(0, size.columns - 1) + "\n";
  out_.Add(redraw_.Frame(lines, size));
}

void BarView::Rescale() {
  const auto largest = std::max_element(newest_.values.begin(), newest_.values.end());
  const double needed =
      largest != newest_.values.end() ? RoundScale(static_cast<double>(*largest)) : 1;
  // Shrinks only when the bars would become very short, lest the scale jump to and fro.
  if (needed > scale_ || needed <= scale_ / 5) {
    scale_ = needed;
  }
}

std::string BarView::Heading() const {
  return StringPrintf("%s   sample %llu   %.2f s", title_.c_str(),
                      static_cast<unsigned long long>(samples_),
                      static_cast<double>(newest_.timestamp_ns - start_ns_) / 1e9);
}

std::string BarView::ChannelLine(size_t channel, size_t columns) const {
  const auto value = static_cast<double>(newest_.values[channel]);
  const std::string label = StringPrintf("%3zu  %12.2f  ", channel, value);
  if (columns <= kLabelColumns) {
    return label.substr(0, columns - 1);
  }
  return label + Bar(value / scale_, columns - kLabelColumns, terminal_);
}

}  // namespace hyl::v2::tool
