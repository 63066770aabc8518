#pragma once

#include <hyl/hyl_err.h>
#include <hyl/message.h>

namespace hyl::v2 {

#pragma GCC visibility push(default)

/// The framework's service side, as seen by a client.
class Service {
 public:
  /// Receives the replies to a client's requests, and the messages of the sensors that these
  /// started. Called on the framework's threads only, possibly on several at once, and never from
  /// inside InvokeAsyncServiceCall.
  class AsyncCallbacks {
   public:
    /// `message` is valid only during the call.
    virtual void OnResponse(const Message* message) = 0;
    /// Reports an asynchronous failure.
    virtual void OnError(HylErr err) = 0;
    virtual ~AsyncCallbacks() = default;
    virtual void OnAuxiliaryEvent() {}
  };
};

#pragma GCC visibility pop

}  // namespace hyl::v2
