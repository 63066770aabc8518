#pragma once

#include <array>
#include <cstdint>
#include <optional>

#include <hyl/hyl_err.h>
#include <hyl/rls_msg_access.h>

#include "conditions.h"
#include "setting_reply.h"

namespace hyl::v2::host {

/// The settings and registers of the sensors. Guarded by the hub mutex.
class SettingBank {
 public:
  SettingBank();

  /// Carries out an access and fills in the answer. kInvalidArgument, with nothing changed, for a
  /// setting that does not exist, for a write to one that can only be read, and for a gain write
  /// that names no gain.
  HylErr Access(const RlsMsgAccessReq& request, Conditions& conditions, SettingReply& reply);

  /// Of the ambient-light sensors, in microseconds; empty until it is written.
  std::optional<uint32_t> SamplingPeriodUs() const { return sampling_period_us_; }

 private:
  HylErr Read(const RlsMsgAccessReq& request, const Conditions& conditions,
              SettingReply& reply) const;
  HylErr Write(const RlsMsgAccessReq& request, Conditions& conditions);
  void WriteRegister(uint8_t address, uint8_t value);

  std::array<uint8_t, 256> registers_;
  std::optional<uint32_t> sampling_period_us_;
};

}  // namespace hyl::v2::host
