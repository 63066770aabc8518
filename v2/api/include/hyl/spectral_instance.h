// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>

#include <hyl/hyl_spectral_api.h>

namespace hyl::v2 {

/// What SpectralInstance does at its end.
struct DestroyInstance {
  /// Destroys the instance, as HylSpectralApi::Destroy does.
  void operator()(HylSpectralApi* api) const { HylSpectralApi::Destroy(&api); }
};

/// Owns an instance. It stops no sensors; SpectralClient does.
using SpectralInstance = std::unique_ptr<HylSpectralApi, DestroyInstance>;

/// Makes an instance as HylSpectralApi::Create does; never empty. The caller keeps `callback`,
/// which may be null, alive until the instance has ended.
inline SpectralInstance MakeInstance(HylSpectralApiCallbackInterface* callback) {
  HylSpectralApi* api = nullptr;
  static_cast<void>(
      HylSpectralApi::Create(&api, callback, HylLogLevel{}));  // kOk, for this pointer
  return SpectralInstance(api);
}

}  // namespace hyl::v2
