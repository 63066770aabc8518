#include <hyl/request.h>

#include <hyl/rls_msg_access.h>

namespace hyl::v2 {

Request::~Request() = default;

StopSamplingReq::~StopSamplingReq() = default;
uint32_t StopSamplingReq::ClientId() const {
  return client_id;
}

StartOnChangeSamplingReq::~StartOnChangeSamplingReq() = default;
uint32_t StartOnChangeSamplingReq::ClientId() const {
  return client_id;
}
bool StartOnChangeSamplingReq::Passive() const {
  return passive;
}
uint64_t StartOnChangeSamplingReq::MaxLatency() const {
  return max_latency;
}
uint8_t StartOnChangeSamplingReq::TransformMask() const {
  return transform_mask;
}
bool StartOnChangeSamplingReq::IsWakeUp() const {
  return is_wake_up;
}

StartContinuousSamplingReq::~StartContinuousSamplingReq() = default;
uint32_t StartContinuousSamplingReq::ClientId() const {
  return client_id;
}
bool StartContinuousSamplingReq::Passive() const {
  return passive;
}
uint64_t StartContinuousSamplingReq::MaxLatency() const {
  return max_latency;
}
uint8_t StartContinuousSamplingReq::TransformMask() const {
  return transform_mask;
}
bool StartContinuousSamplingReq::IncludeRuntimeBias() const {
  return include_runtime_bias;
}
uint8_t StartContinuousSamplingReq::Reserved() const {
  return reserved;
}
uint64_t StartContinuousSamplingReq::Period() const {
  return period;
}
bool StartContinuousSamplingReq::IsWakeUp() const {
  return is_wake_up;
}

RlsMsgAccessReq::~RlsMsgAccessReq() = default;

}  // namespace hyl::v2
