// SPDX-License-Identifier: Apache-2.0
#include <hyl/internal/sensor_info_mgr.h>

#include <algorithm>
#include <cstring>
#include <thread>
#include <utility>

#include <hyl/hyl_spectral_api.h>

#include "log.h"
#include "time_limits.h"

namespace hyl::v2::spectral {
namespace {

constexpr int kDiscoveryAttempts = 50;
constexpr auto kDiscoveryInterval = Scaled(kDiscoveryTimeLimit) / kDiscoveryAttempts;

constexpr uint32_t kListCompleteMarkerType = 21;

uint32_t FrameworkType(const SensorListEntry& entry) {
  return entry.handle >> 16;
}

bool IsComplete(const std::vector<SensorListEntry>& list) {
  return std::any_of(list.begin(), list.end(), [](const SensorListEntry& entry) {
    return FrameworkType(entry) == kListCompleteMarkerType;
  });
}

/// Whether `name` begins with the whole of `prefix`.
bool BeginsWith(const HylString& name, const char* prefix) {
  return std::strncmp(name.c_str(), prefix, std::strlen(prefix)) == 0;
}

HylString EntryName(const SensorListEntry& entry) {
  char text[sizeof(entry.name) + 1] = {};
  std::memcpy(text, entry.name, sizeof(entry.name));
  HylString name;
  name.assign(text);
  return name;
}

/// False when the vector cannot grow; it is unchanged then.
template <typename T>
bool Append(Vector<T>& vector, T element) {
  if (vector.Resize(vector.size() + 1) != HylErr::kOk) {
    return false;
  }
  vector[vector.size() - 1] = std::move(element);
  return true;
}

}  // namespace

HylString SensorInfo::ToStr() const {
  HylString text;
  text.appendf("%s-t:%d p:%u r:%u", name.c_str(), type, priority, request_id);
  return text;
}

/// What one discovery found, before it becomes the list.
struct SensorInfoMgr::Discovered {
  Vector<SensorInfo> infos;
  uint64_t list_size = 0;
  bool als = false;
  bool flicker = false;

  void Add(const SensorListEntry& entry) {
    const auto type = static_cast<SensorType>(FrameworkType(entry) - kFrameworkTypeOffset);
    if (type == kFlickerType) {
      flicker = true;
    } else if (type == kOnChangeAmbientLightType || type == kContinuousAmbientLightType) {
      als = true;
    } else {
      return;
    }
    // A sensor for which memory runs out is left out.
    (void)Append(infos, SensorInfo{type, entry.handle & 0xFFFF, 0, EntryName(entry)});
  }
};

bool SensorInfoMgr::FetchCompleteList(std::unique_ptr<Api>& api,
                                      std::vector<SensorListEntry>& list) {
  for (int attempt = 0; attempt < kDiscoveryAttempts; ++attempt) {
    api = Api::Create(ClientType::kSpectral);
    if (api != nullptr) {
      list = api->GetSensorList();
      if (IsComplete(list)) {
        return true;
      }
    }
    std::this_thread::sleep_for(kDiscoveryInterval);
  }
  return false;
}

void SensorInfoMgr::GetOpticalSensors() const {
  if (Found()) {
    return;
  }
  std::unique_ptr<Api> api;  // outlives the list: the framework may tie that to its client
  std::vector<SensorListEntry> list;
  if (!FetchCompleteList(api, list)) {
    HYL_LOG(ERROR, "Failed to create HYL API instance");
    return;
  }
  if (list.size() == last_list_size_) {
    return;
  }
  Discovered discovered;
  discovered.list_size = list.size();
  for (const SensorListEntry& entry : list) {
    discovered.Add(entry);
  }
  Publish(discovered);
}

void SensorInfoMgr::Publish(Discovered& discovered) const {
  const std::lock_guard lock(mutex_);
  if (Found()) {
    return;  // another thread was faster, and its list is final
  }
  HYL_LOG(INFO, "Setting SensorInfo list.");
  ++version_;
  std::swap(infos_, discovered.infos);
  last_list_size_ = discovered.list_size;
  Dump_locked();
  HYL_LOG(INFO, "SensorInfo list has been set.");
  als_found_ = discovered.als;
  flicker_found_ = discovered.flicker;
}

bool SensorInfoMgr::GetSensorInfo(VersionedSensorInfo& out, SensorType type, const char* name,
                                  uint32_t index) const {
  GetOpticalSensors();
  const bool by_name = name != nullptr && name[0] != '\0';
  const auto matches = [=](const SensorInfo& info) {
    return by_name ? (type == kAnySensorType || info.type == type) && BeginsWith(info.name, name)
                   : type != kAnySensorType && info.type == type && info.priority == index;
  };
  const std::lock_guard lock(mutex_);
  const SensorInfo* const found = std::find_if(infos_.begin(), infos_.end(), matches);
  if (found == infos_.end()) {
    return false;
  }
  out = {version_, *found};
  return true;
}

bool SensorInfoMgr::GetSensorInfo(VersionedSensorInfo& out, uint64_t cookie) const {
  const auto version = static_cast<uint32_t>(cookie >> 32);
  const auto request_id = static_cast<uint32_t>(cookie);
  const std::lock_guard lock(mutex_);
  if (version != version_) {
    HYL_LOG(ERROR, "Can't get sensor info, version mismatch: %u != %u", version, version_);
    return false;
  }
  if (request_id == 0) {
    HYL_LOG(ERROR, "Can't get sensor info, invalid request_id from %lx.", cookie);
    return false;
  }
  const SensorInfo* const found =
      std::find_if(infos_.begin(), infos_.end(),
                   [=](const SensorInfo& info) { return info.request_id == request_id; });
  if (found == infos_.end()) {
    return false;
  }
  out = {version, *found};
  return true;
}

bool SensorInfoMgr::SetRequestId(const VersionedSensorInfo& vsi) {
  const std::lock_guard lock(mutex_);
  if (vsi.version != version_) {
    HYL_LOG(ERROR, "Can't set request_id, version mismatch: %u != %u", vsi.version, version_);
    return false;
  }
  SensorInfo* const found = std::find_if(infos_.begin(), infos_.end(), [&](const SensorInfo& info) {
    return info.type == vsi.info.type && info.priority == vsi.info.priority &&
           BeginsWith(info.name, vsi.info.name.c_str());
  });
  if (found == infos_.end()) {
    HYL_LOG(ERROR, "Can't set request_id, sensor_info {%s} not found!", vsi.info.ToStr().c_str());
    Dump_locked();
    return false;
  }
  found->request_id = vsi.info.request_id;
  return true;
}

Vector<HylString> SensorInfoMgr::GetSensorNames(SensorType type) const {
  GetOpticalSensors();
  Vector<HylString> names;
  const std::lock_guard lock(mutex_);
  for (const SensorInfo& info : infos_) {
    if (info.type == type) {
      (void)Append(names, info.name);  // left out when memory runs out
    }
  }
  return names;
}

void SensorInfoMgr::Dump_locked() const {
  HYL_LOG(INFO, "Sensor-List[%zu]@V%u:", infos_.size(), version_);
  for (const SensorInfo& info : infos_) {
    HYL_LOG(INFO, "  %s", info.ToStr().c_str());
  }
}

}  // namespace hyl::v2::spectral
