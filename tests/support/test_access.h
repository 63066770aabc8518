// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <mutex>

#include <hyl/hyl_spectral_impl.h>

namespace hyl::v2 {

/// What tests see of the library's private parts.
struct TestAccess {
  using Objects = std::array<std::shared_ptr<spectral::SensorCallbacks>, 3>;

  static HylSpectralImpl& Impl(HylSpectralApi& api) { return static_cast<HylSpectralImpl&>(api); }
  /// The next session id of the process.
  static std::atomic<uint32_t>& NextId() { return spectral::SessionMgr::session_cnt_; }
  /// Rear, front, flicker; empty without a connection.
  static Objects ObjectsOf(HylSpectralApi& api) {
    return {Impl(api).rear_callbacks_, Impl(api).front_callbacks_, Impl(api).flicker_callbacks_};
  }
  /// As if the list had been discovered once more, and all were as before.
  static void RaiseVersion(HylSpectralApi& api) {
    spectral::SensorInfoMgr& list = Impl(api).sensor_info_mgr_;
    const std::lock_guard lock(list.mutex_);
    ++list.version_;
  }
};

}  // namespace hyl::v2
