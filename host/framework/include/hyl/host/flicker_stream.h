#pragma once

#include <cstddef>
#include <cstdint>

#include <hyl/flicker_messages.h>

namespace hyl::v2::host {

/// How the simulated flicker sensor packs its samples. A layout that no client can accept (another
/// width than those of FlickerFormatSampleWidth, or more than 16 padding bits) is announced as it
/// stands, to show what the client does with it; the data that follow are plain 2-byte samples.
struct FlickerPacking {
  FlickerFormatSampleWidth width = FlickerFormatSampleWidth::kCompressed1;
  bool little_endian = true;  ///< 16-bits-in-2 and uncompressed
  uint8_t msb = 0;            ///< uncompressed: unused bits above the sample field
  uint8_t lsb = 0;            ///< uncompressed: unused bits below the sample field

  bool operator==(const FlickerPacking&) const = default;
};

/// Faults of the simulated flicker sensor. Chunks are counted from 0 at each start; a chunk holds
/// 10 ms of samples.
///
/// The sensor knows nothing of its losses: it goes on counting bytes and, in compressed-1, writing
/// each sample as the difference from the one before. So a client of compressed-1 is off by a
/// constant after a lost chunk (by what the lost differences come to) and after a repeated one,
/// until the stream starts afresh: every tenth chunk carries the restart flag and an absolute
/// value. It never loses its place between values, because no value reaches into or out of a lost,
/// repeated or unreadable chunk.
struct FlickerFaults {
  /// Every n-th chunk is measured but not delivered (chunks n - 1, 2n - 1, ...); 1 delivers none, 0
  /// all. A chunk that is lost is not repeated.
  uint32_t lose_every = 0;
  /// This chunk is delivered twice, with the same offset; the second time takes the place of a
  /// chunk, so that all later data come 10 ms late. 0 for none.
  uint32_t repeat_chunk = 0;
  /// Stray bytes, the beginning of a value that has no end, follow the samples of this chunk: two
  /// in compressed-1, one otherwise. They count in the offsets of the chunks after it, which are
  /// sound again. 0 for none.
  uint32_t unreadable_chunk = 0;

  bool operator==(const FlickerFaults&) const = default;
};

}  // namespace hyl::v2::host
