#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace hyl::v2::bench {

/// Long enough that the processor does not learn its branches by heart.
inline constexpr size_t kStreamBytes = size_t{512} * 1024;

struct FlickerStream {
  std::string name;
  std::vector<uint8_t> bytes;
};

/// Compressed-1 streams of kStreamBytes or a few bytes less, of whole differences. The same in
/// every run.
/// @{
FlickerStream MainsRipple();
FlickerStream SteepRipple();
FlickerStream HalfAndHalf();
FlickerStream UniformGroups();
/// @}

/// Bytes without a pattern.
std::vector<uint8_t> RandomBytes(size_t count, uint32_t seed);

}  // namespace hyl::v2::bench
