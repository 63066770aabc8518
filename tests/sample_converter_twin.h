// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include <gtest/gtest.h>
#include <hyl/internal/sample_converter.h>

#include "log_capture.h"
#include "sample_converter_model.h"

namespace hyl::v2::test {

/// A SampleConverter and its model. Both get the same calls and are compared after each. Chunks and
/// the buffer are heap blocks of their exact size, so that AddressSanitizer reports the first byte
/// beyond.
class ConverterTwin {
 public:
  /// No `capacity`: a null buffer, said to have room.
  void SetOutput(std::optional<size_t> capacity, uint8_t bits) {
    constexpr size_t kRoomOfNull = 1000;
    wanted_.resize(capacity.value_or(0));
    buffer_ = capacity ? std::make_unique<int32_t[]>(*capacity) : nullptr;
    converter_.SetOutput(buffer_.get(), capacity.value_or(kRoomOfNull), bits);
    model_.SetOutput(wanted_.data(), wanted_.size(), bits);
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
    EXPECT_EQ(model_.SeqNumOf(offset), converter_.GetSeqNum(offset)) << offset;
    Compare();
  }

  bool Convert(std::span<const uint8_t> chunk, uint8_t restart) {
    constexpr int32_t kUntouched = 0x5A5AA5A5;
    std::ranges::fill(wanted_, kUntouched);
    std::fill_n(buffer_.get(), wanted_.size(), kUntouched);
    const auto copy = std::make_unique<uint8_t[]>(chunk.size());
    std::ranges::copy(chunk, copy.get());
    const bool converted = converter_.Convert(copy.get(), chunk.size(), restart);
    EXPECT_EQ(model_.Convert(chunk, restart), converted);
    if (converted) {
      EXPECT_EQ(model_.Samples().size(), converter_.out_count_);
      const auto differs = std::ranges::mismatch(wanted_, std::span(buffer_.get(), wanted_.size()));
      EXPECT_TRUE(differs.in1 == wanted_.end())
          << "sample " << differs.in1 - wanted_.begin() << " is " << *differs.in2 << ", not "
          << *differs.in1;
    }
    Compare();
    return converted;
  }

  uint32_t TotalBytes() const { return converter_.total_bytes_; }
  /// The samples of the latest chunk, which must have been converted.
  std::span<const int32_t> Samples() const { return {buffer_.get(), converter_.out_count_}; }

 private:
  void Compare() {
    EXPECT_EQ(model_.SeqNum(), converter_.seq_num_);
    EXPECT_EQ(model_.TotalBytes(), converter_.total_bytes_);
    EXPECT_EQ(model_.Sum(), converter_.accumulator_);
    const std::optional<uint8_t> held = model_.HeldByte();
    EXPECT_EQ(held ? -8 : 0, converter_.bit_pos_);
    EXPECT_EQ(held.value_or(converter_.carry_byte_), converter_.carry_byte_);
    EXPECT_EQ(model_.TakeLog(), log_.Take());
  }

  LogCapture log_;
  std::vector<int32_t> wanted_;  // the model's buffer
  std::unique_ptr<int32_t[]> buffer_;
  hyl::v2::spectral::SampleConverter converter_;
  SampleConverterModel model_;
};

}  // namespace hyl::v2::test
