// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "framework.h"
#include "log_capture.h"

namespace hyl::v2::test {

/// The three callback objects of an instance.
enum class Object { kRear, kFront, kFlicker };

/// The framework that a model talks to.
class ModelFramework {
 public:
  virtual ~ModelFramework() = default;
  /// Whether a client of the framework could be made.
  virtual bool Connect() = 0;
  virtual void Disconnect() = 0;
  virtual std::vector<SensorListEntry> GetSensorList() = 0;
  /// `request` is without its table pointer.
  virtual HylErr Invoke(uint32_t handle, uint32_t type, const std::vector<uint8_t>& request,
                        Object object) = 0;
};

/// Where a model's log entries go.
class ModelLog {
 public:
  explicit ModelLog(std::function<void(const LogEntry&)> put) : put_(std::move(put)) {}
  void PutAll(const std::vector<LogEntry>& entries) const { std::ranges::for_each(entries, put_); }
  void PutError(const char* format, auto... args) const { put_(Error(Text(format, args...))); }
  void PutWarning(const char* format, auto... args) const { put_(Warning(Text(format, args...))); }
  void PutInfo(const char* format, auto... args) const { put_(Info(Text(format, args...))); }

 private:
  std::function<void(const LogEntry&)> put_;
};

/// Does what an instance's list of optical sensors must do, in the plainest way and on one thread.
/// Shares no code with the library.
class SensorListModel {
 public:
  struct Sensor {
    uint16_t type;  ///< the framework's, minus 256
    uint32_t priority;
    uint32_t request_id;
    std::string name;
    uint32_t version;  ///< of the list from which it was copied

    uint64_t Cookie() const { return uint64_t{version} << 32 | request_id; }
    /// Name, type and priority as in the log.
    std::string ToString() const { return Text("'%s'-%d:%u", name.c_str(), type, priority); }
  };

  SensorListModel(ModelFramework& framework, const ModelLog& log)
      : framework_(framework), log_(log) {}

  /// The first sensor of that type whose name begins so, or, without a name, of that priority.
  std::optional<Sensor> Find(uint16_t type, const char* name, uint32_t priority) {
    Discover();
    const bool by_name = name != nullptr && *name != '\0';
    for (const Sensor& sensor : sensors_) {
      if (by_name ? (type == 0 || sensor.type == type) && sensor.name.starts_with(name)
                  : sensor.type == type && sensor.priority == priority) {
        Sensor copy = sensor;
        copy.version = version_;
        return copy;
      }
    }
    return std::nullopt;
  }

  std::vector<std::string> Names(uint16_t type) {
    Discover();
    std::vector<std::string> names;
    for (const Sensor& sensor : sensors_) {
      if (sensor.type == type) {
        names.push_back(sensor.name);
      }
    }
    return names;
  }

  /// The sensor that the cookie's request runs.
  std::optional<Sensor> Running(uint64_t cookie) {
    const auto version = static_cast<uint32_t>(cookie >> 32);
    const auto request_id = static_cast<uint32_t>(cookie);
    if (version != version_) {
      log_.PutError("Can't get sensor info, version mismatch: %u != %u", version, version_);
      return std::nullopt;
    }
    const auto found = std::ranges::find(sensors_, request_id, &Sensor::request_id);
    if (found == sensors_.end()) {
      return std::nullopt;
    }
    Sensor copy = *found;
    copy.version = version;
    return copy;
  }

  /// Records the request id of a copy.
  bool Record(const Sensor& copy) {
    if (copy.version != version_) {
      log_.PutError("Can't set request_id, version mismatch: %u != %u", copy.version, version_);
      return false;
    }
    for (Sensor& sensor : sensors_) {
      if (sensor.type == copy.type && sensor.priority == copy.priority &&
          sensor.name.starts_with(copy.name)) {
        sensor.request_id = copy.request_id;
        break;  // the sensor itself, or one before it
      }
    }
    return true;
  }

  /// As if the list had been discovered once more, and all were as before.
  void RaiseVersion() { ++version_; }

 private:
  void Discover() {
    if (!sensors_.empty()) {
      return;
    }
    bool connected = false;
    std::vector<SensorListEntry> list;
    if (!Fetch(list, connected)) {
      log_.PutError("Failed to create HYL API instance");
    } else if (list.size() != size_) {
      Take(list);
    }
    if (connected) {
      framework_.Disconnect();
    }
  }

  /// False when no list is complete. `connected`: whether a client of the framework is left.
  bool Fetch(std::vector<SensorListEntry>& list, bool& connected) {
    for (int attempt = 0; attempt < 50; ++attempt) {
      const bool made = framework_.Connect();
      if (connected) {
        framework_.Disconnect();  // the former client
      }
      connected = made;
      if (connected) {
        list = framework_.GetSensorList();
        if (std::ranges::any_of(list, [](auto& entry) { return entry.handle >> 16 == 21; })) {
          return true;
        }
      }
    }
    return false;
  }

  void Take(const std::vector<SensorListEntry>& list) {
    size_ = list.size();
    ++version_;
    for (const SensorListEntry& entry : list) {
      const uint32_t type = entry.handle >> 16;
      if (type == 268 || type == 1268 || type == 269) {
        const std::string name(entry.name, strnlen(entry.name, sizeof(entry.name)));
        sensors_.push_back({static_cast<uint16_t>(type - 256), entry.handle & 0xFFFF, 0, name, 0});
      }
    }
    log_.PutInfo("Setting SensorInfo list.");
    log_.PutInfo("Sensor-List[%zu]@V%u:", sensors_.size(), version_);
    for (const Sensor& sensor : sensors_) {
      log_.PutInfo("  %s-t:%d p:%u r:0", sensor.name.c_str(), sensor.type, sensor.priority);
    }
    log_.PutInfo("SensorInfo list has been set.");
  }

  ModelFramework& framework_;
  const ModelLog& log_;
  std::vector<Sensor> sensors_;
  uint32_t version_ = 0;
  size_t size_ = 0;  // of the framework's list
};

}  // namespace hyl::v2::test
