// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>

#include <hyl/api.h>
#include <hyl/hyl_spectral_api_callback_interface.h>
#include <hyl/internal/delivery_gate.h>
#include <hyl/mutex.h>
#include <hyl/rls_msg_access.h>
#include <hyl/sampling_messages.h>

namespace hyl::v2 {

class HylSpectralImpl;

namespace spectral {

/// What the three callback objects share. The framework may hold such an object after the instance
/// is gone; once its gate is closed, it drops every message.
class SensorCallbacks : public Service::AsyncCallbacks {
 public:
  SensorCallbacks(HylSpectralImpl& instance, HylSpectralApiCallbackInterface* client)
      : instance_(instance), client_(client) {}

  /// Called on the framework's threads. Ignores a null message.
  void OnResponse(const Message* message) final;
  void OnError(HylErr err) final { last_status_ = static_cast<uint8_t>(err); }
  void OnAuxiliaryEvent() final {}

 protected:
  using Delivery = DeliveryGate::Delivery;

  virtual void Handle(const Message& message, const Delivery& delivery) = 0;

  HylSpectralImpl& instance_;                      // valid while a delivery is open
  HylSpectralApiCallbackInterface* const client_;  // valid while a delivery is open; may be null
  std::atomic<uint8_t> last_status_{0};            // of replies and errors; never read

 public:
  /// Cookie of the request that was started last with this object. Written under the instance
  /// mutex, read on the framework's threads.
  std::atomic<uint64_t> cookie{0};

  DeliveryGate gate;
};

/// Receives the messages of spectral sensors and hands their samples to the client.
class SpectralCallbacks : public SensorCallbacks {
 public:
  using SensorCallbacks::SensorCallbacks;

  std::condition_variable_any reply_cv;  ///< signalled for every configuration reply
  Mutex reply_mutex;                     ///< the lock of reply_cv

 protected:
  void Handle(const Message& message, const Delivery& delivery) override;
  /// False when this object does not take configuration replies.
  virtual bool HandleConfigReply(const RlsMsgAccessResp&) { return false; }

 private:
  void HandleSample(const SampleMessage& message);
  void HandleEvents(const EventMessage& message, const Delivery& delivery);
  /// False when the rest of the chain is to be dropped.
  bool HandleEvent(const RefCountedSensorEvent& event);
  /// The id of the session that gets the samples; 0, and logged, when there is none.
  uint32_t FindSession() const;
};

/// For the sensors of priority 0, and for the configuration replies.
class RearSpectralCallbacks final : public SpectralCallbacks {
 public:
  using SpectralCallbacks::SpectralCallbacks;

 private:
  bool HandleConfigReply(const RlsMsgAccessResp& reply) override;
};

/// For the sensors of every other priority.
class FrontSpectralCallbacks final : public SpectralCallbacks {
 public:
  using SpectralCallbacks::SpectralCallbacks;
};

/// Receives the messages of the flicker sensor.
class FlickerSensorCallbacks final : public SensorCallbacks {
 public:
  using SensorCallbacks::SensorCallbacks;

 private:
  void Handle(const Message& message, const Delivery& delivery) override;
};

}  // namespace spectral
}  // namespace hyl::v2
