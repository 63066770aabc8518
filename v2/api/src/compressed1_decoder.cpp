// SPDX-License-Identifier: Apache-2.0
#include "compressed1_decoder.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>

#include "lanes.h"

// A byte whose highest bit, the stop bit, is set ends a difference. The decoder has three methods,
// the fastest first: for 32 differences of one byte each; for the differences of one and two bytes
// in a window of 8 bytes, by a table of byte shuffles with an entry for each pattern of stop bits;
// for a single difference.

namespace hyl::v2::spectral {
namespace {

constexpr size_t kMaxBytes = 4;  // of a difference
constexpr size_t kWord = 8;      // bytes of a window, and the most samples that it can hold
constexpr uint64_t kStopBits = 0x8080808080808080;

/// For each pattern of a window's stop bits, the differences of one and two bytes that it begins
/// with.
struct WindowTable {
  alignas(16) std::array<std::array<uint8_t, 16>, 256> shuffle;  // places them in 16-bit lanes
  alignas(16) std::array<std::array<uint16_t, 8>, 256> sign;     // their sign bits once joined
  std::array<uint8_t, 256> bytes;                                // that they take
  std::array<uint8_t, 256> samples;                              // their number
};

constexpr WindowTable kWindows = [] {
  WindowTable table{};
  for (unsigned stops = 0; stops < 256; ++stops) {
    table.shuffle[stops].fill(kNoByte);
    uint8_t& byte = table.bytes[stops];
    uint8_t& lane = table.samples[stops];
    for (; ((stops >> byte) & 3) != 0; ++lane) {
      const bool one_byte = ((stops >> byte) & 1) != 0;
      table.sign[stops][lane] = one_byte ? 0x40 : 0x2000;
      table.shuffle[stops][size_t{2} * lane] = byte++;
      if (!one_byte) {
        table.shuffle[stops][size_t{2} * lane + 1] = byte++;
      }
    }
  }
  return table;
}();

/// Inlined whole, so that the members stay in registers.
struct Decoder {
  Compressed1Cursor cursor;
  U32Lanes sums;  // `cursor.sum` in every lane

  [[gnu::always_inline]] inline void Run() {
    while (const size_t words =
               std::min({cursor.BytesLeft() / kWord, cursor.RoomLeft() / kWord, kWord})) {
      if (words >= 4 && NextAreOneByte32()) {
        DecodeOneByte16();
        DecodeOneByte16();
      } else if (!DecodeWindows(words)) {
        return;
      }
    }
  }

  bool NextAreOneByte32() const {
    const uint64_t all = Load<uint64_t>(cursor.next) & Load<uint64_t>(cursor.next + 8) &
                         Load<uint64_t>(cursor.next + 16) & Load<uint64_t>(cursor.next + 24);
    return (all & kStopBits) == kStopBits;
  }

  [[gnu::always_inline]] inline void DecodeOneByte16() {
    U8Lanes bytes = ((Load<U8Lanes>(cursor.next) & 0x7F) ^ 0x40) - 0x40;
    bytes += As<U8Lanes>(As<U64Lanes>(bytes) << 8);  // sums of two fit a byte
    const auto sign = As<U8Lanes>(As<S8Lanes>(bytes) < 0);
    Write(As<U16Lanes>(__builtin_shufflevector(bytes, sign, 0, 16, 1, 17, 2, 18, 3, 19, 4, 20, 5,
                                               21, 6, 22, 7, 23)),
          8);
    Write(As<U16Lanes>(__builtin_shufflevector(bytes, sign, 8, 24, 9, 25, 10, 26, 11, 27, 12, 28,
                                               13, 29, 14, 30, 15, 31)),
          8);
    cursor.next += 16;
  }

  /// Takes one step for each of `words` words that are left. False at a malformed difference.
  [[gnu::always_inline]] inline bool DecodeWindows(size_t words) {
    uint64_t stops = 0;
    for (size_t i = 0; i < words; ++i) {
      // The stop bits of 8 bytes, gathered in one.
      const uint64_t spread = Load<uint64_t>(cursor.next + kWord * i) & kStopBits;
      stops |= (spread * 0x0002040810204081) >> 56 << (kWord * i);
    }
    for (size_t i = 0; i < words; ++i) {
      const unsigned bytes =
          kHasByteShuffle && (stops & 3) != 0 ? DecodeWindow(stops & 0xFF) : DecodeOne();
      if (bytes == 0) {
        return false;
      }
      cursor.next += bytes;
      stops >>= bytes;
    }
    return true;
  }

  /// Decodes the differences of one and two bytes that the next 8 bytes, with the given stop bits,
  /// begin with; returns how many bytes they take.
  [[gnu::always_inline]] inline unsigned DecodeWindow(uint64_t stops) {
    const U8Lanes window = As<U8Lanes>(U64Lanes{Load<uint64_t>(cursor.next), 0});
    auto groups = As<U16Lanes>(ShuffleBytes(window, Load<U8Lanes>(&kWindows.shuffle[stops])));
    groups &= 0x7F7F;
    groups -= (groups >> 1) & 0x3F80;  // joins two groups of 7 bits
    const auto sign = Load<U16Lanes>(&kWindows.sign[stops]);
    const U16Lanes differences = (groups ^ sign) - sign;
    Write(
        differences + __builtin_shufflevector(U16Lanes{}, differences, 0, 8, 9, 10, 11, 12, 13, 14),
        kWindows.samples[stops]);
    return kWindows.bytes[stops];
  }

  /// Decodes a difference of any length; returns how many bytes it takes, 0 if it is malformed.
  [[gnu::always_inline]] inline unsigned DecodeOne() {
    const auto groups = Load<uint32_t>(cursor.next);
    const uint32_t stops = groups & static_cast<uint32_t>(kStopBits);
    if (stops == 0) {
      return 0;
    }
    const unsigned bytes = static_cast<unsigned>(std::countr_zero(stops)) / 8 + 1;
    const uint32_t joined = (groups & 0x7F) | (groups >> 1 & 0x7F << 7) |
                            (groups >> 2 & 0x7F << 14) | (groups >> 3 & 0x7F << 21);
    const unsigned unused = 32 - 7 * bytes;
    sums += static_cast<uint32_t>(static_cast<int32_t>(joined << unused) >> unused);
    *cursor.out++ = static_cast<int32_t>(sums[0] << cursor.left) >> cursor.right;
    return bytes;
  }

  /// Writes samples `first` to `first` + 3 of `count`.
  [[gnu::always_inline]] inline void WriteFour(S32Lanes samples, int first, int count) {
    // More samples are sure to overwrite what is written beyond `count`, except near the end.
    if (cursor.BytesLeft() < kWord + 7 * kMaxBytes) [[unlikely]] {
      const S32Lanes valid = S32Lanes{0, 1, 2, 3} < count - first;
      samples = (samples & valid) | (Load<S32Lanes>(cursor.out + first) & ~valid);
    }
    std::memcpy(cursor.out + first, &samples, sizeof(samples));
  }

  /// Writes the samples of `count` differences. `pairs`: the first difference, then the sums of
  /// each and the one before it. No sum leaves 16 bits: 8 bytes hold four of 14 bits at most.
  [[gnu::always_inline]] inline void Write(U16Lanes pairs, int count) {
    U16Lanes fours = pairs + __builtin_shufflevector(U16Lanes{}, pairs, 0, 1, 8, 9, 10, 11, 12, 13);
    U16Lanes all = fours + __builtin_shufflevector(U16Lanes{}, fours, 0, 1, 2, 3, 8, 9, 10, 11);
    const auto sign = As<U16Lanes>(As<S16Lanes>(all) < 0);
    const U32Lanes first =
        sums + As<U32Lanes>(__builtin_shufflevector(all, sign, 0, 8, 1, 9, 2, 10, 3, 11));
    const U32Lanes last =
        sums + As<U32Lanes>(__builtin_shufflevector(all, sign, 4, 12, 5, 13, 6, 14, 7, 15));
    sums = __builtin_shufflevector(last, last, 3, 3, 3, 3);
    WriteFour(As<S32Lanes>(first << cursor.left) >> cursor.right, 0, count);
    WriteFour(As<S32Lanes>(last << cursor.left) >> cursor.right, 4, count);
    cursor.out += count;
  }
};

}  // namespace

void DecodeCompressed1(Compressed1Cursor& cursor) {
  Decoder decoder{cursor, U32Lanes{} + static_cast<uint32_t>(cursor.sum)};
  decoder.Run();
  // Field by field, so that the compiler keeps them in registers until here.
  cursor = {.next = decoder.cursor.next,
            .end = decoder.cursor.end,
            .out = decoder.cursor.out,
            .out_end = decoder.cursor.out_end,
            .sum = static_cast<int32_t>(decoder.sums[0]),
            .left = decoder.cursor.left,
            .right = decoder.cursor.right};
}

}  // namespace hyl::v2::spectral
