#include <hyl/hyl_spectral_api.h>

#include <hyl/hyl_spectral_impl.h>

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

}  // namespace hyl::v2
