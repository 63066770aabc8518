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

/// Decodes as a SampleConverter must, in the plainest way: one byte after the other, with its state
/// in the object. Shares no code with the converter. Allocates only for log entries.
class SampleConverterModel {
 public:
  void SetOutput(int32_t* buffer, size_t capacity, uint8_t bits);
  void ResetCounters();
  void Configure(int32_t kind, bool little_endian, uint8_t msb, uint8_t lsb);
  bool Convert(std::span<const uint8_t> chunk, uint8_t restart);

  /// Whether the sample at byte `offset` of the stream can have that number. After a gap in
  /// compressed-1 it is an estimate: one sample in 1 to 4 bytes.
  bool MayHaveNumber(uint32_t offset, uint32_t number);

  /// What the buffer holds of the latest chunk.
  std::span<const int32_t> Samples() const { return {buffer_, std::min(made_, room_)}; }
  uint32_t SeqNum() const { return seq_num_; }
  uint32_t TotalBytes() const { return total_bytes_; }
  /// Compressed-1: the last byte of the stream so far, if a difference begins with it.
  std::optional<uint8_t> HeldByte() const;
  int32_t Sum() const { return sum_; }
  /// What the converter must have logged since the last call.
  std::vector<LogEntry> TakeLog() { return std::exchange(log_, {}); }

 private:
  struct Format {
    int32_t kind = 0;   // none yet
    int bits = 0;       // of a sample
    int doublings = 0;  // that bring a sample to the wanted width; negative: halvings
    size_t bytes = 0;   // of a sample, where that is fixed
    bool little_endian = true;
    int lsb = 0;
  };

  bool ConvertCompressed1(std::span<const uint8_t> chunk, bool restart);
  bool Convert16BitsIn2(std::span<const uint8_t> chunk);
  bool ConvertUncompressed(std::span<const uint8_t> chunk);
  void TakeByte(uint8_t byte);
  int64_t ReadSample(const uint8_t* bytes) const;
  void PutSample(int64_t sample);
  void LogDroppedSamples();

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
