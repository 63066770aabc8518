// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <utility>
#include <vector>

#include "log_capture.h"

namespace hyl::v2::test {

/// `value`, a number of `bits` bits, read as two's complement.
inline int64_t AsSigned(int64_t value, int bits) {
  const int64_t sign = int64_t{1} << (bits - 1);
  return value < sign ? value : value - 2 * sign;
}

/// `value` doubled that often, or halved and rounded down; of the result, the lowest 32 bits.
inline int32_t Scale(int64_t value, int doublings) {
  constexpr int kMost = 63;
  if (doublings < 0) {
    return static_cast<int32_t>(value >> std::min(-doublings, kMost));
  }
  return static_cast<int32_t>(static_cast<uint64_t>(value) << std::min(doublings, kMost));
}

/// Decodes as a SampleConverter must, in the plainest way: one byte after the other, with its state
/// in the object. Shares no code with the converter. Allocates only for log entries.
class SampleConverterModel {
 public:
  static constexpr int32_t kCompressed1 = 6;
  static constexpr int32_t k16BitsIn2 = 7;

  void SetOutput(int32_t* buffer, size_t capacity, uint8_t bits) {
    buffer_ = buffer;
    capacity_ = buffer == nullptr ? 0 : capacity;
    out_bits_ = bits;
    ResetCounters();
  }
  void ResetCounters() {
    seq_num_ = 0;
    total_bytes_ = 0;
  }
  void Configure(int32_t kind, bool little_endian, uint8_t msb, uint8_t lsb) {
    if (kind == kCompressed1) {
      format_ = {.kind = kind, .doublings = out_bits_ - 12};
      return;
    }
    const bool pairs = kind == k16BitsIn2;
    const int bytes = pairs ? 2 : (kind >= 1 && kind <= 4 ? kind : 0);
    const int unused = pairs ? 0 : msb + lsb;
    if (bytes < 2 || unused > 16 || unused >= 8 * bytes) {
      log_.push_back(
          Warning(Text("Invalid converter config (sbytes:%d msb:%d lsb:%d)", bytes, msb, lsb)));
      return;
    }
    const int bits = 8 * bytes - unused;
    format_ = {.kind = kind,
               .bits = bits,
               .doublings = out_bits_ - bits,
               .bytes = static_cast<size_t>(bytes),
               .little_endian = little_endian,
               .lsb = pairs ? 0 : lsb};
  }
  bool Convert(std::span<const uint8_t> chunk, uint8_t restart) {
    if (format_.kind == 0) {
      log_.push_back(Warning("No sample format received yet"));
      return false;
    }
    made_ = 0;
    room_ = capacity_;
    bool converted = false;
    if (format_.kind == kCompressed1) {
      converted = ConvertCompressed1(chunk, restart % 2 == 1);
    } else if (format_.kind == k16BitsIn2) {
      converted = Convert16BitsIn2(chunk);
    } else {
      converted = ConvertUncompressed(chunk);
    }
    if (converted) {
      seq_num_ += static_cast<uint32_t>(Samples().size());
      total_bytes_ += static_cast<uint32_t>(chunk.size());
    }
    return converted;
  }

  /// Number of the sample at byte `offset` of the stream. Behind a gap in compressed-1 it is an
  /// estimate from the samples a byte so far.
  uint32_t SeqNumOf(uint32_t offset) {
    constexpr uint32_t kTooLong = 1U << 28;
    if (format_.kind != kCompressed1) {
      return static_cast<uint32_t>(offset / format_.bytes);
    }
    const uint64_t gap = static_cast<uint32_t>(offset - total_bytes_);
    if ((gap & kTooLong) != 0) {
      log_.push_back(Warning(Text("Cannot estimate missing gap of data (off:%d total:%d)",
                                  static_cast<int>(offset), static_cast<int>(total_bytes_))));
      return 0;
    }
    const uint64_t samples = seq_num_;
    const uint64_t bytes = total_bytes_ - (HeldByte() && total_bytes_ > 0 ? 1 : 0);
    uint64_t missing = gap;  // at one byte a sample, the most that there can be
    if (samples * kLongestDifference < bytes) {
      missing = (gap + kLongestDifference / 2) / kLongestDifference;
    } else if (samples < bytes) {
      missing = (gap * samples + bytes / 2) / bytes;
    }
    return static_cast<uint32_t>(samples + missing);
  }

  /// What the buffer holds of the latest chunk.
  std::span<const int32_t> Samples() const { return {buffer_, std::min(made_, room_)}; }
  uint32_t SeqNum() const { return seq_num_; }
  uint32_t TotalBytes() const { return total_bytes_; }
  /// Compressed-1: the last byte of the stream so far, if a difference begins with it.
  std::optional<uint8_t> HeldByte() const {
    return difference_bytes_ == 0 ? std::nullopt : std::optional(static_cast<uint8_t>(difference_));
  }
  int32_t Sum() const { return sum_; }
  /// What the converter must have logged since the last call.
  std::vector<LogEntry> TakeLog() { return std::exchange(log_, {}); }

 private:
  static constexpr size_t kLongestDifference = 4;

  struct Format {
    int32_t kind = 0;   // none yet
    int bits = 0;       // of a sample
    int doublings = 0;  // that bring a sample to the wanted width; negative: halvings
    size_t bytes = 4;   // of a sample, where that is fixed
    bool little_endian = true;
    int lsb = 0;
  };

  bool ConvertCompressed1(std::span<const uint8_t> chunk, bool restart) {
    if (restart) {
      difference_ = 0;
      difference_bytes_ = 0;
      sum_ = 0;
    }
    size_t left = chunk.size();
    for (; left > 0 && difference_bytes_ < kLongestDifference; --left) {
      TakeByte(chunk[chunk.size() - left]);
    }
    LogDroppedSamples();
    const size_t unread = difference_bytes_ + left;
    if (unread < 2) {
      return true;
    }
    log_.push_back(Error(Text("Did not process all data (left:%zu bits)!", 8 * unread)));
    difference_ = 0;
    difference_bytes_ = 0;
    return false;
  }
  bool Convert16BitsIn2(std::span<const uint8_t> chunk) {
    if (chunk.size() % 4 != 0) {
      log_.push_back(
          Error(Text("Received data size (%zu) doesn't fit must be 32-bit wide", chunk.size())));
      return false;
    }
    room_ = capacity_ - capacity_ % 2;
    for (size_t at = 0; at < chunk.size(); at += 4) {
      PutSample(ReadSample(&chunk[at + 2]));
      PutSample(ReadSample(&chunk[at]));
    }
    LogDroppedSamples();
    return true;
  }
  bool ConvertUncompressed(std::span<const uint8_t> chunk) {
    if (chunk.size() % format_.bytes != 0) {
      log_.push_back(Error(Text("Received data size (%zu) doesn't fit sample-width (%zu)",
                                chunk.size(), format_.bytes)));
      return false;
    }
    for (size_t at = 0; at < chunk.size(); at += format_.bytes) {
      PutSample(ReadSample(&chunk[at]));
    }
    LogDroppedSamples();
    return true;
  }
  void TakeByte(uint8_t byte) {
    difference_ += int64_t{byte % 128} << (7 * difference_bytes_);
    ++difference_bytes_;
    if (byte < 128) {
      return;
    }
    const int bits = 7 * static_cast<int>(difference_bytes_);
    sum_ = static_cast<int32_t>(sum_ + AsSigned(difference_, bits));
    PutSample(sum_);
    difference_ = 0;
    difference_bytes_ = 0;
  }
  int64_t ReadSample(const uint8_t* bytes) const {
    int64_t number = 0;
    for (size_t i = 0; i < format_.bytes; ++i) {
      number = number * 256 + bytes[format_.little_endian ? format_.bytes - 1 - i : i];
    }
    const int64_t limit = int64_t{1} << format_.bits;
    return AsSigned((number >> format_.lsb) & (limit - 1), format_.bits);
  }
  void PutSample(int64_t sample) {
    if (made_ < room_) {
      buffer_[made_] = Scale(sample, format_.doublings);
    }
    ++made_;
  }
  void LogDroppedSamples() {
    if (made_ > capacity_) {
      log_.push_back(
          Warning(Text("Not enough space in sample converter buffer (want:%zu have:%zu). "
                       "Samples will be dropped.",
                       made_, capacity_)));
    }
  }

  int32_t* buffer_ = nullptr;
  size_t capacity_ = 0;
  uint8_t out_bits_ = 0;
  Format format_;
  uint32_t seq_num_ = 0;
  uint32_t total_bytes_ = 0;
  // Compressed-1: the difference that is being read, its bytes so far, and the sum of all before.
  int64_t difference_ = 0;
  size_t difference_bytes_ = 0;
  int32_t sum_ = 0;
  size_t made_ = 0;  // samples of the latest chunk, with those that were dropped
  size_t room_ = 0;  // for them
  std::vector<LogEntry> log_;
};

}  // namespace hyl::v2::test
