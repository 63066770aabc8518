// SPDX-License-Identifier: Apache-2.0
#include <hyl/internal/config_access.h>

#include <algorithm>

#include <hyl/hyl_spectral_api.h>

#include "requests.h"
#include "time_limits.h"

namespace hyl::v2::spectral {

HylErr ConfigAccess::Tell(RlsAccess access, RlsCommand command, const ConfigArguments& arguments) {
  if (api_ == nullptr) {
    return HylErr::kFailed;
  }
  {
    const std::lock_guard lock(rear_->reply_mutex);
    ledger_.NoteSent();
  }
  const HylErr err =
      api_->InvokeAsyncServiceCall(kConfigHandle, static_cast<uint32_t>(RequestType::kRlsMsgAccess),
                                   MakeRequest(access, command, arguments), rear_);
  if (err != HylErr::kOk) {
    {
      const std::lock_guard lock(rear_->reply_mutex);
      ledger_.NoteRefused();
    }
    rear_->reply_cv.notify_one();  // one reply less to wait for
  }
  return err;
}

/// The first reply ends the wait, whichever request it answers. So replies to earlier requests get
/// time to arrive before the request is sent. If another's reply still comes first, the wait
/// continues for a moment, until its own has come.
HylErr ConfigAccess::AskForSlots(RlsAccess access, RlsCommand command,
                                 const ConfigArguments& arguments, Outs outs, ConfigSlots& slots) {
  if (std::find(outs.begin(), outs.end(), nullptr) != outs.end()) {
    return HylErr::kNullPointer;
  }
  if (api_ == nullptr) {
    return HylErr::kFailed;
  }
  const std::lock_guard turn(turn_mutex_);
  const uint64_t handled_before = BeginWait(access, command);
  const HylErr err = Tell(access, command, arguments);
  if (err != HylErr::kOk) {
    return err;
  }
  const std::lock_guard lock(rear_->reply_mutex);
  if (!AwaitReply_locked(handled_before)) {
    return HylErr::kFailed;
  }
  slots = slots_;
  return HylErr::kOk;
}

uint64_t ConfigAccess::BeginWait(RlsAccess access, RlsCommand command) {
  const std::lock_guard lock(rear_->reply_mutex);
  const uint64_t sent_before = ledger_.sent();
  rear_->reply_cv.wait_for(
      rear_->reply_mutex, Scaled(kOwedReplyTimeLimit),
      [&]() HYL_REQUIRES(rear_->reply_mutex) { return ledger_.SettledUpTo(sent_before); });
  ledger_.ForgetUpTo(sent_before);
  ledger_.Await(access, command);
  return ledger_.handled();
}

bool ConfigAccess::AwaitReply_locked(uint64_t handled_before) {
  rear_->reply_cv.wait_for(rear_->reply_mutex, Scaled(kReplyTimeLimit),
                           [&]() HYL_REQUIRES(rear_->reply_mutex) {
                             return ledger_.handled() != handled_before || rear_->gate.closed();
                           });
  if (ledger_.handled() == handled_before) {
    return false;
  }
  rear_->reply_cv.wait_for(rear_->reply_mutex, Scaled(kOwedReplyTimeLimit),
                           [&]() HYL_REQUIRES(rear_->reply_mutex) {
                             return ledger_.awaited_seen() || ledger_.AllSettled();
                           });
  return true;
}

void ConfigAccess::EndWait() {
  {
    // After this lock, a waiter has either seen the gate closed or is blocked in wait().
    const std::lock_guard lock(rear_->reply_mutex);
  }
  rear_->reply_cv.notify_all();
}

void ConfigAccess::Store(const RlsMsgAccessResp& reply) {
  {
    const std::lock_guard lock(rear_->reply_mutex);
    if (reply.access == RlsAccess::kRead) {
      slots_.StoreReadReply(reply);
    } else if (reply.access == RlsAccess::kWrite) {
      slots_.StoreWriteReply(reply);
    }
    ledger_.NoteReply(reply.access, reply.command);
  }
  rear_->reply_cv.notify_one();
}

}  // namespace hyl::v2::spectral
