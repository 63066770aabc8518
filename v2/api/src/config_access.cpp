#include <chrono>
#include <mutex>

#include <hyl/hyl_spectral_impl.h>

#include "requests.h"

namespace hyl::v2 {
namespace {

constexpr std::chrono::seconds kReplyTimeLimit{5};
/// How long a waiting operation lets the replies to other requests arrive.
constexpr std::chrono::milliseconds kOwedReplyTimeLimit{100};

RlsMsgAccessReq MakeRequest(RlsAccess access, RlsCommand command) {
  RlsMsgAccessReq request;
  request.lead_byte = spectral::kLeadByte;
  request.access = access;
  request.command = command;
  return request;
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
    const std::lock_guard lock(rear_callbacks_->reply_mutex);
    reply_ledger_.NoteRefused();
  }
  return err;
}

/// A reply ends the wait, whichever request it answers. So that this is not the late reply to an
/// earlier write, those are let in first; and when another thread's write was answered in between,
/// the wait goes on for a moment until the own reply is in.
template <typename CopyResult, typename... Outs>
HylErr HylSpectralImpl::AccessAndWait(const RlsMsgAccessReq& request, CopyResult copy_result,
                                      const Outs*... outs) {
  const bool any_null = (... || (outs == nullptr));
  if (any_null) {
    return HylErr::kNullPointer;
  }
  if (api_ == nullptr) {
    return HylErr::kFailed;
  }
  const std::lock_guard turn(config_turn_mutex_);
  RearSpectralCallbacks& rear = *rear_callbacks_;
  std::unique_lock lock(rear.reply_mutex);

  const uint64_t sent_before = reply_ledger_.sent();
  rear.reply_cv.wait_for(lock, kOwedReplyTimeLimit,
                         [&] { return reply_ledger_.SettledUpTo(sent_before); });
  reply_ledger_.ForgetUpTo(sent_before);
  reply_ledger_.Await(request.access, request.command);
  const uint64_t handled_before = reply_ledger_.handled();
  lock.unlock();

  const HylErr err = Access(request);
  if (err != HylErr::kOk) {
    return err;
  }
  lock.lock();
  if (!rear.reply_cv.wait_for(lock, kReplyTimeLimit,
                              [&] { return reply_ledger_.handled() != handled_before; })) {
    return HylErr::kFailed;
  }
  rear.reply_cv.wait_for(lock, kOwedReplyTimeLimit, [&] {
    return reply_ledger_.awaited_seen() || reply_ledger_.SettledUpTo(reply_ledger_.sent());
  });
  copy_result();
  return HylErr::kOk;
}

void HylSpectralImpl::StoreConfigReply(const RlsMsgAccessResp& reply, RearSpectralCallbacks& rear) {
  {
    const std::lock_guard lock(rear.reply_mutex);
    if (reply.access == RlsAccess::kRead) {
      StoreReadReply(reply);
    } else if (reply.access == RlsAccess::kWrite) {
      StoreWriteReply(reply);
    }
    reply_ledger_.NoteReply(reply.access, reply.command);
  }
  rear.reply_cv.notify_one();
}

void HylSpectralImpl::StoreReadReply(const RlsMsgAccessResp& reply) {
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

void HylSpectralImpl::StoreWriteReply(const RlsMsgAccessResp& reply) {
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
  return AccessAndWait(
      ReadOf(RlsCommand::kFlickerAutoGain), [&] { *enabled = flicker_auto_gain_; }, enabled);
}

HylErr HylSpectralImpl::GetSpectralAutoGainEnabled(const char*, bool* enabled) {
  return AccessAndWait(
      ReadOf(RlsCommand::kSpectralAutoGain), [&] { *enabled = spectral_auto_gain_; }, enabled);
}

HylErr HylSpectralImpl::GetSpectralApplyFacCal(const char*, bool* enabled) {
  return AccessAndWait(
      ReadOf(RlsCommand::kApplyFacCal), [&] { *enabled = apply_fac_cal_; }, enabled);
}

HylErr HylSpectralImpl::GetSpectralApplyOtpCal(const char*, bool* enabled) {
  return AccessAndWait(
      ReadOf(RlsCommand::kApplyOtpCal), [&] { *enabled = apply_otp_cal_; }, enabled);
}

HylErr HylSpectralImpl::GetFlickerConfig(const char*, uint32_t* value, float* gain) {
  const auto copy = [&] {
    *value = flicker_param_;
    *gain = gain_;
  };
  return AccessAndWait(ReadOf(RlsCommand::kFlickerConfig), copy, value, gain);
}

HylErr HylSpectralImpl::GetFlickerFrequencyMetrics(const char*, FlickerFrequencyMetrics* metrics) {
  const auto copy = [&] {
    metrics->metric0 = static_cast<uint16_t>(metric0_);
    metrics->metric1 = static_cast<uint16_t>(metric1_);
    metrics->saturation = static_cast<uint16_t>(saturation_);
    metrics->metric_byte = metric_byte_;
  };
  return AccessAndWait(ReadOf(RlsCommand::kFlickerFrequencyMetrics), copy, metrics);
}

HylErr HylSpectralImpl::GetFlickerSaturation(const char*, uint16_t* saturation) {
  return AccessAndWait(
      ReadOf(RlsCommand::kFlickerSaturation),
      [&] { *saturation = static_cast<uint16_t>(saturation_); }, saturation);
}

HylErr HylSpectralImpl::GetRegister(const char*, uint8_t reg, uint8_t* value) {
  RlsMsgAccessReq request = ReadOf(RlsCommand::kRegister);
  request.reg_addr = reg;
  return AccessAndWait(
      request, [&] { *value = register_value_; }, value);
}

HylErr HylSpectralImpl::GetDeviceUid(const char*, uint64_t* uid) {
  return AccessAndWait(
      ReadOf(RlsCommand::kDeviceUid), [&] { *uid = device_uid_; }, uid);
}

HylErr HylSpectralImpl::SetExposureTime(const char*, uint32_t time, uint32_t* applied) {
  RlsMsgAccessReq request = WriteOf(RlsCommand::kExposureTime);
  request.value32 = time;
  return AccessAndWait(
      request, [&] { *applied = exposure_time_; }, applied);
}

HylErr HylSpectralImpl::SetGain(const char*, uint8_t a, float gain, float* applied) {
  RlsMsgAccessReq request = WriteOf(RlsCommand::kGain);
  request.param_a = a;
  request.gain = gain;
  return AccessAndWait(
      request, [&] { *applied = gain_; }, applied);
}

HylErr HylSpectralImpl::SetSamplingPeriod(const char*, uint32_t period, uint32_t* applied) {
  RlsMsgAccessReq request = WriteOf(RlsCommand::kSamplingPeriod);
  request.value32 = period;
  return AccessAndWait(
      request, [&] { *applied = sampling_period_; }, applied);
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
