// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include <hyl/hyl_err.h>
#include <hyl/message.h>
#include <hyl/request.h>

namespace hyl::v2 {

/// Names a kind of client to the framework.
enum class ClientType : uint32_t {
  kSpectral = 10,
};

/// One sensor of the framework's sensor list. Its priority is its index within its type.
struct SensorListEntry {
  uint32_t handle;  ///< bits 16 to 31: the framework's sensor type; bits 0 to 15: the priority
  char name[40];    ///< NUL-terminated
};

static_assert(sizeof(SensorListEntry) == 44);
static_assert(alignof(SensorListEntry) == 4);

/// The framework's service side, as seen by a client.
class __attribute__((visibility("default"))) Service {
 public:
  /// Receives the replies to a client's requests, and the messages of the sensors that they
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

/// A client's connection to the sensor framework. All operations may be called from several
/// threads at once.
class __attribute__((visibility("default"))) Api {
 public:
  /// Connects to the framework. Empty when the framework cannot be reached.
  static std::unique_ptr<Api> Create(ClientType type);

  /// All sensors that the framework knows at the moment.
  virtual std::vector<SensorListEntry> GetSensorList() = 0;

  /// Sends `request`, of the kind `request_type`, to a sensor. The request is read during the call
  /// and not kept; the framework keeps its copy of `callbacks` for as long as it delivers messages
  /// for the request. kOk means that the request was accepted and a reply will follow; any other
  /// result means that it was refused.
  virtual HylErr InvokeAsyncServiceCall(uint32_t sensor_handle, uint32_t request_type,
                                        const Request& request,
                                        std::shared_ptr<Service::AsyncCallbacks> callbacks) = 0;

  virtual ~Api() = default;
};

}  // namespace hyl::v2
