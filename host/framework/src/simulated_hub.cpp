#include <hyl/host/simulated_hub.h>

#include "hub_state.h"

namespace hyl::v2::host {

SimulatedHub::SimulatedHub() : state_(HubState::Instance()) {}

SimulatedHub& SimulatedHub::Instance() {
  static SimulatedHub* const hub = new SimulatedHub;
  return *hub;
}

void SimulatedHub::Reset() {
  state_.Reset();
}
void SimulatedHub::SetScene(const LightScene& scene) {
  state_.SetScene(scene);
}
LightScene SimulatedHub::Scene() const {
  return state_.Scene();
}
void SimulatedHub::UseRealTime() {
  state_.UseRealTime();
}
void SimulatedHub::UseVirtualClock() {
  state_.UseVirtualClock();
}
void SimulatedHub::Advance(std::chrono::nanoseconds step) {
  state_.Advance(step);
}
int64_t SimulatedHub::Now() const {
  return state_.Now();
}
void SimulatedHub::SetFlickerPacking(const FlickerPacking& packing) {
  state_.SetFlickerPacking(packing);
}
void SimulatedHub::SetFlickerFaults(const FlickerFaults& faults) {
  state_.SetFlickerFaults(faults);
}
void SimulatedHub::SetReplyFaults(const ReplyFaults& faults) {
  state_.SetReplyFaults(faults);
}
std::vector<int32_t> SimulatedHub::FlickerHistory(int bits) const {
  return state_.FlickerHistory(bits);
}
std::vector<RunningRequest> SimulatedHub::RunningRequests() const {
  return state_.RunningRequests();
}

}  // namespace hyl::v2::host
