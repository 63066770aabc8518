#include <hyl/api.h>

#include <memory>
#include <mutex>
#include <utility>

#include <hyl/host/hooks.h>
#include <hyl/host/simulated_hub.h>

namespace hyl::v2 {
namespace host {
namespace {

struct FactorySlot {
  std::mutex mutex;                           // guards `factory`
  std::shared_ptr<const ApiFactory> factory;  // null: the simulated hub
};

FactorySlot& TheFactorySlot() {
  static FactorySlot* const slot = new FactorySlot;  // never destroyed: threads may still connect
  return *slot;
}

std::shared_ptr<const ApiFactory> CurrentFactory() {
  const std::lock_guard lock(TheFactorySlot().mutex);
  return TheFactorySlot().factory;
}

}  // namespace

void SetApiFactory(ApiFactory factory) {
  auto fresh = factory ? std::make_shared<const ApiFactory>(std::move(factory)) : nullptr;
  const std::lock_guard lock(TheFactorySlot().mutex);
  TheFactorySlot().factory.swap(fresh);
}

}  // namespace host

std::unique_ptr<Api> Api::Create(ClientType type) {
  if (const auto factory = host::CurrentFactory()) {
    return (*factory)(type);
  }
  return host::SimulatedHub::Instance().Connect(type);
}

}  // namespace hyl::v2
