#include "simulated_api.h"

#include <exception>
#include <utility>

#include "hub_state.h"
#include "sensor_list.h"

namespace hyl::v2::host {
namespace {

class SimulatedApi : public Api {
 public:
  SimulatedApi() = default;
  SimulatedApi(const SimulatedApi&) = delete;
  SimulatedApi& operator=(const SimulatedApi&) = delete;
  ~SimulatedApi() override { HubState::Instance().Disconnect(*connection_); }

  std::vector<SensorListEntry> GetSensorList() override { return SimulatedSensorList(); }

  HylErr InvokeAsyncServiceCall(uint32_t sensor_handle, uint32_t request_type,
                                const Request& request,
                                std::shared_ptr<Service::AsyncCallbacks> callbacks) override {
    try {
      return HubState::Instance().Invoke(
          {connection_, sensor_handle, request_type, std::move(callbacks)}, request);
    } catch (const std::exception&) {  // no memory, or no thread to be had
      return HylErr::kFailed;
    }
  }

 private:
  const std::shared_ptr<Connection> connection_ = std::make_shared<Connection>();
};

}  // namespace

std::unique_ptr<Api> ConnectToSimulatedHub(ClientType type) {
  if (type != ClientType::kSpectral) {
    return nullptr;
  }
  return std::make_unique<SimulatedApi>();
}

}  // namespace hyl::v2::host
