// SPDX-License-Identifier: Apache-2.0
#include "fixed_unpacker.h"

#include <array>
#include <cstring>

#include "lanes.h"

namespace hyl::v2::spectral {
namespace {

constexpr size_t kLoaded = sizeof(U8Lanes);
constexpr std::array<size_t, 5> kWholeInLoaded = {0, 0, 8, 5, 4};  // by a container's bytes

/// A shuffle that puts four samples at the tops of four lanes.
constexpr std::array<uint8_t, 16> PlaceFour(size_t bytes, bool little_endian, bool swapped_pairs) {
  std::array<uint8_t, 16> shuffle{};
  for (size_t i = 0; i < shuffle.size(); ++i) {
    const size_t sample = swapped_pairs ? (i / 4) ^ 1 : i / 4;
    const size_t unused = 4 - bytes;
    const size_t byte = little_endian ? i % 4 - unused : 3 - i % 4;
    shuffle[i] = static_cast<uint8_t>(i % 4 < unused ? kNoByte : sample * bytes + byte);
  }
  return shuffle;
}

constexpr std::array<std::array<uint8_t, 16>, 8> kShuffles = {
    PlaceFour(2, false, false), PlaceFour(2, true, false),  PlaceFour(3, false, false),
    PlaceFour(3, true, false),  PlaceFour(4, false, false), PlaceFour(4, true, false),
    PlaceFour(2, false, true),  PlaceFour(2, true, true)};

const void* ShuffleFor(const FixedPacking& packing) {
  const size_t size = packing.swapped_pairs ? 3 : packing.bytes - 2;
  return &kShuffles[2 * size + (packing.little_endian ? 1 : 0)];
}

/// The container of sample `i`, its highest bit at bit 31.
uint32_t PlaceOne(const FixedPacking& packing, const uint8_t* data, size_t i) {
  const uint8_t* const from = data + packing.bytes * (packing.swapped_pairs ? i ^ 1 : i);
  uint32_t container = 0;
  for (size_t j = 0; j < packing.bytes; ++j) {
    const uint8_t byte = from[packing.little_endian ? j : packing.bytes - 1 - j];
    container = container >> 8 | uint32_t{byte} << 24;
  }
  return container;
}

/// Unpacks 16 bytes at a time. Left shifts are rare, so only one of the two versions has them.
template <bool kShiftLeft>
void UnpackLanes(const FixedPacking& packing, const uint8_t* data, size_t count, int32_t* out) {
  const auto unpack = [mask = packing.mask, left = packing.left, right = packing.right](
                          const uint8_t* from, U8Lanes shuffle, int32_t* to) {
    const auto containers = As<U32Lanes>(ShuffleBytes(Load<U8Lanes>(from), shuffle)) & mask;
    const S32Lanes samples = As<S32Lanes>(kShiftLeft ? containers << left : containers) >> right;
    std::memcpy(to, &samples, sizeof(samples));
  };
  const auto shuffle = Load<U8Lanes>(ShuffleFor(packing));
  const size_t four = 4 * packing.bytes;
  const size_t whole = kWholeInLoaded[packing.bytes];
  const uint8_t* const last = data + count * packing.bytes - kLoaded;
  const size_t groups = (count - whole + 3) / 4;
#pragma GCC unroll 4
  for (size_t i = 0; i < groups; ++i) {
    unpack(data + four * i, shuffle, out + 4 * i);
  }
  // The last 16 bytes end with 4 to 8 whole containers, most of which are still to be unpacked.
  unpack(last, shuffle + static_cast<uint8_t>(kLoaded - whole * packing.bytes),
         out + count - whole);
  unpack(last, shuffle + static_cast<uint8_t>(kLoaded - four), out + count - 4);
}

}  // namespace

void UnpackFixed(const FixedPacking& packing, const uint8_t* data, size_t count, int32_t* out) {
  if (kHasByteShuffle && count * packing.bytes >= kLoaded) {
    if (packing.left != 0) {
      UnpackLanes<true>(packing, data, count, out);
    } else {
      UnpackLanes<false>(packing, data, count, out);
    }
    return;
  }
  for (size_t i = 0; i < count; ++i) {
    const uint32_t sample = (PlaceOne(packing, data, i) & packing.mask) << packing.left;
    out[i] = static_cast<int32_t>(sample) >> packing.right;
  }
}

}  // namespace hyl::v2::spectral
