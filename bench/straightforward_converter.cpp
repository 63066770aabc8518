#include "straightforward_converter.h"

#include <algorithm>

namespace hyl::v2::bench {
namespace {

constexpr uint8_t kStop = 0x80;
constexpr int kMaxGroups = 4;

int32_t ShiftRight(int32_t value, int count) {
  if (count >= 0) {
    return value >> std::min(count, 31);
  }
  return count > -32 ? static_cast<int32_t>(static_cast<uint32_t>(value) << -count) : 0;
}

}  // namespace

bool StraightforwardConverter::ReadDifference(const uint8_t* data, size_t len, int& out) {
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

void StraightforwardConverter::ConvertCompressed1(const uint8_t* data, size_t len) {
  out_count_ = 0;
  for (int delta = 0; ReadDifference(data, len, delta); ++out_count_) {
    accumulator_ =
        static_cast<int32_t>(static_cast<uint32_t>(accumulator_) + static_cast<uint32_t>(delta));
    if (out_count_ < out_capacity_) {
      out_buf_[out_count_] = ShiftRight(accumulator_, right_shift_);
    }
  }
  bit_pos_ -= 8 * static_cast<int64_t>(len);
  if (bit_pos_ == -8) {
    carry_byte_ = data[len - 1];
  }
}

template <typename ReadSample>
void StraightforwardConverter::WriteSamples(size_t count, ReadSample read) {
  for (size_t i = 0; i < count; ++i) {
    out_buf_[i] = ShiftRight(static_cast<int32_t>(read(i)), right_shift_);
  }
  out_count_ = count;
}

void StraightforwardConverter::Convert16BitsIn2(const uint8_t* data, size_t len) {
  const int high = little_endian_ ? 1 : 0;
  WriteSamples(std::min(len / 2, out_capacity_), [=](size_t i) {
    const uint8_t* const bytes = data + 2 * (i ^ 1);
    return uint32_t{bytes[high]} << 24 | uint32_t{bytes[1 - high]} << 16;
  });
}

void StraightforwardConverter::ConvertUncompressed(const uint8_t* data, size_t len) {
  WriteSamples(std::min(len / sample_bytes_, out_capacity_), [&](size_t i) {
    const uint8_t* const bytes = data + i * sample_bytes_;
    uint32_t raw = 0;
    for (size_t j = 0; j < sample_bytes_; ++j) {
      raw = raw << 8 | bytes[little_endian_ ? sample_bytes_ - 1 - j : j];
    }
    return (raw & sample_mask_) << left_shift_;
  });
}

size_t DecodeTightly(const uint8_t* data, size_t len, int left_shift, int32_t& sum, int32_t* out,
                     size_t capacity) {
  auto total = static_cast<uint32_t>(sum);
  size_t count = 0;
  for (size_t position = 0; position < len;) {
    uint32_t payload = 0;
    int bits = 0;
    uint8_t byte = 0;
    do {
      byte = data[position++];
      payload |= static_cast<uint32_t>(byte & 0x7F) << bits;
      bits += 7;
    } while ((byte & kStop) == 0 && bits < 7 * kMaxGroups && position < len);
    total += static_cast<uint32_t>(static_cast<int32_t>(payload << (32 - bits)) >> (32 - bits));
    if (count < capacity) {
      out[count] = static_cast<int32_t>(total << left_shift);
    }
    ++count;
  }
  sum = static_cast<int32_t>(total);
  return count;
}

}  // namespace hyl::v2::bench
