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

#include "input.h"
#include "log_capture.h"
#include "sample_converter_model.h"

namespace hyl::v2::test {

/// A SampleConverter and its model. Both get the same calls and are compared after each. Chunks and
/// the buffer are heap blocks of their exact size, so that AddressSanitizer reports the first byte
/// beyond.
class ConverterTwin {
 public:
  explicit ConverterTwin(Input input = Input({})) : input_(input) {}

  /// What a sensor, or a faulty framework, may send: an Input names it. To the input's end, or the
  /// first failure.
  void Run() {
    while (!input_.Empty() && !testing::Test::HasFailure()) {
      switch (input_.Below(8)) {
        case 0:
          SetAnyOutput();
          break;
        case 1:
          ResetCounters();
          break;
        case 2:
          ConfigureAnyhow();
          break;
        default:
          SendStream();
      }
    }
  }

  /// No `capacity`: a null buffer, said to have room.
  void SetOutput(std::optional<size_t> capacity, uint8_t bits) {
    constexpr size_t kRoomOfNull = 1000;
    wanted_.resize(capacity.value_or(0));
    buffer_ = capacity ? std::make_unique<int32_t[]>(*capacity) : nullptr;
    converter_.SetOutput(buffer_.get(), capacity.value_or(kRoomOfNull), bits);
    model_.SetOutput(wanted_.data(), wanted_.size(), bits);
    Compare();
  }

  void Configure(int32_t kind, bool little_endian, uint8_t msb, uint8_t lsb) {
    converter_.Configure(static_cast<FlickerFormatSampleWidth>(kind), little_endian, msb, lsb);
    model_.Configure(kind, little_endian, msb, lsb);
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
      sample_count_ += model_.Samples().size();
      EXPECT_EQ(model_.Samples().size(), converter_.out_count_);
      const auto differs = std::ranges::mismatch(wanted_, std::span(buffer_.get(), wanted_.size()));
      EXPECT_TRUE(differs.in1 == wanted_.end())
          << "sample " << differs.in1 - wanted_.begin() << " is " << *differs.in2 << ", not "
          << *differs.in1;
    }
    Compare();
    return converted;
  }

  /// Of all chunks so far.
  size_t sample_count() const { return sample_count_; }
  /// The samples of the latest chunk, which must have been converted.
  std::span<const int32_t> Samples() const { return {buffer_.get(), converter_.out_count_}; }

 private:
  using Bytes = std::vector<uint8_t>;

  void SetAnyOutput() {
    const std::optional<size_t> capacity = input_.Below(input_.OneOf({8, 300, 3000}));
    const size_t bits = input_.OneIn(2) ? input_.Byte() : input_.OneOf({8, 12, 16, 24, 32});
    SetOutput(input_.OneIn(10) ? std::nullopt : capacity, static_cast<uint8_t>(bits));
  }

  void ResetCounters() {
    converter_.ResetCounters();
    model_.ResetCounters();
    Compare();
  }

  void ConfigureAnyhow() {
    kind_ = input_.OneIn(20) ? input_.SignedByte()
                             : static_cast<int32_t>(input_.OneOf({1, 2, 3, 4, 6, 6, 6, 7}));
    const bool little_endian = input_.OneIn(2);
    const auto msb = static_cast<uint8_t>(input_.Below(input_.OneIn(10) ? 256 : 10));
    const auto lsb = static_cast<uint8_t>(input_.Below(input_.OneIn(10) ? 256 : 10));
    Configure(kind_, little_endian, msb, lsb);
  }

  /// Cuts a stream anywhere and sends the pieces. Some are lost, some come twice.
  void SendStream() {
    const Bytes stream = IsCompressed1() && !input_.OneIn(8) ? Values() : AnyBytes();
    for (std::span<const uint8_t> left = stream; !left.empty();) {
      const auto piece = left.first(PieceSize(left.size()));
      for (size_t times = input_.OneIn(8) ? input_.Below(3) : 1; times > 0; --times) {
        Send(piece);
      }
      left = left.subspan(piece.size());
    }
    if (input_.OneIn(10)) {
      Send({});
    }
  }

  void Send(std::span<const uint8_t> chunk) {
    const uint32_t gap = input_.OneIn(4) ? input_.Value<uint32_t>() : 0;
    const uint32_t offset = converter_.total_bytes_ + (input_.OneIn(2) ? gap : gap % 1024);
    EXPECT_EQ(model_.SeqNumOf(offset), converter_.GetSeqNum(offset)) << offset;
    Compare();
    Convert(chunk, static_cast<uint8_t>(2 * input_.Below(128) + (input_.OneIn(10) ? 1 : 0)));
  }

  size_t PieceSize(size_t left) {
    const size_t size = input_.OneIn(4) ? left : 1 + input_.Below(input_.OneOf({24, 300}));
    // Whole samples for the formats of fixed width, most of the time.
    const size_t unit = IsCompressed1() || input_.OneIn(10) ? 1 : 12;
    return std::min(left, (size + unit - 1) / unit * unit);
  }

  /// Of compressed-1: mostly values of one length, as in a sensor's streams. A value is some groups
  /// of 7 bits, the last of which has the stop flag. One of five groups cannot be read.
  Bytes Values() {
    const size_t rarity = input_.OneOf({1, 5, 50, 250});
    const size_t usual_groups = input_.OneIn(2) ? 1 : 1 + input_.Below(4);
    const size_t most_groups = input_.OneIn(16) ? 5 : 4;
    Bytes bytes;
    for (size_t count = input_.Below(input_.OneOf({20, 200, 1500})); count > 0; --count) {
      size_t groups = input_.OneIn(rarity) ? 1 + input_.Below(most_groups) : usual_groups;
      for (; groups > 1; --groups) {
        bytes.push_back(input_.Byte() & 0x7F);
      }
      bytes.push_back(input_.Byte() | 0x80);
    }
    return bytes;
  }

  Bytes AnyBytes() {
    const auto bytes = input_.Bytes(12 * input_.Below(input_.OneOf({30, 30, 30, 300})));
    return {bytes.begin(), bytes.end()};
  }

  bool IsCompressed1() const { return kind_ == SampleConverterModel::kCompressed1; }

  void Compare() {
    EXPECT_EQ(model_.SeqNum(), converter_.seq_num_);
    EXPECT_EQ(model_.TotalBytes(), converter_.total_bytes_);
    EXPECT_EQ(model_.Sum(), converter_.accumulator_);
    const std::optional<uint8_t> held = model_.HeldByte();
    EXPECT_EQ(held ? -8 : 0, converter_.bit_pos_);
    EXPECT_EQ(held.value_or(converter_.carry_byte_), converter_.carry_byte_);
    EXPECT_EQ(model_.TakeLog(), log_.Take());
  }

  Input input_;
  int32_t kind_ = 0;  // of the latest format
  size_t sample_count_ = 0;
  LogCapture log_;
  std::vector<int32_t> wanted_;  // the model's buffer
  std::unique_ptr<int32_t[]> buffer_;
  hyl::v2::spectral::SampleConverter converter_;
  SampleConverterModel model_;
};

}  // namespace hyl::v2::test
