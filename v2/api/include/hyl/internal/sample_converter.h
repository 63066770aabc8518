// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>

#include <hyl/flicker_messages.h>

namespace hyl::v2::spectral {

struct FixedPacking;

/// Unpacks chunks of a flicker sensor's byte stream into signed samples in the client's buffer,
/// scaled to the width that the client asked for, and numbers them.
///
/// Three packings:
/// - compressed-1: a stream of differences, 1 to 4 bytes each, of 12-bit samples. A byte carries 7
///   bits, the lowest first; bit 7 marks a difference's last byte. A difference may begin with the
///   last byte of a chunk and end in the next.
/// - 16-bits-in-2: two 16-bit samples in every 4 bytes, the later one first.
/// - uncompressed: one sample in every 2, 3 or 4 bytes, with unused bits above and below.
///
/// Not thread-safe: the instance mutex guards it. It allocates nothing.
class SampleConverter {
 public:
  virtual ~SampleConverter() = default;

  /// Sets where samples go, and their width in bits. A null buffer has no room.
  void SetOutput(int32_t* buffer, size_t capacity, uint8_t bits);
  /// Resets sample numbering.
  void ResetCounters();

  /// Takes the packing from a format message. An invalid one leaves the previous one in force.
  void Configure(FlickerFormatSampleWidth width, bool little_endian, uint8_t msb, uint8_t lsb);
  void ConfigureCompressed1InputFormat();
  void Configure16BitsIn2InputFormat(bool little_endian);
  /// `msb` and `lsb` are the unused bits above and below the sample in its `sbytes` bytes. If they
  /// do not fit, changes nothing and returns false.
  bool ConfigureUncompressedInputFormat(FlickerFormatSampleWidth width, size_t sbytes, uint8_t msb,
                                        uint8_t lsb, bool little_endian);

  /// Number of the first sample of the chunk at byte `offset` of the sensor's stream. Call it
  /// before Convert. After a gap in a compressed-1 stream it is an estimate.
  uint32_t GetSeqNum(uint32_t offset) const;

  /// Converts a chunk into the buffer, from index 0. False if the chunk cannot be read: the
  /// samples and `out_count_` are invalid then. Bit 0 of `restart` resets the compressed-1 decoder.
  bool Convert(const uint8_t* data, size_t len, uint8_t restart);
  bool ConvertCompressed1(const uint8_t* data, size_t len, uint8_t restart);
  bool Convert16BitsIn2(const uint8_t* data, size_t len);
  bool ConvertUncompressed(const uint8_t* data, size_t len);
  /// Reads the next difference of a compressed-1 chunk. False if none is left.
  bool GetUncompressed1Sample(const uint8_t* data, size_t len, int& out);

  int32_t* out_buf_ = nullptr;  ///< the client's
  size_t out_capacity_ = 0;     ///< of out_buf_, in samples
  size_t out_count_ = 0;        ///< samples that the latest conversion wrote
  uint32_t format_ = kNoFormat;
  bool little_endian_ = true;
  size_t sample_bytes_ = 4;   ///< bytes of a sample, where that is fixed
  uint32_t sample_mask_ = 0;  ///< uncompressed: clears the unused bits below the sample
  uint8_t out_bits_ = 0;      ///< wanted width of a sample
  uint8_t left_shift_ = 0;    ///< uncompressed: brings the sample's top bit to bit 31
  int8_t right_shift_ = 0;    ///< brings a sample to out_bits_; negative: left
  uint32_t seq_num_ = 0;      ///< samples converted since the session was enabled; wraps
  uint32_t total_bytes_ = 0;  ///< bytes converted since the session was enabled; wraps
  int64_t bit_pos_ = 0;       ///< compressed-1: of the next byte, in bits; -8: the carried byte
  uint8_t carry_byte_ = 0;    ///< compressed-1: last byte of the previous chunk, if a value began
  int32_t accumulator_ = 0;   ///< compressed-1: sum of the differences; wraps

 private:
  static constexpr uint32_t kNoFormat = 0;

  bool IsFormat(FlickerFormatSampleWidth width) const {
    return format_ == static_cast<uint32_t>(width);
  }
  size_t LimitToCapacity(size_t wanted) const;
  /// Keeps the chunk's last byte if a difference began with it. False if more bytes are left.
  bool FinishCompressed1(const uint8_t* data, size_t len);
  uint32_t EstimateSamples(uint32_t bytes) const;
  /// Decodes one difference of a compressed-1 chunk and counts it. False if none is left.
  bool DecodeNext(const uint8_t* data, size_t len, size_t& decoded);
  /// Decodes and counts most of the differences that the buffer has room for.
  void DecodeBulk(const uint8_t* data, size_t len, size_t& decoded);
  void Unpack(FixedPacking packing, const uint8_t* data, size_t count);
};

}  // namespace hyl::v2::spectral
