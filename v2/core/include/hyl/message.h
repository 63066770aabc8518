// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

namespace hyl::v2 {

/// Type codes of the framework's messages. A reply carries the code of the request it answers.
enum class MessageType : uint8_t {
  kStartOnChangeSamplingResp = 2,
  kStartContinuousSamplingResp = 3,
  kStopSamplingResp = 4,
  kSample = 7,
  kEvents = 8,
  kRlsMsgAccessResp = 64,
  kFlickerData = 65,
  kFlickerFormat = 66,
};

/// Everything that the framework delivers. Owned by the framework and valid only during the
/// callback that delivers it.
class __attribute__((visibility("default"))) Message {
 public:
  virtual ~Message();
  /// The message's type code: a MessageType, or a value that has no name there.
  virtual uint8_t Type() const = 0;
};

static_assert(sizeof(Message) == sizeof(void*));

}  // namespace hyl::v2
