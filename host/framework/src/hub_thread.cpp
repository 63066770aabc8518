#include "hub_thread.h"

#include <thread>
#include <utility>

namespace hyl::v2::host {
namespace {

thread_local bool on_hub_thread = false;

}  // namespace

void StartHubThread(std::function<void()> body) {
  std::thread([run = std::move(body)] {
    on_hub_thread = true;
    run();
  }).detach();
}

bool OnHubThread() {
  return on_hub_thread;
}

}  // namespace hyl::v2::host
