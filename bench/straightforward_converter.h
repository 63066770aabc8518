#pragma once

#include <cstddef>
#include <cstdint>

namespace hyl::v2::bench {

/// Unpacks flicker samples one byte after the other, as the packings are described: what the
/// library's converter is compared with. Chunks must be well-formed and fit the buffer.
class StraightforwardConverter {
 public:
  /// `right_shift` may be negative: to the left.
  StraightforwardConverter(int32_t* out, size_t capacity, int8_t right_shift)
      : out_buf_(out), out_capacity_(capacity), right_shift_(right_shift) {}

  /// For the formats of a fixed size; no unused bits.
  void ConfigureFixed(size_t sample_bytes, bool little_endian) {
    sample_bytes_ = sample_bytes;
    little_endian_ = little_endian;
    left_shift_ = static_cast<uint8_t>(32 - 8 * sample_bytes);
  }

  void ConvertCompressed1(const uint8_t* data, size_t len);
  void Convert16BitsIn2(const uint8_t* data, size_t len);
  void ConvertUncompressed(const uint8_t* data, size_t len);

  size_t out_count() const { return out_count_; }

 private:
  bool ReadDifference(const uint8_t* data, size_t len, int& out);
  template <typename ReadSample>
  void WriteSamples(size_t count, ReadSample read);

  int32_t* out_buf_;
  size_t out_capacity_;
  size_t out_count_ = 0;
  bool little_endian_ = true;
  size_t sample_bytes_ = 4;
  uint32_t sample_mask_ = ~uint32_t{0};
  uint8_t left_shift_ = 0;
  int8_t right_shift_;
  int64_t bit_pos_ = 0;
  uint8_t carry_byte_ = 0;
  int32_t accumulator_ = 0;
};

/// Compressed-1 byte after byte too, but with everything in registers and without what the format
/// has besides whole differences; shifts left.
size_t DecodeTightly(const uint8_t* data, size_t len, int left_shift, int32_t& sum, int32_t* out,
                     size_t capacity);

}  // namespace hyl::v2::bench
