#include <hyl/time.h>

#include <algorithm>
#include <limits>

#include "platform_ticks.h"

namespace hyl::v2 {

uint64_t Time::PlatformTicksToNs(uint64_t ticks) {
  __extension__ using Wide = unsigned __int128;
  const Wide ns = static_cast<Wide>(ticks) * kNsPerUnit / kTicksPerUnit;
  return static_cast<uint64_t>(
      std::min(ns, static_cast<Wide>(std::numeric_limits<uint64_t>::max())));
}

}  // namespace hyl::v2
