#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "log_capture.h"

namespace hyl::v2::test {

/// What a SampleConverter has to do, written for plainness: one byte at a time, in 64-bit numbers,
/// without masks or shift counts. It shares no code with the converter and keeps its samples to
/// itself.
class SampleConverterModel {
 public:
  void SetOutput(size_t capacity, uint8_t bits);
  void ResetCounters();
  void Configure(int32_t kind, bool little_endian, uint8_t msb, uint8_t lsb);
  uint32_t GetSeqNum(uint32_t offset);
  bool Convert(std::span<const uint8_t> chunk, uint8_t restart);

  /// Those of the latest chunk that fit the capacity.
  const std::vector<int32_t>& Samples() const { return samples_; }
  uint32_t SeqNum() const { return seq_num_; }
  uint32_t TotalBytes() const { return total_bytes_; }
  /// Compressed-1: the last byte of the stream so far, if a value begins with it.
  std::optional<uint8_t> HeldByte() const { return held_byte_; }
  int32_t Sum() const { return sum_; }
  /// What was logged since the last call.
  std::vector<LogEntry> TakeLog();

 private:
  struct Format {
    int32_t kind;
    uint8_t out_bits;  // as it was when the format came
    size_t sample_bytes;
    bool little_endian;
    int msb;
    int lsb;
  };

  bool ConvertCompressed1(std::span<const uint8_t> chunk, bool restart);
  bool Convert16BitsIn2(std::span<const uint8_t> chunk);
  bool ConvertUncompressed(std::span<const uint8_t> chunk);
  int64_t ReadField(std::span<const uint8_t> bytes) const;
  /// Keeps the first samples, `room` at most, and warns if these are not all.
  void Store(const std::vector<int32_t>& samples, size_t room);

  size_t capacity_ = 0;
  uint8_t out_bits_ = 0;
  std::optional<Format> format_;
  uint32_t seq_num_ = 0;
  uint32_t total_bytes_ = 0;
  std::optional<uint8_t> held_byte_;
  int32_t sum_ = 0;
  std::vector<int32_t> samples_;
  std::vector<LogEntry> log_;
};

}  // namespace hyl::v2::test
