#include "vector_faults.h"

#include <atomic>
#include <memory>
#include <mutex>
#include <utility>

#include <hyl/host/vector_faults.h>

namespace hyl::v2::host {
namespace {

struct Hook {
  std::mutex mutex;                              // guards `fails`
  std::shared_ptr<std::function<bool()>> fails;  // null when there is none
};

/// Keeps vectors from taking the hook's mutex when there is no hook.
std::atomic<bool> hook_set{false};

Hook& TheHook() {
  static Hook* const hook = new Hook;  // never destroyed: vectors outlive static objects
  return *hook;
}

}  // namespace

void FailVectorGrowth(std::function<bool()> fails) {
  auto hook = fails ? std::make_shared<std::function<bool()>>(std::move(fails)) : nullptr;
  const std::lock_guard lock(TheHook().mutex);
  hook_set.store(hook != nullptr, std::memory_order_relaxed);
  TheHook().fails.swap(hook);
}

bool VectorGrowthFails() {
  if (!hook_set.load(std::memory_order_relaxed)) [[likely]] {
    return false;
  }
  std::shared_ptr<std::function<bool()>> fails;
  {
    const std::lock_guard lock(TheHook().mutex);
    fails = TheHook().fails;
  }
  return fails != nullptr && (*fails)();
}

}  // namespace hyl::v2::host
