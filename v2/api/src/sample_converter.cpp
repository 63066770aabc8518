// SPDX-License-Identifier: Apache-2.0
#include <hyl/internal/sample_converter.h>

#include <algorithm>
#include <bit>
#include <cstdlib>

#include "compressed1_decoder.h"
#include "fixed_unpacker.h"
#include "log.h"

namespace hyl::v2::spectral {

static_assert(std::endian::native == std::endian::little, "big-endian hosts are not supported");

namespace {

/// Shifts arithmetically by any count: right, or left where it is negative.
int32_t ShiftRight(int32_t value, int count) {
  if (count >= 0) {
    return value >> std::min(count, 31);
  }
  return count > -32 ? static_cast<int32_t>(static_cast<uint32_t>(value) << -count) : 0;
}

/// The shift that turns `from` bits into `to`, limited to what 8 bits hold: beyond 32 either way
/// the result is the same.
int8_t ShiftBetween(int from, int to) {
  return static_cast<int8_t>(std::max(from - to, -128));
}

}  // namespace

void SampleConverter::SetOutput(int32_t* buffer, size_t capacity, uint8_t bits) {
  out_buf_ = buffer;
  out_capacity_ = buffer != nullptr ? capacity : 0;
  out_bits_ = bits;
  out_count_ = 0;
  ResetCounters();
}

void SampleConverter::ResetCounters() {
  seq_num_ = 0;
  total_bytes_ = 0;
}

void SampleConverter::Configure(FlickerFormatSampleWidth width, bool little_endian, uint8_t msb,
                                uint8_t lsb) {
  if (width == FlickerFormatSampleWidth::kCompressed1) {
    ConfigureCompressed1InputFormat();
  } else if (width == FlickerFormatSampleWidth::k16BitsIn2) {
    Configure16BitsIn2InputFormat(little_endian);
  } else {
    const auto kind = static_cast<int32_t>(width);
    const size_t sbytes = kind >= 1 && kind <= 4 ? static_cast<size_t>(kind) : 0;
    ConfigureUncompressedInputFormat(width, sbytes, msb, lsb, little_endian);
  }
}

void SampleConverter::ConfigureCompressed1InputFormat() {
  constexpr int kInputBits = 12;
  format_ = static_cast<uint32_t>(FlickerFormatSampleWidth::kCompressed1);
  right_shift_ = ShiftBetween(kInputBits, out_bits_);
}

void SampleConverter::Configure16BitsIn2InputFormat(bool little_endian) {
  little_endian_ = little_endian;
  format_ = static_cast<uint32_t>(FlickerFormatSampleWidth::k16BitsIn2);
  sample_bytes_ = 2;
  right_shift_ = ShiftBetween(32, out_bits_);
}

bool SampleConverter::ConfigureUncompressedInputFormat(FlickerFormatSampleWidth width,
                                                       size_t sbytes, uint8_t msb, uint8_t lsb,
                                                       bool little_endian) {
  const bool fits = sbytes >= 2 && sbytes <= 4 && msb <= 16 && lsb <= 16 && msb + lsb <= 16 &&
                    8 * sbytes > size_t{msb} + lsb;
  if (!fits) {
    HYL_LOG(WARNING, "Invalid converter config (sbytes:%zu msb:%d lsb:%d)", sbytes, msb, lsb);
    return false;
  }
  format_ = static_cast<uint32_t>(width);
  little_endian_ = little_endian;
  sample_mask_ = ~uint32_t{0} << lsb;
  sample_bytes_ = sbytes;
  left_shift_ = static_cast<uint8_t>(32 + msb - 8 * sbytes);
  right_shift_ = ShiftBetween(32, out_bits_);
  return true;
}

uint32_t SampleConverter::GetSeqNum(uint32_t offset) const {
  if (!IsFormat(FlickerFormatSampleWidth::kCompressed1)) {
    return static_cast<uint32_t>(offset / sample_bytes_);
  }
  const uint32_t gap = offset - total_bytes_;
  if (static_cast<int32_t>(gap * 8) < 0) {
    HYL_LOG(WARNING, "Cannot estimate missing gap of data (off:%d total:%d)",
            static_cast<int>(offset), static_cast<int>(total_bytes_));
    return 0;
  }
  return seq_num_ + EstimateSamples(gap);
}

uint32_t SampleConverter::EstimateSamples(uint32_t bytes) const {
  // Samples per byte so far, as a fraction; a carried byte belongs to a sample yet to come. A
  // difference takes 1 to 4 bytes.
  uint64_t samples = seq_num_;
  uint64_t in_bytes = total_bytes_;
  if (bit_pos_ < 0 && in_bytes > 0) {
    --in_bytes;
  }
  if (in_bytes == 0 || samples > in_bytes) {
    samples = in_bytes = 1;
  } else if (4 * samples < in_bytes) {
    samples = 1;
    in_bytes = 4;
  }
  return static_cast<uint32_t>((bytes * samples + in_bytes / 2) / in_bytes);
}

bool SampleConverter::Convert(const uint8_t* data, size_t len, uint8_t restart) {
  bool converted = false;
  if (IsFormat(FlickerFormatSampleWidth::k16BitsIn2)) {
    converted = Convert16BitsIn2(data, len);
  } else if (IsFormat(FlickerFormatSampleWidth::kCompressed1)) {
    converted = ConvertCompressed1(data, len, restart);
  } else if (format_ != kNoFormat) {
    converted = ConvertUncompressed(data, len);
  } else {
    HYL_LOG(WARNING, "No sample format received yet");
  }
  if (converted) {
    seq_num_ += static_cast<uint32_t>(out_count_);
    total_bytes_ += static_cast<uint32_t>(len);
  }
  return converted;
}

bool SampleConverter::GetUncompressed1Sample(const uint8_t* data, size_t len, int& out) {
  constexpr uint8_t kStop = 0x80;
  constexpr int kMaxGroups = 4;
  const int64_t first = bit_pos_ / 8;  // -1 for the carried byte
  uint32_t payload = 0;
  for (int group = 0; group < kMaxGroups; ++group) {
    const int64_t position = first + group;
    if (position >= static_cast<int64_t>(len)) {
      return false;
    }
    const uint8_t byte = position < 0 ? carry_byte_ : data[position];
    payload |= static_cast<uint32_t>(byte & ~kStop & 0xFF) << (7 * group);
    if ((byte & kStop) != 0) {
      const int unused = 32 - 7 * (group + 1);
      out = static_cast<int32_t>(payload << unused) >> unused;
      bit_pos_ += int64_t{8} * (group + 1);
      return true;
    }
  }
  return false;
}

bool SampleConverter::ConvertCompressed1(const uint8_t* data, size_t len, uint8_t restart) {
  if ((restart & 1) != 0) {
    bit_pos_ = 0;
    accumulator_ = 0;
  }
  size_t decoded = 0;
  if (bit_pos_ >= 0 || DecodeNext(data, len, decoded)) {
    DecodeBulk(data, len, decoded);
  }
  while (DecodeNext(data, len, decoded)) {
  }
  out_count_ = LimitToCapacity(decoded);
  return FinishCompressed1(data, len);
}

bool SampleConverter::DecodeNext(const uint8_t* data, size_t len, size_t& decoded) {
  int delta = 0;
  if (!GetUncompressed1Sample(data, len, delta)) {
    return false;
  }
  accumulator_ =
      static_cast<int32_t>(static_cast<uint32_t>(accumulator_) + static_cast<uint32_t>(delta));
  if (decoded < out_capacity_) {
    out_buf_[decoded] = ShiftRight(accumulator_, right_shift_);
  }
  ++decoded;
  return true;
}

void SampleConverter::DecodeBulk(const uint8_t* data, size_t len, size_t& decoded) {
  const auto first = static_cast<size_t>(bit_pos_ / 8);
  if (first >= len || decoded >= out_capacity_ || right_shift_ < -31) {
    return;
  }
  Compressed1Cursor cursor{
      .next = data + first,
      .end = data + len,
      .out = out_buf_ + decoded,
      .out_end = out_buf_ + decoded + std::min(out_capacity_ - decoded, len - first),
      .sum = accumulator_,
      .left = std::max(-right_shift_, 0),
      .right = std::clamp<int>(right_shift_, 0, 31)};
  DecodeCompressed1(cursor);
  bit_pos_ = 8 * (cursor.next - data);
  accumulator_ = cursor.sum;
  decoded = static_cast<size_t>(cursor.out - out_buf_);
}

bool SampleConverter::FinishCompressed1(const uint8_t* data, size_t len) {
  bit_pos_ -= 8 * static_cast<int64_t>(len);
  if (bit_pos_ < -8) {
    HYL_LOG(ERROR, "Did not process all data (left:%zd bits)!", static_cast<ssize_t>(-bit_pos_));
    bit_pos_ = 0;
    return false;
  }
  if (bit_pos_ == -8 && len > 0) {
    carry_byte_ = data[len - 1];
  }
  return true;
}

size_t SampleConverter::LimitToCapacity(size_t wanted) const {
  if (wanted > out_capacity_) {
    HYL_LOG(WARNING,
            "Not enough space in sample converter buffer (want:%zu have:%zu). Samples "
            "will be dropped.",
            wanted, out_capacity_);
    return out_capacity_;
  }
  return wanted;
}

void SampleConverter::Unpack(FixedPacking packing, const uint8_t* data, size_t count) {
  packing.little_endian = little_endian_;
  packing.left += std::max(-right_shift_, 0);
  packing.right = std::clamp<int>(right_shift_, 0, 31);
  if (packing.left > 31) {
    packing.left = 0;
    packing.mask = 0;
  }
  UnpackFixed(packing, data, count, out_buf_);
  out_count_ = count;
}

bool SampleConverter::Convert16BitsIn2(const uint8_t* data, size_t len) {
  if (len % 4 != 0) {
    HYL_LOG(ERROR, "Received data size (%zu) doesn't fit must be 32-bit wide", len);
    return false;
  }
  const size_t count = LimitToCapacity(len / 2) & ~size_t{1};
  Unpack({.bytes = 2, .swapped_pairs = true}, data, count);
  return true;
}

bool SampleConverter::ConvertUncompressed(const uint8_t* data, size_t len) {
  if (len % sample_bytes_ != 0) {
    HYL_LOG(ERROR, "Received data size (%zu) doesn't fit sample-width (%zu)", len, sample_bytes_);
    return false;
  }
  const size_t count = LimitToCapacity(len / sample_bytes_);
  const int padding = 32 - 8 * static_cast<int>(sample_bytes_);
  Unpack({.bytes = sample_bytes_,
          .mask = sample_mask_ << padding,
          .left = std::max(left_shift_ - padding, 0)},
         data, count);
  return true;
}

}  // namespace hyl::v2::spectral
