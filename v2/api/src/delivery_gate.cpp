// SPDX-License-Identifier: Apache-2.0
#include <hyl/internal/delivery_gate.h>

#include <utility>

namespace hyl::v2::spectral {
namespace {

/// The innermost delivery that this thread is in.
thread_local constinit DeliveryGate::Delivery* t_innermost = nullptr;

}  // namespace

DeliveryGate::Delivery::Delivery(DeliveryGate& gate) : gate_(gate), outer_(t_innermost) {
  t_innermost = this;
  gate_.state_.fetch_add(1, std::memory_order_acquire);
}

DeliveryGate::Delivery::~Delivery() {
  t_innermost = outer_;
  const uint32_t before = gate_.state_.fetch_sub(1, std::memory_order_release);
  if ((before & kClosed) != 0) {
    gate_.state_.notify_all();
  }
}

void DeliveryGate::Drain(std::shared_ptr<const void> owner) {
  uint32_t own = 0;
  Delivery* outermost = nullptr;
  for (Delivery* delivery = t_innermost; delivery != nullptr; delivery = delivery->outer_) {
    if (&delivery->gate_ == this) {
      ++own;
      outermost = delivery;
    }
  }
  for (;;) {
    const uint32_t state = state_.load(std::memory_order_acquire);
    if ((state & ~kClosed) == own) {
      break;
    }
    state_.wait(state, std::memory_order_acquire);
  }
  if (outermost != nullptr) {
    outermost->owner_ = std::move(owner);
  }
}

}  // namespace hyl::v2::spectral
