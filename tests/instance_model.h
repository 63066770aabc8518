// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <hyl/hyl_spectral_api.h>

#include "sample_converter_model.h"
#include "sensor_list_model.h"

namespace hyl::v2::test {

/// Does what an instance must do about sensors, sessions and messages, in the plainest way and on
/// one thread. Shares no code with the library.
class InstanceModel {
 public:
  /// `next_id` is the process's next session id.
  InstanceModel(ModelFramework& framework, HylSpectralApiCallbackInterface* client, ModelLog log,
                uint32_t& next_id)
      : framework_(framework),
        client_(client),
        log_(std::move(log)),
        next_id_(next_id),
        connected_(framework.Connect()) {
    if (!connected_) {
      log_.PutError("Failed to create HYL API instance");
    }
  }

  /// Destroy. Inside a callback, the delivery ends with it.
  void End() {
    ended_ = true;
    if (connected_) {
      framework_.Disconnect();
    }
  }

  void Deliver(Object object, const Message& message) {
    if (ended_) {
      return;
    }
    if (object != Object::kFlicker) {
      DeliverSpectral(object, message);
    } else if (const auto* format = dynamic_cast<const FlickerFormatResp*>(&message)) {
      DeliverFormat(*format);
    } else if (const auto* data = dynamic_cast<const FlickerDataResp*>(&message)) {
      DeliverFlicker(*data);
    }
  }

  SensorListModel& list() { return list_; }

  std::vector<std::string> GetAmbientLightSensorNames() { return list_.Names(1012); }
  std::vector<std::string> GetFlickerSensorNames() { return list_.Names(13); }
  bool IsSensorSupported(OpticalSensorType kind, const char* name) {
    switch (static_cast<uint32_t>(kind)) {
      case 0:
        return list_.Find(kContinuousType, name, 0).has_value();
      case 1:
        return list_.Find(kFlickerType, name, 0).has_value();
      case 3:
        return list_.Find(0, name, 0).has_value();
      default:
        return false;
    }
  }

  std::string GetSensorName(uint32_t id) {
    const Session* const session = ById(id);
    if (session == nullptr) {
      log_.PutError("Cannot determine sensor name, no session-id:%d", static_cast<int>(id));
      return "";
    }
    const std::optional<Sensor> sensor = list_.Running(session->cookie);
    return sensor ? sensor->name : "";
  }

  HylErr EnableAmbientLightSensor(const char* name, uint32_t& id, SensorReportingMode mode) {
    if (!IsMode(mode)) {
      log_.PutError("Cannot enable ALS, invalid reporting mode: %u", static_cast<uint32_t>(mode));
      return HylErr::kInvalidArgument;
    }
    Session* session = nullptr;
    const HylErr err = Enable(false, static_cast<uint32_t>(mode), name, session);
    id = session != nullptr ? session->id : id;
    return err;
  }

  HylErr EnableFlickerSensor(const char* name, int* buffer, size_t size, uint8_t bits,
                             uint32_t& id) {
    Session* session = nullptr;
    const HylErr err = Enable(true, kContinuousMode, name, session);
    if (session != nullptr) {
      session->buffer = buffer;
      session->converter.SetOutput(buffer, size, bits);
      id = session->id;
    }
    return err;
  }

  HylErr ChangeAmbientLightSensorReporting(uint32_t id, SensorReportingMode mode) {
    if (!IsMode(mode)) {
      log_.PutError("Change-ALS: Invalid reporting mode (%u)!", static_cast<uint32_t>(mode));
      return HylErr::kInvalidArgument;
    }
    Session* const session = ById(id);
    if (session == nullptr) {
      log_.PutError("Change-ALS: Cannot find session for id (%u)", id);
      return HylErr::kNotFound;
    }
    const auto wanted = static_cast<uint32_t>(mode);
    return session->mode == wanted ? HylErr::kOk : Change(*session, wanted);
  }

  HylErr DisableAmbientLightSensor(uint32_t id) { return Disable(id, false); }
  HylErr DisableFlickerSensor(uint32_t id) { return Disable(id, true); }

 private:
  using Sensor = SensorListModel::Sensor;

  static constexpr uint16_t kOnChangeType = 12;
  static constexpr uint16_t kFlickerType = 13;
  static constexpr uint16_t kContinuousType = 1012;
  static constexpr uint32_t kContinuousMode = 1;
  static constexpr uint32_t kOnChangeMode = 2;

  struct Session {
    uint32_t id = 0;
    uint32_t mode = 0;
    uint64_t cookie = 0;
    uint32_t format_param = 24000;
    int* buffer = nullptr;
    SampleConverterModel converter;
  };

  static bool IsMode(SensorReportingMode mode) {
    return mode == SensorReportingMode{kContinuousMode} ||
           mode == SensorReportingMode{kOnChangeMode};
  }
  static uint16_t TypeOf(bool flicker, uint32_t mode) {
    const uint16_t light = mode == kOnChangeMode ? kOnChangeType : kContinuousType;
    return flicker ? kFlickerType : light;
  }
  static Object ObjectOf(bool flicker, uint32_t priority) {
    const Object light = priority == 0 ? Object::kRear : Object::kFront;
    return flicker ? Object::kFlicker : light;
  }
  static uint32_t RequestIdOf(const Sensor& sensor) {
    return 0x0A000000 | sensor.priority << 16 | sensor.type;
  }
  static const char* OrEmpty(const char* text) { return text != nullptr ? text : ""; }
  static int64_t ToNs(int64_t timestamp) {
    const auto ticks = static_cast<uint64_t>(timestamp) & ~kTicksFlag;
    return timestamp >= 0 ? timestamp : static_cast<int64_t>(Time::PlatformTicksToNs(ticks));
  }

  // Sensors and sessions.

  Session* ById(uint32_t id) {
    Session* const found = std::ranges::find(sessions_, id, &Session::id);
    return id != 0 && found != std::end(sessions_) ? found : nullptr;
  }

  Session* ByCookie(uint64_t cookie) {
    Session* const found = std::ranges::find(sessions_, cookie, &Session::cookie);
    return cookie != 0 && found != std::end(sessions_) ? found : nullptr;
  }

  /// Leaves `opened` alone when it fails.
  HylErr Enable(bool flicker, uint32_t mode, const char* name, Session*& opened) {
    std::optional<Sensor> found = list_.Find(TypeOf(flicker, mode), name, 0);
    if (!found) {
      log_.PutError("Sensor '%s' not found", OrEmpty(name));
      return HylErr::kNotFound;
    }
    Sensor& sensor = *found;
    if (sensor.request_id != 0) {
      log_.PutWarning("Cannot start sensor %s, already running", sensor.ToString().c_str());
      return HylErr::kAlreadyRunning;
    }
    if (sensor.priority > 255) {
      log_.PutError("Cannot start sensor %s, priority above 255", sensor.ToString().c_str());
      return HylErr::kFailed;
    }
    sensor.request_id = RequestIdOf(sensor);
    const HylErr err = Start(flicker, sensor);
    if (err == HylErr::kOk) {
      return list_.Record(sensor) ? Open(flicker, mode, sensor, name, opened) : HylErr::kFailed;
    }
    if (!flicker) {
      log_.PutError("InvokeAsyncServiceCall err:  %d!", static_cast<int>(err));
    }
    return err;
  }

  HylErr Open(bool flicker, uint32_t mode, const Sensor& started, const char* name,
              Session*& opened) {
    const uint64_t cookie = started.Cookie();
    CookieOf(ObjectOf(flicker, started.priority)) = cookie;
    const std::optional<Sensor> listed = list_.Running(cookie);
    const std::string session_name = listed ? listed->name : OrEmpty(name);
    Session* const free = std::ranges::find(sessions_, 0U, &Session::id);
    if (free != std::end(sessions_)) {
      next_id_ += next_id_ == 0 ? 1 : 0;
      free->id = next_id_++;
      free->mode = mode;
      free->cookie = cookie;
      opened = free;
      return HylErr::kOk;
    }
    log_.PutError("Cannot add session for %s %lx, table full!", session_name.c_str(), cookie);
    log_.PutError("Cannot enable %s sensor '%s', no session available!",
                  flicker ? "flicker" : "ALS", session_name.c_str());
    const HylErr err = Stop(flicker, started);
    if (!flicker) {  // a flicker sensor counts as running from then on
      Sensor stopped = started;
      stopped.request_id = 0;
      list_.Record(stopped);
    }
    return err == HylErr::kOk ? HylErr::kNoSession : err;
  }

  HylErr Change(Session& session, uint32_t mode) {
    std::optional<Sensor> running = list_.Running(session.cookie);
    if (!running) {
      log_.PutError("Change-ALS: Cannot stop, sensor with cookie:%lx not found.", session.cookie);
      return HylErr::kNotFound;
    }
    Sensor& old = *running;
    if (const HylErr err = Stop(false, old); err != HylErr::kOk) {
      log_.PutError("Change-ALS: InvokeAsyncServiceCall err:  %d!", static_cast<int>(err));
      return err;
    }
    old.request_id = 0;
    if (!list_.Record(old)) {
      return HylErr::kFailed;
    }
    const uint16_t type = TypeOf(false, mode);
    std::optional<Sensor> found = list_.Find(type, nullptr, old.priority);
    if (!found) {
      log_.PutError("Change-ALS: Sensor of new type %d priority %u not found", type, old.priority);
      return HylErr::kNotFound;
    }
    Sensor& sensor = *found;
    sensor.request_id = RequestIdOf(sensor);
    if (const HylErr err = Start(false, sensor); err != HylErr::kOk) {
      log_.PutError("Change-ALS: start err:  %d!", static_cast<int>(err));
      return err;
    }
    if (!list_.Record(sensor)) {
      return HylErr::kFailed;
    }
    session.mode = mode;
    session.cookie = sensor.Cookie();
    CookieOf(ObjectOf(false, sensor.priority)) = session.cookie;
    return HylErr::kOk;
  }

  HylErr Disable(uint32_t id, bool flicker) {
    Session* const session = ById(id);
    if (session == nullptr) {
      log_.PutError("Cannot disable sensor, no session-id:%d", static_cast<int>(id));
      return HylErr::kNotFound;
    }
    const uint64_t cookie = session->cookie;
    *session = {.converter = session->converter};  // which keeps its format
    session->converter.ResetCounters();
    std::optional<Sensor> running = list_.Running(cookie);
    if (!running) {
      log_.PutError("Cannot stop, sensor with cookie:%lx not found.", cookie);
      return HylErr::kNotFound;
    }
    Sensor& sensor = *running;
    const HylErr err = Stop(flicker, sensor);
    const uint32_t request_id = std::exchange(sensor.request_id, 0);
    if (!list_.Record(sensor)) {
      return HylErr::kFailed;
    }
    if (err != HylErr::kOk) {
      log_.PutError("Failed to stop sensor %s(%u@v%u) (err:%d)", sensor.ToString().c_str(),
                    request_id, sensor.version, static_cast<int>(err));
    }
    return err;
  }

  HylErr Start(bool flicker, const Sensor& sensor) {
    const Field client_id = {12, 4, sensor.request_id};
    if (flicker) {
      return Send(true, sensor, 3, RequestBytes(56, {client_id, {40, 8, 10'000'000'000}}));
    }
    if (sensor.type == kOnChangeType) {
      return Send(false, sensor, 2, RequestBytes(40, {client_id, {33, 1, 1}, {34, 1, 1}}));
    }
    return Send(false, sensor, 3,
                RequestBytes(56, {client_id, {40, 8, 100'000'000}, {48, 1, 1}, {49, 1, 1}}));
  }

  HylErr Stop(bool flicker, const Sensor& sensor) {
    return Send(flicker, sensor, 4, RequestBytes(16, {{12, 4, sensor.request_id}}));
  }

  HylErr Send(bool flicker, const Sensor& sensor, uint32_t type,
              const std::vector<uint8_t>& request) {
    const uint32_t handle_type = (flicker ? kFlickerType : sensor.type) + 256;
    return connected_ ? framework_.Invoke(handle_type << 16 | sensor.priority, type, request,
                                          ObjectOf(flicker, sensor.priority))
                      : HylErr::kFailed;
  }

  uint64_t& CookieOf(Object object) { return object_cookies_[static_cast<size_t>(object)]; }

  // Messages.

  void DeliverSpectral(Object object, const Message& message) {
    const int type = message.Type();
    if (const auto* single = dynamic_cast<const SampleMessage*>(&message)) {
      const SpectralSample sample = single->Sample();
      const size_t count = std::min<size_t>(sample.value_count, std::size(sample.values));
      if (client_ != nullptr) {
        DeliverValues(object, {sample.values, sample.values + count}, sample.timestamp);
      }
    } else if (const auto* events = dynamic_cast<const EventMessage*>(&message)) {
      DeliverEvents(object, *events);
    } else if (!(type >= 2 && type <= 4) && !(type == 64 && object == Object::kRear)) {
      log_.PutError("Unsupported request type:%d\n", type);
    }
  }

  void DeliverEvents(Object object, const EventMessage& message) {
    const RefCountedSensorEvent* event = message.events.get();
    for (uint64_t i = 0; i < message.event_count && event != nullptr && !ended_; ++i) {
      const int type = static_cast<int>(event->event_type);
      if (type == 1) {
        const std::vector values(event->values(), event->values() + event->value_count);
        if (!DeliverValues(object, values, event->timestamp)) {
          return;
        }
      } else if (type != 3) {
        log_.PutWarning("Unknown Sensor Event type:%d\n", type);
      }
      event = event->next;
    }
  }

  /// False when there is no session.
  bool DeliverValues(Object object, const std::vector<float>& values, int64_t timestamp) {
    const uint64_t cookie = CookieOf(object);
    const Session* const session = ByCookie(cookie);
    if (session == nullptr) {
      log_.PutError("Can't find session for cookie:%lx to handle spectral msg!", cookie);
      return false;
    }
    if (client_ != nullptr) {
      Vector<float> vector;
      EXPECT_EQ(HylErr::kOk, vector.Resize(values.size()));
      std::ranges::copy(values, vector.data());
      client_->OnSpectralData(0, session->id, vector, ToNs(timestamp));
    }
    return true;
  }

  /// The session of the flicker object; null, and logged, when there is none.
  Session* FlickerSession(const char* what) {
    const uint64_t cookie = CookieOf(Object::kFlicker);
    Session* const session = ByCookie(cookie);
    if (session == nullptr) {
      log_.PutWarning("Can't find session for cookie:%lx to handle flicker %s msg!", cookie, what);
    }
    return session;
  }

  void DeliverFormat(const FlickerFormatResp& message) {
    if (Session* const session = FlickerSession("format")) {
      session->format_param = message.format_param;
      session->converter.Configure(static_cast<int32_t>(message.width), message.little_endian != 0,
                                   message.msb, message.lsb);
      log_.PutAll(session->converter.TakeLog());
    }
  }

  void DeliverFlicker(const FlickerDataResp& message) {
    if (client_ == nullptr || message.size == 0) {
      return;
    }
    Session* const session = FlickerSession("data");
    if (session != nullptr && message.data == nullptr) {
      log_.PutError("Flicker data msg without data (size:%zu)", size_t{message.size});
    } else if (session != nullptr) {
      Convert(message, *session);
    }
  }

  void Convert(const FlickerDataResp& message, Session& session) {
    SampleConverterModel& converter = session.converter;
    FlickerSampleBlock block{};
    block.seq_num = converter.SeqNumOf(message.offset);
    const bool converted = converter.Convert({message.data, message.size}, message.restart);
    log_.PutAll(converter.TakeLog());
    if (!converted) {
      return;
    }
    block.num_samples = static_cast<uint32_t>(converter.Samples().size());
    block.format_param = session.format_param;
    block.samples = session.buffer;
    block.restart = message.restart;
    block.aux8_0 = message.aux8_0;
    block.aux8_1 = message.aux8_1;
    block.aux16_0 = message.aux16_0;
    block.aux16_1 = message.aux16_1;
    block.aux16_2 = message.aux16_2;
    block.aux32_0 = message.aux32_0;
    block.aux32_1 = message.aux32_1;
    block.auxf_0 = message.auxf_0;
    block.auxf_1 = message.auxf_1;
    client_->OnFlickerData(session.id, &block);
  }

  ModelFramework& framework_;
  HylSpectralApiCallbackInterface* const client_;
  const ModelLog log_;
  uint32_t& next_id_;
  const bool connected_;
  bool ended_ = false;
  SensorListModel list_{framework_, log_};
  uint64_t object_cookies_[3] = {};
  Session sessions_[8];
};

}  // namespace hyl::v2::test
