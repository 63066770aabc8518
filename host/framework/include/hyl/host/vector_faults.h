#pragma once

#include <functional>

namespace hyl::v2::host {

/// From now on asks `fails` whenever a framework vector of the process is to become longer: true
/// makes that Resize fail and leaves the vector as it was. An empty function ends this.
///
/// Safe on any thread. `fails` runs on the threads that resize, several at once if they do, without
/// a lock held.
[[gnu::visibility("default")]] void FailVectorGrowth(std::function<bool()> fails);

}  // namespace hyl::v2::host
