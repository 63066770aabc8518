#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace hyl::v2::tool {

/// Joins blocks of flicker samples to unbroken stretches, and counts what is missing between them.
class FlickerRecorder {
 public:
  /// Keeps the newest `window` samples of a stretch; `window` is not 0.
  explicit FlickerRecorder(size_t window) : window_(window) {}

  /// Takes the next block. `seq_num` is the sequence number of its first sample; `restart` tells
  /// that the decoder of compressed-1 has been reset. After a loss the levels of compressed-1 are
  /// off by a constant until then, so that the reset ends the stretch in which the loss left them.
  void Add(uint32_t seq_num, bool restart, std::span<const int32_t> samples);

  /// Drops the samples so far, and their count; what is known of gaps stays.
  void ForgetSamples();

  /// The longest unbroken stretch, at most the window, that has been added to since the latest
  /// BeginPeriod.
  std::span<const int32_t> Stretch() const;
  void BeginPeriod() { longest_.clear(); }

  /// Samples received since the latest ForgetSamples.
  uint64_t samples() const { return samples_; }
  /// Places where samples are missing.
  uint64_t gaps() const { return gaps_; }
  /// Samples that are missing there, as far as the sequence numbers tell.
  uint64_t lost_samples() const { return lost_samples_; }
  /// Places at which the sequence numbers went back.
  uint64_t steps_back() const { return steps_back_; }

 private:
  bool Continues(uint32_t seq_num, size_t count);
  void BreakStretch();

  size_t window_;
  std::vector<int32_t> current_;  // the newest samples of the present stretch are at its end
  std::vector<int32_t> longest_;  // of the stretches that have ended
  uint64_t samples_ = 0;
  uint64_t gaps_ = 0;
  uint64_t lost_samples_ = 0;
  uint64_t steps_back_ = 0;
  std::optional<uint32_t> next_seq_num_;  // none before the first block
  bool unnumbered_ = false;               // the latest block had no number to rely on
  bool levels_shifted_ = true;  // since the latest restart, samples may have been lost or repeated
};

}  // namespace hyl::v2::tool
