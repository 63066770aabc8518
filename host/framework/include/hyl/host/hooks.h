#pragma once

#include <functional>
#include <memory>

#include <hyl/api.h>

// Hooks into the framework's own functions, for the whole process. A ScriptedFramework sets the
// first by itself.
namespace hyl::v2::host {

#pragma GCC visibility push(default)

/// Makes an Api; may return an empty pointer, as a framework that cannot be reached does.
using ApiFactory = std::function<std::unique_ptr<Api>(ClientType)>;

/// Puts `factory` behind Api::Create; an empty one brings the simulated hub back. Safe on any
/// thread; the factory runs on the threads that call Api::Create, without a lock held.
void SetApiFactory(ApiFactory factory);

/// From now on asks `fails` whenever a framework vector is to become longer: true makes that Resize
/// fail and leaves the vector as it was. An empty function ends this.
///
/// Safe on any thread. `fails` runs on the threads that resize, several at once if they do, without
/// a lock held.
void FailVectorGrowth(std::function<bool()> fails);

#pragma GCC visibility pop

}  // namespace hyl::v2::host
