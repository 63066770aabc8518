#include "hub_clock.h"

#include <algorithm>

namespace hyl::v2::host {
namespace {

using RealClock = std::chrono::steady_clock;

/// Leaves room to add periods without overflow.
constexpr int64_t kEndOfTime = int64_t{1} << 60;

int64_t RealNow() {
  return std::chrono::duration_cast<std::chrono::nanoseconds>(RealClock::now().time_since_epoch())
      .count();
}

}  // namespace

void HubClock::UseRealTime() {
  is_virtual_ = false;
  start_ = RealNow();
}

void HubClock::UseVirtual() {
  is_virtual_ = true;
  start_ = 0;
  virtual_now_ = 0;
}

int64_t HubClock::Now() const {
  return is_virtual_ ? virtual_now_ : RealNow();
}

void HubClock::Advance(std::chrono::nanoseconds step) {
  virtual_now_ += std::clamp<int64_t>(step.count(), 0, kEndOfTime - virtual_now_);
}

void HubClock::WaitUntil(int64_t time, std::condition_variable& wake,
                         std::unique_lock<std::mutex>& hub_lock) const {
  if (is_virtual_) {
    wake.wait(hub_lock);
  } else {
    wake.wait_until(hub_lock, RealClock::time_point(std::chrono::nanoseconds(time)));
  }
}

}  // namespace hyl::v2::host
