// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

namespace hyl::v2::spectral {

/// Admits deliveries until closed; Drain() waits for those in flight. Safe on any thread. The gate
/// is a member of the callback object, its owner. The framework keeps the owner alive while it
/// delivers, and so does a delivery from inside which Drain was called.
class alignas(64) DeliveryGate {  // on a cache line alone: sensors deliver side by side
 public:
  /// One delivery on the calling thread. Lives on the stack of OnResponse, around everything that
  /// touches the instance or the client.
  class Delivery {
   public:
    explicit Delivery(DeliveryGate& gate);
    ~Delivery();
    Delivery(const Delivery&) = delete;
    Delivery& operator=(const Delivery&) = delete;

    /// Whether the instance and the client may be touched. Check again after every client callback.
    bool open() const { return !gate_.closed(); }

   private:
    friend class DeliveryGate;

    DeliveryGate& gate_;
    Delivery* const outer_;              // the delivery from inside which this one was made
    std::shared_ptr<const void> owner_;  // of the gate, if Drain was called inside this delivery
  };

  /// Admits no further delivery.
  void Close() { state_.fetch_or(kClosed); }

  /// Waits, with the gate closed, until all deliveries have ended except those that the calling
  /// thread is in. The outermost of these then keeps `owner`, the gate's owner, alive to its end.
  void Drain(std::shared_ptr<const void> owner);

  bool closed() const { return (state_.load(std::memory_order_relaxed) & kClosed) != 0; }

 private:
  static constexpr uint32_t kClosed = 1U << 31;

  /// kClosed, plus the number of deliveries in flight.
  std::atomic<uint32_t> state_{0};
};

}  // namespace hyl::v2::spectral
