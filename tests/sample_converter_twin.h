#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <sstream>
#include <string>
#include <vector>

#include <hyl/internal/sample_converter.h>

#include "log_capture.h"
#include "sample_converter_model.h"

namespace hyl::v2::test {

/// A SampleConverter and the model of it, which are told the same and compared after every call.
/// Chunks and buffer lie in heap blocks of their exact size, so that AddressSanitizer sees the
/// first byte beyond.
class ConverterTwin {
 public:
  /// No `capacity`: a null buffer, said to have room.
  void SetOutput(std::optional<size_t> capacity, uint8_t bits) {
    constexpr size_t kRoomOfNull = 1000;
    capacity_ = capacity.value_or(0);
    buffer_ = capacity ? std::make_unique<int32_t[]>(capacity_) : nullptr;
    converter_.SetOutput(buffer_.get(), capacity.value_or(kRoomOfNull), bits);
    model_.SetOutput(capacity_, bits);
    Compare();
  }

  void ResetCounters() {
    converter_.ResetCounters();
    model_.ResetCounters();
    Compare();
  }

  void Configure(int32_t kind, bool little_endian, uint8_t msb, uint8_t lsb) {
    converter_.Configure(static_cast<FlickerFormatSampleWidth>(kind), little_endian, msb, lsb);
    model_.Configure(kind, little_endian, msb, lsb);
    Compare();
  }

  void AskSeqNum(uint32_t offset) {
    Expect("GetSeqNum", converter_.GetSeqNum(offset), model_.GetSeqNum(offset));
    Compare();
  }

  bool Convert(std::span<const uint8_t> chunk, uint8_t restart) {
    const auto copy = std::make_unique<uint8_t[]>(chunk.size());
    std::copy(chunk.begin(), chunk.end(), copy.get());
    std::fill_n(buffer_.get(), capacity_, kUntouched);
    const bool converted = converter_.Convert(copy.get(), chunk.size(), restart);
    Expect("Convert", converted, model_.Convert(chunk, restart));
    if (converted) CompareSamples();
    Compare();
    return converted;
  }

  const hyl::v2::spectral::SampleConverter& Converter() const { return converter_; }
  const SampleConverterModel& Model() const { return model_; }
  /// What the model logged in the latest call.
  const std::vector<LogEntry>& LatestLog() const { return latest_log_; }
  /// Samples compared so far.
  size_t SampleCount() const { return sample_count_; }
  /// How the two first differed; empty if they never did.
  const std::string& Difference() const { return difference_; }

 private:
  static constexpr int32_t kUntouched = 0x5A5AA5A5;

  void CompareSamples() {
    const auto& samples = model_.Samples();
    Expect("out_count_", converter_.out_count_, samples.size());
    sample_count_ += samples.size();
    for (size_t i = 0; i < capacity_; ++i) {
      const int32_t wanted = i < samples.size() ? samples[i] : kUntouched;
      if (buffer_[i] != wanted) Expect("sample " + std::to_string(i), buffer_[i], wanted);
    }
  }

  void Compare() {
    const auto held = model_.HeldByte();
    Expect("seq_num_", converter_.seq_num_, model_.SeqNum());
    Expect("total_bytes_", converter_.total_bytes_, model_.TotalBytes());
    Expect("bit_pos_", converter_.bit_pos_, int64_t{held ? -8 : 0});
    if (held) Expect("carry_byte_", int{converter_.carry_byte_}, int{*held});
    Expect("accumulator_", converter_.accumulator_, model_.Sum());
    CompareLogs();
    ++calls_;
  }

  void CompareLogs() {
    const auto logged = log_.Take();
    latest_log_ = model_.TakeLog();
    Expect("number of log entries", logged.size(), latest_log_.size());
    for (size_t i = 0; i < std::min(logged.size(), latest_log_.size()); ++i) {
      Expect("log entry", logged[i], latest_log_[i]);
    }
  }

  template <typename T>
  void Expect(const std::string& what, const T& got, const T& wanted) {
    if (got == wanted || !difference_.empty()) return;
    std::ostringstream text;
    text << "call " << calls_ << ": " << what << " is " << got << ", should be " << wanted;
    difference_ = text.str();
  }

  LogCapture log_;
  std::unique_ptr<int32_t[]> buffer_;
  size_t capacity_ = 0;
  hyl::v2::spectral::SampleConverter converter_;
  SampleConverterModel model_;
  std::vector<LogEntry> latest_log_;
  std::string difference_;
  size_t calls_ = 0;
  size_t sample_count_ = 0;
};

}  // namespace hyl::v2::test
