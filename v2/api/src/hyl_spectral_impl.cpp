// SPDX-License-Identifier: Apache-2.0
#include <hyl/hyl_spectral_impl.h>

#include <array>
#include <utility>

#include "log.h"

namespace hyl::v2 {

HylErr HylSpectralApi::Create(HylSpectralApi** out, HylSpectralApiCallbackInterface* callback,
                              HylLogLevel /*level*/) {
  if (out == nullptr) {
    return HylErr::kNullPointer;
  }
  HylSpectralImpl* impl = nullptr;
  const HylErr err = HylSpectralImpl::Create(&impl, callback);
  *out = impl;
  return err;
}

void HylSpectralApi::Destroy(HylSpectralApi** p) {
  if (p == nullptr) {
    return;
  }
  // Every instance that Create hands out is a HylSpectralImpl.
  auto* impl = static_cast<HylSpectralImpl*>(*p);
  HylSpectralImpl::Destroy(&impl);
  if (impl == nullptr) {  // not while another Destroy is in progress
    *p = nullptr;
  }
}

HylSpectralApi::~HylSpectralApi() = default;

HylErr HylSpectralImpl::Create(HylSpectralImpl** out, HylSpectralApiCallbackInterface* callback) {
  *out = new HylSpectralImpl(callback);
  return HylErr::kOk;
}

void HylSpectralImpl::Destroy(HylSpectralImpl** p) {
  if (p == nullptr || *p == nullptr || (*p)->destroying_.exchange(true)) {
    return;
  }
  delete *p;
  *p = nullptr;
}

HylSpectralImpl::HylSpectralImpl(HylSpectralApiCallbackInterface* callback) : callback_(callback) {
  api_ = Api::Create(ClientType::kSpectral);
  if (api_ == nullptr) {
    HYL_LOG(ERROR, "Failed to create HYL API instance");
    return;
  }
  rear_callbacks_ = std::make_shared<RearSpectralCallbacks>(*this, callback_);
  front_callbacks_ = std::make_shared<FrontSpectralCallbacks>(*this, callback_);
  flicker_callbacks_ = std::make_shared<FlickerSensorCallbacks>(*this, callback_);
}

HylSpectralImpl::~HylSpectralImpl() {
  if (api_ == nullptr) {
    return;
  }
  // The framework may hold the callback objects, and deliver to them, after the instance is gone.
  // All are closed before the first is waited for, so that none admits new deliveries.
  const std::array<std::shared_ptr<spectral::SensorCallbacks>, 3> all = {
      flicker_callbacks_, front_callbacks_, rear_callbacks_};
  for (const auto& callbacks : all) {
    callbacks->gate.Close();
  }
  config_.EndWait();
  for (const auto& callbacks : all) {
    callbacks->gate.Drain(callbacks);
  }
}

Vector<HylString> HylSpectralImpl::GetAmbientLightSensorNames() {
  return sensor_info_mgr_.GetSensorNames(kContinuousAmbientLightType);
}

Vector<HylString> HylSpectralImpl::GetFlickerSensorNames() {
  return sensor_info_mgr_.GetSensorNames(kFlickerType);
}

HylString HylSpectralImpl::GetSensorName(uint32_t session_id) {
  uint64_t cookie = 0;
  if (!sessions().FindCookie(session_id, cookie)) {
    HYL_LOG(ERROR, "Cannot determine sensor name, no session-id:%d", static_cast<int>(session_id));
    return {};
  }
  VersionedSensorInfo found;
  if (!sensor_info_mgr_.GetSensorInfo(found, cookie)) {
    return {};
  }
  return std::move(found.info.name);
}

bool HylSpectralImpl::IsSensorSupported(OpticalSensorType kind, const char* name) const {
  SensorType type = kAnySensorType;
  if (kind == OpticalSensorType::kAmbientLight) {
    type = kContinuousAmbientLightType;
  } else if (kind == OpticalSensorType::kFlicker) {
    type = kFlickerType;
  } else if (kind != OpticalSensorType::kAnyOptical) {
    return false;
  }
  VersionedSensorInfo found;
  return sensor_info_mgr_.GetSensorInfo(found, type, name, 0);
}

}  // namespace hyl::v2
