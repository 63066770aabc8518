#include <mutex>

#include <hyl/hyl_spectral_impl.h>

#include "requests.h"
#include "time_limits.h"

namespace hyl::v2 {

using spectral::kOwedReplyTimeLimit;
using spectral::kReplyTimeLimit;

namespace {

RlsMsgAccessReq MakeRequest(RlsAccess access, RlsCommand command) {
  RlsMsgAccessReq request;
  request.lead_byte = spectral::kLeadByte;
  request.access = access;
  request.command = command;
  return request;
}

/// Where an operation hands back a result slot, narrowed to the client's type.
template <typename Out, typename Slot>
struct Result {
  Out* out;
  Slot HylSpectralImpl::*slot;
};

template <typename Out, typename Slot>
Result<Out, Slot> Into(Out* out, Slot HylSpectralImpl::*slot) {
  return {out, slot};
}

template <typename Out, typename Slot>
void CopyTo(Out& out, Slot slot) {
  out = static_cast<Out>(slot);
}

RlsMsgAccessReq ReadOf(RlsCommand command) {
  return MakeRequest(RlsAccess::kRead, command);
}
RlsMsgAccessReq WriteOf(RlsCommand command) {
  return MakeRequest(RlsAccess::kWrite, command);
}

}  // namespace

HylErr HylSpectralImpl::Access(const RlsMsgAccessReq& request) {
  if (api_ == nullptr) {
    return HylErr::kFailed;
  }
  {
    const std::lock_guard lock(rear_callbacks_->reply_mutex);
    reply_ledger_.NoteSent();
  }
  const HylErr err =
      Send(spectral::kConfigHandle, RequestType::kRlsMsgAccess, request, rear_callbacks_);
  if (err != HylErr::kOk) {
    {
      const std::lock_guard lock(rear_callbacks_->reply_mutex);
      reply_ledger_.NoteRefused();
    }
    rear_callbacks_->reply_cv.notify_one();  // one reply less to wait for
  }
  return err;
}

/// A reply ends the wait, whichever request it answers. So that this is not the late reply to an
/// earlier write, those are let in first; and when another thread's write was answered in between,
/// or a request that was given up, the wait goes on for a moment until the own reply is in.
template <typename... Results>
HylErr HylSpectralImpl::AccessAndWait(const RlsMsgAccessReq& request, const Results&... results) {
  const bool any_null = (... || (results.out == nullptr));
  if (any_null) {
    return HylErr::kNullPointer;
  }
  if (api_ == nullptr) {
    return HylErr::kFailed;
  }
  const std::lock_guard turn(config_turn_mutex_);
  const uint64_t handled_before = BeginWait(request);
  const HylErr err = Access(request);
  if (err != HylErr::kOk) {
    return err;
  }
  const std::lock_guard lock(rear_callbacks_->reply_mutex);
  if (!AwaitReply_locked(handled_before)) {
    return HylErr::kFailed;
  }
  (CopyTo(*results.out, this->*results.slot), ...);
  return HylErr::kOk;
}

uint64_t HylSpectralImpl::BeginWait(const RlsMsgAccessReq& request) {
  const std::lock_guard lock(rear_callbacks_->reply_mutex);
  const uint64_t sent_before = reply_ledger_.sent();
  rear_callbacks_->reply_cv.wait_for(rear_callbacks_->reply_mutex, kOwedReplyTimeLimit,
                                     [&]() HYL_REQUIRES(rear_callbacks_->reply_mutex) {
                                       return reply_ledger_.SettledUpTo(sent_before);
                                     });
  reply_ledger_.ForgetUpTo(sent_before);
  reply_ledger_.Await(request.access, request.command);
  return reply_ledger_.handled();
}

bool HylSpectralImpl::AwaitReply_locked(uint64_t handled_before) {
  rear_callbacks_->reply_cv.wait_for(rear_callbacks_->reply_mutex, kReplyTimeLimit,
                                     [&]() HYL_REQUIRES(rear_callbacks_->reply_mutex) {
                                       return reply_ledger_.handled() != handled_before ||
                                              rear_callbacks_->gate.closed();
                                     });
  if (reply_ledger_.handled() == handled_before) {
    return false;
  }
  rear_callbacks_->reply_cv.wait_for(rear_callbacks_->reply_mutex, kOwedReplyTimeLimit,
                                     [&]() HYL_REQUIRES(rear_callbacks_->reply_mutex) {
                                       return reply_ledger_.awaited_seen() ||
                                              reply_ledger_.AllSettled();
                                     });
  return true;
}

void HylSpectralImpl::EndWaitForReply() {
  {
    // The one who waits has either seen the gate closed, or waits by now.
    const std::lock_guard lock(rear_callbacks_->reply_mutex);
  }
  rear_callbacks_->reply_cv.notify_all();
}

void HylSpectralImpl::StoreConfigReply(const RlsMsgAccessResp& reply) {
  {
    const std::lock_guard lock(rear_callbacks_->reply_mutex);
    if (reply.access == RlsAccess::kRead) {
      StoreReadReply_locked(reply);
    } else if (reply.access == RlsAccess::kWrite) {
      StoreWriteReply_locked(reply);
    }
    reply_ledger_.NoteReply(reply.access, reply.command);
  }
  rear_callbacks_->reply_cv.notify_one();
}

void HylSpectralImpl::StoreReadReply_locked(const RlsMsgAccessResp& reply) {
  switch (reply.command) {
    case RlsCommand::kFlickerFrequencyMetrics:
      metric0_ = reply.metric0;
      metric1_ = reply.metric1;
      metric_byte_ = reply.metric_byte;
      saturation_ = reply.saturation;
      break;
    case RlsCommand::kFlickerSaturation:
      saturation_ = reply.saturation;
      break;
    case RlsCommand::kRegister:
      register_value_ = reply.value8;
      break;
    case RlsCommand::kDeviceUid:
      device_uid_ = reply.device_uid;
      break;
    case RlsCommand::kSpectralAutoGain:
      spectral_auto_gain_ = reply.spectral_auto_gain != 0;
      break;
    case RlsCommand::kFlickerAutoGain:
      flicker_auto_gain_ = reply.flicker_auto_gain != 0;
      break;
    case RlsCommand::kFlickerConfig:
      flicker_param_ = reply.param_a;
      gain_ = reply.gain;
      break;
    case RlsCommand::kApplyFacCal:
      apply_fac_cal_ = reply.cal_enabled != 0;
      break;
    case RlsCommand::kApplyOtpCal:
      apply_otp_cal_ = reply.cal_enabled != 0;
      break;
    default:
      break;
  }
}

void HylSpectralImpl::StoreWriteReply_locked(const RlsMsgAccessResp& reply) {
  switch (reply.command) {
    case RlsCommand::kExposureTime:
      exposure_time_ = reply.value32;
      break;
    case RlsCommand::kGain:
      gain_ = reply.gain;
      break;
    case RlsCommand::kSamplingPeriod:
      sampling_period_ = reply.value32;
      break;
    default:
      break;
  }
}

HylErr HylSpectralImpl::GetFlickerAutoGainEnabled(const char*, bool* enabled) {
  return AccessAndWait(ReadOf(RlsCommand::kFlickerAutoGain),
                       Into(enabled, &HylSpectralImpl::flicker_auto_gain_));
}

HylErr HylSpectralImpl::GetSpectralAutoGainEnabled(const char*, bool* enabled) {
  return AccessAndWait(ReadOf(RlsCommand::kSpectralAutoGain),
                       Into(enabled, &HylSpectralImpl::spectral_auto_gain_));
}

HylErr HylSpectralImpl::GetSpectralApplyFacCal(const char*, bool* enabled) {
  return AccessAndWait(ReadOf(RlsCommand::kApplyFacCal),
                       Into(enabled, &HylSpectralImpl::apply_fac_cal_));
}

HylErr HylSpectralImpl::GetSpectralApplyOtpCal(const char*, bool* enabled) {
  return AccessAndWait(ReadOf(RlsCommand::kApplyOtpCal),
                       Into(enabled, &HylSpectralImpl::apply_otp_cal_));
}

HylErr HylSpectralImpl::GetFlickerConfig(const char*, uint32_t* value, float* gain) {
  return AccessAndWait(ReadOf(RlsCommand::kFlickerConfig),
                       Into(value, &HylSpectralImpl::flicker_param_),
                       Into(gain, &HylSpectralImpl::gain_));
}

HylErr HylSpectralImpl::GetFlickerFrequencyMetrics(const char*, FlickerFrequencyMetrics* metrics) {
  if (metrics == nullptr) {
    return HylErr::kNullPointer;
  }
  return AccessAndWait(ReadOf(RlsCommand::kFlickerFrequencyMetrics),
                       Into(&metrics->metric0, &HylSpectralImpl::metric0_),
                       Into(&metrics->metric1, &HylSpectralImpl::metric1_),
                       Into(&metrics->saturation, &HylSpectralImpl::saturation_),
                       Into(&metrics->metric_byte, &HylSpectralImpl::metric_byte_));
}

HylErr HylSpectralImpl::GetFlickerSaturation(const char*, uint16_t* saturation) {
  return AccessAndWait(ReadOf(RlsCommand::kFlickerSaturation),
                       Into(saturation, &HylSpectralImpl::saturation_));
}

HylErr HylSpectralImpl::GetRegister(const char*, uint8_t reg, uint8_t* value) {
  RlsMsgAccessReq request = ReadOf(RlsCommand::kRegister);
  request.reg_addr = reg;
  return AccessAndWait(request, Into(value, &HylSpectralImpl::register_value_));
}

HylErr HylSpectralImpl::GetDeviceUid(const char*, uint64_t* uid) {
  return AccessAndWait(ReadOf(RlsCommand::kDeviceUid), Into(uid, &HylSpectralImpl::device_uid_));
}

HylErr HylSpectralImpl::SetExposureTime(const char*, uint32_t time, uint32_t* applied) {
  RlsMsgAccessReq request = WriteOf(RlsCommand::kExposureTime);
  request.value32 = time;
  return AccessAndWait(request, Into(applied, &HylSpectralImpl::exposure_time_));
}

HylErr HylSpectralImpl::SetGain(const char*, uint8_t a, float gain, float* applied) {
  RlsMsgAccessReq request = WriteOf(RlsCommand::kGain);
  request.param_a = a;
  request.gain = gain;
  return AccessAndWait(request, Into(applied, &HylSpectralImpl::gain_));
}

HylErr HylSpectralImpl::SetSamplingPeriod(const char*, uint32_t period, uint32_t* applied) {
  RlsMsgAccessReq request = WriteOf(RlsCommand::kSamplingPeriod);
  request.value32 = period;
  return AccessAndWait(request, Into(applied, &HylSpectralImpl::sampling_period_));
}

HylErr HylSpectralImpl::SetFlickerAutoGainEnabled(const char*, bool enable) {
  RlsMsgAccessReq request = WriteOf(RlsCommand::kFlickerAutoGain);
  request.flicker_auto_gain = enable;
  return Access(request);
}

HylErr HylSpectralImpl::SetFlickerChannel(const char*, uint8_t a, uint8_t b) {
  RlsMsgAccessReq request = WriteOf(RlsCommand::kFlickerChannel);
  request.param_a = a;
  request.param_b = b;
  return Access(request);
}

HylErr HylSpectralImpl::SetFlickerPedestal(const char*, uint8_t pedestal) {
  RlsMsgAccessReq request = WriteOf(RlsCommand::kFlickerPedestal);
  request.value8 = pedestal;
  return Access(request);
}

HylErr HylSpectralImpl::SetRegister(const char*, uint8_t reg, uint8_t value) {
  RlsMsgAccessReq request = WriteOf(RlsCommand::kRegister);
  request.reg_addr = reg;
  request.value8 = value;
  return Access(request);
}

HylErr HylSpectralImpl::SetSpectralAutoGainEnabled(const char*, bool enable) {
  RlsMsgAccessReq request = WriteOf(RlsCommand::kSpectralAutoGain);
  request.spectral_auto_gain = enable;
  return Access(request);
}

HylErr HylSpectralImpl::SetSpectralApplyFacCalEnabled(const char*, bool enable) {
  RlsMsgAccessReq request = WriteOf(RlsCommand::kApplyFacCal);
  request.cal_enabled = enable;
  return Access(request);
}

HylErr HylSpectralImpl::SetSpectralApplyOtpCalEnabled(const char*, bool enable) {
  RlsMsgAccessReq request = WriteOf(RlsCommand::kApplyOtpCal);
  request.cal_enabled = enable;
  return Access(request);
}

HylErr HylSpectralImpl::SetTorchLightState(const char*, bool on) {
  RlsMsgAccessReq request = WriteOf(RlsCommand::kTorchLight);
  request.torch_on = on;
  return Access(request);
}

}  // namespace hyl::v2
