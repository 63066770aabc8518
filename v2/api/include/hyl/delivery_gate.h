#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

namespace hyl::v2::spectral {

/// Lets deliveries into a callback object until it is closed, and lets the closer wait until those
/// that got in have ended. All operations are safe on any thread. The framework keeps the gate's
/// owner alive while it delivers; a delivery inside which Drain was called does so itself.
class alignas(64) DeliveryGate {  // a cache line of its own: sensors deliver side by side
 public:
  /// A delivery under way on the calling thread. Lives on the stack of OnResponse, around all that
  /// touches the instance or the client.
  class Delivery {
   public:
    explicit Delivery(DeliveryGate& gate);
    ~Delivery();
    Delivery(const Delivery&) = delete;
    Delivery& operator=(const Delivery&) = delete;

    /// Whether the instance and the client may be touched. Asked again after every client callback,
    /// which may have destroyed the instance.
    bool open() const { return !gate_.closed(); }

   private:
    friend class DeliveryGate;

    DeliveryGate& gate_;
    Delivery* const outer_;              // the delivery that this thread was in before
    std::shared_ptr<const void> owner_;  // of the gate, where Close was called inside this delivery
  };

  /// Lets no further delivery in.
  void Close() { state_.fetch_or(kClosed); }

  /// Waits, with the gate closed, until all deliveries have ended but those that the calling thread
  /// itself is in; the outermost of these then keeps `owner`, the gate's owner, alive to its end.
  void Drain(std::shared_ptr<const void> owner);

  bool closed() const { return (state_.load(std::memory_order_relaxed) & kClosed) != 0; }

 private:
  static constexpr uint32_t kClosed = 1U << 31;

  /// kClosed, plus the number of deliveries under way.
  std::atomic<uint32_t> state_{0};
};

}  // namespace hyl::v2::spectral
