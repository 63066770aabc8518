// SPDX-License-Identifier: Apache-2.0
// Not built: scripts/tidy compiles it and wants the diagnostics that the comments announce
// and no others. So the annotations of the library's locks are known to be looked at.

#include <mutex>

#include <hyl/hyl_spectral_impl.h>

namespace hyl::v2 {

void TakesTheListMutexFirst(HylSpectralImpl& instance) {
  const std::lock_guard list(instance.sensor_info_mgr_.mutex_);
  const std::lock_guard lock(instance.mutex_);  // expected-error {{must be acquired before}}
}

void TakesTheReplyMutexFirst(HylSpectralImpl& instance) {
  const std::lock_guard reply(instance.rear_callbacks_->reply_mutex);
  const std::lock_guard turn(  // expected-error {{must be acquired before}}
      instance.config_.turn_mutex_);
}

void ChangesWhatIsGuarded(HylSpectralImpl& instance) {
  instance.session_mgr_.DeleteSession(1);  // expected-error {{requires holding}}
  instance.sensor_info_mgr_.version_ = 1;  // expected-error {{requires holding}}
  instance.config_.ledger_.NoteSent();     // expected-error {{requires holding}}
}

}  // namespace hyl::v2
