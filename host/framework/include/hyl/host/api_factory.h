#pragma once

#include <functional>
#include <memory>

#include <hyl/api.h>

namespace hyl::v2::host {

/// Makes an Api; may return an empty pointer, as a framework that cannot be reached does.
using ApiFactory = std::function<std::unique_ptr<Api>(ClientType)>;

/// Puts `factory` behind Api::Create for the whole process; an empty one brings the simulated hub
/// back. Safe on any thread; the factory runs on the threads that call Api::Create, without a lock
/// held.
[[gnu::visibility("default")]] void SetApiFactory(ApiFactory factory);

}  // namespace hyl::v2::host
