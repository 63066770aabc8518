#pragma once

#include <memory>

#include <hyl/api.h>

namespace hyl::v2::host {

/// A connection to the simulated hub; empty for kinds of client that it does not serve.
std::unique_ptr<Api> ConnectToSimulatedHub(ClientType type);

}  // namespace hyl::v2::host
