#include "flicker_recorder.h"

#include <algorithm>
#include <cstdlib>

namespace hyl::v2::tool {
namespace {

std::span<const int32_t> Newest(const std::vector<int32_t>& samples, size_t count) {
  return std::span(samples).last(std::min(count, samples.size()));
}

}  // namespace

void FlickerRecorder::Add(uint32_t seq_num, bool restart, std::span<const int32_t> samples) {
  const bool continues = !next_seq_num_ || Continues(seq_num, samples.size());
  if (!continues || (restart && levels_shifted_)) {
    BreakStretch();
  }
  levels_shifted_ = !restart && (levels_shifted_ || !continues);
  current_.insert(current_.end(), samples.begin(), samples.end());
  if (current_.size() > 2 * window_) {
    current_.erase(current_.begin(), current_.end() - static_cast<std::ptrdiff_t>(window_));
  }
  samples_ += samples.size();
  next_seq_num_ = seq_num + static_cast<uint32_t>(samples.size());
}

std::span<const int32_t> FlickerRecorder::Stretch() const {
  return longest_.size() > current_.size() ? Newest(longest_, window_) : Newest(current_, window_);
}

void FlickerRecorder::ForgetSamples() {
  current_.clear();
  longest_.clear();
  samples_ = 0;
}

bool FlickerRecorder::Continues(uint32_t seq_num, size_t count) {
  const auto step = static_cast<int32_t>(seq_num - *next_seq_num_);  // the numbers wrap
  // Where samples vary in length, numbers after a loss are estimates, which move a little from
  // block to block. A lost block is a larger step.
  if (static_cast<size_t>(std::abs(int64_t{step})) <= count / 8) {
    return true;
  }
  if (step > 0) {
    ++gaps_;
    lost_samples_ += static_cast<uint32_t>(step);
    return false;
  }
  // Blocks that cannot be numbered any more all have the number 0.
  const bool still_unnumbered = unnumbered_ && seq_num == 0;
  unnumbered_ = seq_num == 0;
  steps_back_ += still_unnumbered ? 0 : 1;
  return still_unnumbered;
}

void FlickerRecorder::BreakStretch() {
  if (current_.size() > longest_.size()) {
    longest_.swap(current_);
  }
  current_.clear();
}

}  // namespace hyl::v2::tool
