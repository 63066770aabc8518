// SPDX-License-Identifier: Apache-2.0
#include "flicker_packer.h"

namespace hyl::v2::host {
namespace {

constexpr uint32_t kStopFlag = 0x80;
constexpr uint32_t kGroupMask = 0x7F;
constexpr int kCompressed1Bits = 12;
constexpr int k16BitsIn2Bits = 16;

bool IsUncompressed(FlickerFormatSampleWidth width) {
  return width == FlickerFormatSampleWidth::kUncompressed2 ||
         width == FlickerFormatSampleWidth::kUncompressed3 ||
         width == FlickerFormatSampleWidth::kUncompressed4;
}

bool IsValid(const FlickerPacking& packing) {
  if (!IsUncompressed(packing.width)) {
    return packing.width == FlickerFormatSampleWidth::kCompressed1 ||
           packing.width == FlickerFormatSampleWidth::k16BitsIn2;
  }
  const int padding = packing.msb + packing.lsb;
  return padding <= 16 && padding < 8 * static_cast<int>(packing.width);
}

FlickerPacking NearestValid(const FlickerPacking& packing) {
  if (IsValid(packing)) {
    return packing;
  }
  return {.width = FlickerFormatSampleWidth::kUncompressed2,
          .little_endian = packing.little_endian};
}

/// The number of 7-bit groups for `value` and its sign.
int GroupsFor(int32_t value) {
  int groups = 1;
  while (value < -64 || value > 63) {
    value >>= 7;
    ++groups;
  }
  return groups;
}

void PutGroups(int32_t value, int groups, std::vector<uint8_t>& bytes) {
  for (int i = 0; i < groups; ++i) {
    const uint32_t group = static_cast<uint32_t>(value >> (7 * i)) & kGroupMask;
    bytes.push_back(static_cast<uint8_t>(i + 1 == groups ? group | kStopFlag : group));
  }
}

}  // namespace

FlickerPacker::FlickerPacker(const FlickerPacking& packing)
    : packing_(NearestValid(packing)),
      sample_bytes_(IsUncompressed(packing_.width) ? static_cast<uint32_t>(packing_.width) : 2) {}

int FlickerPacker::SampleBits() const {
  if (packing_.width == FlickerFormatSampleWidth::kCompressed1) {
    return kCompressed1Bits;
  }
  if (packing_.width == FlickerFormatSampleWidth::k16BitsIn2) {
    return k16BitsIn2Bits;
  }
  return static_cast<int>(8 * sample_bytes_) - packing_.msb - packing_.lsb;
}

std::vector<uint8_t> FlickerPacker::Pack(std::span<const int32_t> samples, ChunkEnd end) {
  if (packing_.width == FlickerFormatSampleWidth::kCompressed1) {
    return PackCompressed1(samples, end);
  }
  auto bytes = packing_.width == FlickerFormatSampleWidth::k16BitsIn2 ? Pack16BitsIn2(samples)
                                                                      : PackUncompressed(samples);
  if (end == ChunkEnd::kBroken) {
    bytes.push_back(0x55);
  }
  return bytes;
}

std::vector<uint8_t> FlickerPacker::PackCompressed1(std::span<const int32_t> samples,
                                                    ChunkEnd end) {
  std::vector<uint8_t> bytes;
  bytes.swap(rest_of_value_);
  size_t last_start = bytes.size();
  for (const int32_t sample : samples) {
    last_start = bytes.size();
    PutGroups(sample - last_sample_, GroupsFor(sample - last_sample_), bytes);
    last_sample_ = sample;
  }
  if (end == ChunkEnd::kBroken) {
    bytes.insert(bytes.end(), {0x01, 0x02});
  }
  if (end == ChunkEnd::kBegun && samples.size() >= 2) {
    // Most differences fit one group, which cannot be cut. Write the last one again with more.
    bytes.resize(last_start);
    const int groups = 2 + static_cast<int>(begun_count_++ % 3);
    PutGroups(samples.back() - samples[samples.size() - 2], groups, bytes);
    rest_of_value_.assign(bytes.begin() + static_cast<ptrdiff_t>(last_start) + 1, bytes.end());
    bytes.resize(last_start + 1);
  }
  return bytes;
}

std::vector<uint8_t> FlickerPacker::Pack16BitsIn2(std::span<const int32_t> samples) const {
  std::vector<uint8_t> bytes;
  bytes.reserve(2 * samples.size());
  for (size_t i = 0; i + 1 < samples.size(); i += 2) {
    PutBytes(static_cast<uint32_t>(samples[i + 1]), 2, bytes);
    PutBytes(static_cast<uint32_t>(samples[i]), 2, bytes);
  }
  return bytes;
}

std::vector<uint8_t> FlickerPacker::PackUncompressed(std::span<const int32_t> samples) {
  std::vector<uint8_t> bytes;
  bytes.reserve(sample_bytes_ * samples.size());
  for (const int32_t sample : samples) {
    PutBytes(AddPadding(static_cast<uint32_t>(sample)), sample_bytes_, bytes);
  }
  return bytes;
}

uint32_t FlickerPacker::AddPadding(uint32_t field) {
  const uint32_t field_mask = (0xFFFFFFFFU >> (32 - SampleBits())) << packing_.lsb;
  return ((field << packing_.lsb) & field_mask) | (static_cast<uint32_t>(junk_()) & ~field_mask);
}

void FlickerPacker::PutBytes(uint32_t value, uint32_t count, std::vector<uint8_t>& bytes) const {
  for (uint32_t i = 0; i < count; ++i) {
    const uint32_t place = packing_.little_endian ? i : count - 1 - i;
    bytes.push_back(static_cast<uint8_t>(value >> (8 * place)));
  }
}

}  // namespace hyl::v2::host
