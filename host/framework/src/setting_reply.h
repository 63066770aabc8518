#pragma once

#include <hyl/rls_msg_access.h>

namespace hyl::v2::host {

class SettingReply : public RlsMsgAccessResp {
 public:
  uint8_t Type() const override { return static_cast<uint8_t>(MessageType::kRlsMsgAccessResp); }
};

}  // namespace hyl::v2::host
