// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace hyl::v2::bench {

/// Long enough that the processor cannot learn its branches.
inline constexpr size_t kStreamBytes = size_t{1024} * 1024;

/// Compressed-1 streams of kStreamBytes or a few bytes less, of whole differences. The same in
/// every run.
/// @{
const std::vector<uint8_t>& MainsRipple();
const std::vector<uint8_t>& SteepRipple();
const std::vector<uint8_t>& HalfAndHalf();
const std::vector<uint8_t>& UniformGroups();
/// @}

}  // namespace hyl::v2::bench
