#pragma once

#include <gtest/gtest.h>
#include <hyl/hyl_spectral_api.h>

namespace hyl::v2::test {

/// An instance for the length of a test.
class Instance {
 public:
  explicit Instance(HylSpectralApiCallbackInterface* client) {
    EXPECT_EQ(HylErr::kOk, HylSpectralApi::Create(&api_, client, HylLogLevel::kInfo));
  }
  ~Instance() { Destroy(); }
  Instance(const Instance&) = delete;
  Instance& operator=(const Instance&) = delete;

  void Destroy() { HylSpectralApi::Destroy(&api_); }

  HylSpectralApi* operator->() const { return api_; }
  HylSpectralApi* get() const { return api_; }

 private:
  HylSpectralApi* api_ = nullptr;
};

}  // namespace hyl::v2::test
