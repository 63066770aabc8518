#pragma once

namespace hyl::v2::host {

/// Whether a test wants this growth of a vector to fail.
bool VectorGrowthFails();

}  // namespace hyl::v2::host
