#pragma once

#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include <hyl/api.h>

namespace hyl::v2::bench {

inline constexpr uint32_t kRearHandle = 0x04F40000;
inline constexpr uint32_t kFrontHandle = 0x04F40001;
inline constexpr uint32_t kFlickerHandle = 0x010D0000;

/// `count` ambient-light sensors "ALS 0", "ALS 1", ... for continuous reporting, one flicker sensor
/// "Flicker", and as many others as make the list `list_size` long, its marker included.
std::vector<SensorListEntry> MakeSensors(int count, size_t list_size = 0);

enum class Answering {
  kNever,
  kOnThread,    ///< at once, on the framework's thread
  kWithinCall,  ///< against the contract: shows what remains without a second thread
};

/// A framework behind Api::Create, until the next one is made, that accepts every request.
class BenchFramework {
 public:
  BenchFramework(std::vector<SensorListEntry> sensors, Answering answering);
  ~BenchFramework();
  BenchFramework(const BenchFramework&) = delete;
  BenchFramework& operator=(const BenchFramework&) = delete;

  /// The object that the latest request to the sensor came with.
  std::shared_ptr<Service::AsyncCallbacks> CallbacksOf(uint32_t handle);

  /// Blocks until every request has been answered.
  void WaitUntilAnswered();

  // For the Api objects:
  const std::vector<SensorListEntry>& sensors() const { return sensors_; }
  void Take(uint32_t handle, uint32_t type, const Request& request,
            std::shared_ptr<Service::AsyncCallbacks> callbacks);

 private:
  struct Pending {
    uint32_t type;
    uint16_t access_and_command;  // of a configuration request
    std::shared_ptr<Service::AsyncCallbacks> callbacks;
  };

  static void Answer(const Pending& pending);
  void AnswerAll();

  const std::vector<SensorListEntry> sensors_;
  const Answering answering_;
  std::mutex mutex_;  // guards all that follows
  std::map<uint32_t, std::shared_ptr<Service::AsyncCallbacks>> callbacks_;
  std::vector<Pending> pending_;
  size_t unanswered_ = 0;
  bool stop_ = false;
  std::condition_variable requested_;
  std::condition_variable answered_;
  std::thread thread_;
};

}  // namespace hyl::v2::bench
