// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <memory>
#include <mutex>
#include <span>
#include <utility>

#include <hyl/spectral_instance.h>

namespace hyl::v2 {

/// What a client does with its samples; without a handler they are dropped.
///
/// Handlers run on the framework's threads, by the rules of HylSpectralApiCallbackInterface; both
/// can run at the same time. Their arguments exist only during the call. A handler may use and
/// destroy sessions, and destroy the client. What it refers to must live until the client object
/// has been destroyed, and until the handler that destroyed it has returned.
struct SpectralHandlers {
  /// Takes a sample, one value per channel, and its time.
  std::function<void(std::span<const float>, std::chrono::nanoseconds)> ambient_light{};
  /// Takes flicker samples, and what else their message brought.
  std::function<void(std::span<const int32_t>, const FlickerSampleBlock&)> flicker{};
};

namespace spectral {

/// What a client object and its sessions share: the instance and its callback object. Lives as long
/// as any of them, and as long as a handler runs.
struct ClientCore final : HylSpectralApiCallbackInterface,
                          std::enable_shared_from_this<ClientCore> {
  explicit ClientCore(SpectralHandlers client_handlers) : handlers(std::move(client_handlers)) {}

  void OnSpectralData(uint32_t, uint32_t, const Vector<float>& values, int64_t time) override {
    const auto self = shared_from_this();  // the handler may destroy the client
    if (handlers.ambient_light) {
      handlers.ambient_light({values.data(), values.size()}, std::chrono::nanoseconds(time));
    }
  }

  void OnFlickerData(uint32_t session_id, const FlickerSampleBlock* block) override {
    const auto self = shared_from_this();
    std::unique_lock lock(mutex);
    const auto samples = session_id == flicker_id ? buffer : nullptr;  // outlives the session
    lock.unlock();
    if (samples != nullptr && handlers.flicker) {
      handlers.flicker({samples.get(), block->num_samples}, *block);
    }
  }

  HylErr Disable_locked(uint32_t id) {
    if (id != 0 && id == light_id) {
      return api->DisableAmbientLightSensor(std::exchange(light_id, 0));
    }
    if (id != 0 && id == flicker_id) {
      const HylErr err = api->DisableFlickerSensor(std::exchange(flicker_id, 0));
      buffer.reset();  // the library no longer writes to it
      return err;
    }
    return HylErr::kNotFound;
  }

  const SpectralHandlers handlers;
  /// Guards all below. Held around enable, change and disable; never while a handler runs, nor
  /// around Destroy.
  std::mutex mutex;
  SpectralInstance api;   ///< empty once the client is gone
  uint32_t light_id = 0;  ///< of the session that is open; 0 when none is
  uint32_t flicker_id = 0;
  std::shared_ptr<int[]> buffer;  ///< of the flicker session
};

}  // namespace spectral

/// What the sessions of both kinds share. The sensor runs until the session or its client ends,
/// whichever is first. A session is safe on any thread, and inside handlers.
class SensorSession {
 public:
  /// For SpectralClient alone.
  SensorSession(std::shared_ptr<spectral::ClientCore> core, uint32_t id)
      : core_(std::move(core)), id_(id), name_(core_->api->GetSensorName(id)) {}
  SensorSession(const SensorSession&) = delete;

  uint32_t id() const { return id_; }              ///< never 0, never used twice in a process
  const HylString& name() const { return name_; }  ///< whole name of the sensor that was enabled

  /// Disables the sensor, as the destructor does. Blocks for other control operations, but not for
  /// a handler that has begun, which can read its samples until it returns.
  /// \retval kNotFound the sensor has been disabled before, or the client is gone
  /// \return otherwise kOk, kFailed or the framework's code, as the Disable of HylSpectralApi
  HylErr Disable() {
    const std::lock_guard lock(core_->mutex);
    return core_->Disable_locked(id_);
  }

 protected:
  ~SensorSession() { Disable(); }

  const std::shared_ptr<spectral::ClientCore> core_;
  const uint32_t id_;
  const HylString name_;
};

/// A flicker sensor that runs, with its buffer.
class FlickerSession final : public SensorSession {
 public:
  using SensorSession::SensorSession;
};

/// An ambient-light sensor that runs.
class AmbientLightSession final : public SensorSession {
 public:
  using SensorSession::SensorSession;

  /// Changes the reporting mode; the session keeps its id. Blocks and returns as
  /// HylSpectralApi::ChangeAmbientLightSensorReporting: kOk, kInvalidArgument, kNotFound, kFailed
  /// or the framework's code. After a failure, disable the session.
  [[nodiscard]] HylErr ChangeReporting(SensorReportingMode mode) {
    const std::lock_guard lock(core_->mutex);
    return id_ == core_->light_id ? core_->api->ChangeAmbientLightSensorReporting(id_, mode)
                                  : HylErr::kNotFound;
  }
};

/// Owns an instance of the library, and calls handlers with its samples. Safe on any thread. Throws
/// nothing, unless memory runs out.
///
/// Runs one ambient-light and one flicker sensor at a time, so that no session takes the samples of
/// another; make a client object for each further sensor. An enable first ends the session that its
/// pointer holds; on kOk the pointer holds the new one. It blocks as that of HylSpectralApi does.
class SpectralClient {
 public:
  /// Connects to the framework. Where that cannot be reached, enables and settings fail.
  explicit SpectralClient(SpectralHandlers handlers)
      : core_(std::make_shared<spectral::ClientCore>(std::move(handlers))) {
    core_->api = MakeInstance(core_.get());
  }
  SpectralClient(const SpectralClient&) = delete;

  /// Disables the sensors, then ends the instance by the rules of HylSpectralApi::Destroy. Waits
  /// for handlers, except for one that it is called from. Sessions may be in use on other threads.
  ~SpectralClient() {
    std::unique_lock lock(core_->mutex);
    core_->Disable_locked(core_->light_id);
    core_->Disable_locked(core_->flicker_id);
    const SpectralInstance api = std::move(core_->api);
    lock.unlock();  // for the handlers that the end of the instance waits for
  }

  /// Starts an ambient-light sensor.
  /// \retval kAlreadyRunning another session of this client runs an ambient-light sensor
  /// \return otherwise kOk, kInvalidArgument, kNotFound, kFailed or the framework's code
  [[nodiscard]] HylErr EnableAmbientLight(const char* name, SensorReportingMode mode,
                                          std::unique_ptr<AmbientLightSession>& session) {
    return Enable(session, core_->light_id, [&](uint32_t& id) {
      return core_->api->EnableAmbientLightSensor(name, id, mode);
    });
  }

  /// Starts a flicker sensor, with a buffer of `capacity` samples of `out_bits` bits.
  /// \retval kAlreadyRunning another session of this client runs a flicker sensor
  /// \retval kFailed also where there is no memory for the buffer
  /// \return otherwise kOk, kNotFound or the framework's code
  [[nodiscard]] HylErr EnableFlicker(const char* name, size_t capacity, uint8_t out_bits,
                                     std::unique_ptr<FlickerSession>& session) {
    return Enable(session, core_->flicker_id, [&](uint32_t& id) {
      core_->buffer.reset(static_cast<int*>(std::calloc(capacity, sizeof(int))), std::free);
      int* const buffer = core_->buffer.get();
      return buffer == nullptr
                 ? HylErr::kFailed
                 : core_->api->EnableFlickerSensor(name, buffer, capacity, out_bits, id);
    });
  }

  /// The interface below, for settings and sensor lists, as long as this object lives.
  HylSpectralApi& api() { return *core_->api; }

 private:
  template <typename Session, typename Start>
  HylErr Enable(std::unique_ptr<Session>& session, uint32_t& id, Start start) {
    session.reset();
    const std::lock_guard lock(core_->mutex);
    const HylErr err = id == 0 ? start(id) : HylErr::kAlreadyRunning;
    if (err == HylErr::kOk) {
      session = std::make_unique<Session>(core_, id);
    }
    return err;
  }

  const std::shared_ptr<spectral::ClientCore> core_;
};

}  // namespace hyl::v2
