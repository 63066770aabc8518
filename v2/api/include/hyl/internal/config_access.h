// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <mutex>

#include <hyl/api.h>
#include <hyl/hyl_err.h>
#include <hyl/internal/sensor_callbacks.h>
#include <hyl/internal/thread_annotations.h>
#include <hyl/rls_msg_access.h>

namespace hyl::v2::spectral {

/// The fields of a request that an operation sets from its own arguments.
struct ConfigArguments {
  uint8_t param_a = 0;
  float gain = 0;
  uint8_t value8 = 0;
  uint32_t value32 = 0;
  uint8_t reg_addr = 0;
  bool cal_enabled = false;
  bool torch_on = false;
  bool spectral_auto_gain = false;
  bool flicker_auto_gain = false;
  uint8_t param_b = 0;
};

RlsMsgAccessReq MakeRequest(RlsAccess access, RlsCommand command, const ConfigArguments& arguments);

/// The values of the latest replies.
struct ConfigSlots {
  bool flicker_auto_gain = false;
  bool spectral_auto_gain = false;
  bool apply_fac_cal = false;
  bool apply_otp_cal = false;
  float gain = 0;
  uint8_t metric_byte = 0;
  uint8_t register_value = 0;
  uint32_t metric0 = 0;
  uint32_t metric1 = 0;
  uint32_t sampling_period = 0;
  uint32_t flicker_param = 0;
  uint32_t exposure_time = 0;
  uint32_t saturation = 0;
  uint64_t device_uid = 0;

  void StoreReadReply(const RlsMsgAccessResp& reply);
  void StoreWriteReply(const RlsMsgAccessResp& reply);
};

/// Counts settings requests and their replies, so that a waiting operation can tell whether its own
/// reply has come. Replies carry no request id, and many answer writes for which nobody waits. Not
/// thread-safe: the reply mutex guards it.
class ReplyLedger {
 public:
  /// A request is about to be sent. Noted before, since its reply may come before the framework
  /// call returns.
  void NoteSent() { ++sent_; }
  /// The request that was noted has been refused: no reply will come.
  void NoteRefused() { NoteSettled(); }

  void NoteReply(RlsAccess access, RlsCommand command) {
    ++handled_;
    NoteSettled();
    if (access == awaited_access_ && command == awaited_command_) {
      awaited_seen_ = true;
    }
  }

  /// A waiting operation is about to send this request.
  void Await(RlsAccess access, RlsCommand command) {
    awaited_access_ = access;
    awaited_command_ = command;
    awaited_seen_ = false;
  }
  /// Whether a reply to the awaited setting has come since Await.
  bool awaited_seen() const { return awaited_seen_; }

  /// Number of replies handled so far.
  uint64_t handled() const { return handled_; }
  /// Number of requests sent so far.
  uint64_t sent() const { return sent_; }
  /// Whether as many replies have come as there were requests when sent() was `sent`.
  bool SettledUpTo(uint64_t sent) const { return settled_ >= sent; }
  /// Expects no more replies to the first `sent` requests.
  void ForgetUpTo(uint64_t sent) {
    if (settled_ < sent) {
      settled_ = sent;
      forgot_ = true;
    }
  }
  /// Whether no reply is owed. Never again once a request has been given up: its late reply would
  /// be taken for another's.
  bool AllSettled() const { return !forgot_ && settled_ == sent_; }

 private:
  void NoteSettled() { settled_ = std::min(settled_ + 1, sent_); }  // surplus replies are ignored

  uint64_t sent_ = 0;
  uint64_t settled_ = 0;  // requests answered, refused or given up; at most sent_
  uint64_t handled_ = 0;
  bool forgot_ = false;
  RlsAccess awaited_access_{};
  RlsCommand awaited_command_{};
  bool awaited_seen_ = false;
};

/// Reads and writes settings: sends one request each and, for the operations that hand back a
/// value, waits for the reply. Safe on any thread.
class ConfigAccess {
 public:
  /// The client's out pointers, of which none may be null.
  using Outs = std::initializer_list<const void*>;

  /// `api` and `rear` are the instance's. They never change after its construction; both are empty
  /// when there is no connection, and every operation then fails.
  ConfigAccess(const std::unique_ptr<Api>& api, const std::shared_ptr<RearSpectralCallbacks>& rear)
      : api_(api), rear_(rear) {}

  /// Sends a request and does not wait.
  HylErr Tell(RlsAccess access, RlsCommand command, const ConfigArguments& arguments);
  /// Sends a request, waits for the reply, and calls `hand_back` with the slots.
  template <typename HandBack>
  HylErr Ask(RlsAccess access, RlsCommand command, const ConfigArguments& arguments, Outs outs,
             HandBack hand_back) HYL_EXCLUDES(turn_mutex_) {
    ConfigSlots slots;
    const HylErr err = AskForSlots(access, command, arguments, outs, slots);
    if (err == HylErr::kOk) {
      hand_back(slots);
    }
    return err;
  }

  /// On the framework's threads: stores the reply's values and wakes the operation that waits.
  void Store(const RlsMsgAccessResp& reply);
  /// Ends the wait of a client callback, now that the rear object's gate is closed to its reply.
  void EndWait();

 private:
  HylErr AskForSlots(RlsAccess access, RlsCommand command, const ConfigArguments& arguments,
                     Outs outs, ConfigSlots& slots) HYL_EXCLUDES(turn_mutex_);
  /// Lets owed replies arrive, and announces a request. Returns the number of replies so far.
  uint64_t BeginWait(RlsAccess access, RlsCommand command);
  /// False when no reply has come in time, or none can come any more.
  bool AwaitReply_locked(uint64_t handled_before) HYL_REQUIRES(rear_->reply_mutex);

  const std::unique_ptr<Api>& api_;
  const std::shared_ptr<RearSpectralCallbacks>& rear_;
  /// Serialises waiting settings calls: held from before a call sends until it has its result.
  std::mutex turn_mutex_ HYL_ACQUIRED_BEFORE(rear_->reply_mutex);
  ReplyLedger ledger_ HYL_GUARDED_BY(rear_->reply_mutex);
  ConfigSlots slots_ HYL_GUARDED_BY(rear_->reply_mutex);
};

}  // namespace hyl::v2::spectral
