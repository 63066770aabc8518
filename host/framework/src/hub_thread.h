#pragma once

#include <functional>

namespace hyl::v2::host {

/// Starts a thread that runs `body`, which must not return, for as long as the process lives.
void StartHubThread(std::function<void()> body);

/// Whether the calling thread is one of the hub's, which means: inside a callback.
bool OnHubThread();

}  // namespace hyl::v2::host
