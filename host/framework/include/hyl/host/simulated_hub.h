#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <vector>

#include <hyl/host/flicker_stream.h>
#include <hyl/host/light_scene.h>

namespace hyl::v2::host {

class HubState;

/// A sensor that a client has running.
struct RunningRequest {
  uint32_t sensor_handle;
  uint32_t client_id;
};

/// How late and in which order the hub answers requests.
struct ReplyFaults {
  std::chrono::microseconds max_delay{0};  ///< each reply is held up for a random time up to this
  bool reorder = false;                    ///< replies overtake each other as their delays have it
  bool ignore_writes = false;  ///< setting writes are accepted, carried out and never answered
  uint64_t seed = 1;
};

/// The sensor hub that stands behind Api::Create on a machine without sensors: two ambient-light
/// sensors and a flicker sensor that look at a LightScene. One hub serves the process, any number
/// of Api objects at a time.
///
/// A sensor measures once a period, first one period after its start:
/// - The rear ambient-light sensor delivers each measurement in a sample message, with its time in
///   nanoseconds.
/// - The front one delivers event chains: in continuous sampling, one for every four measurements.
///   Every second event has its time in platform ticks, and every third chain ends with an event of
///   the kind that clients ignore.
/// - In on-change sampling both deliver their first measurement, and then those for which the light
///   differs by more than 3 percent from the one last delivered.
/// - The flicker sensor delivers 10 ms of samples every 10 ms, and its format before the first and
///   every tenth of them.
/// In real time, measurements that the client has no time for are skipped; the flicker sensor first
/// holds half a second of them and then pauses.
///
/// Requests: an Api has one request for a sensor handle running; a further start takes the place of
/// the one before. Refused are, with kNotFound, handles that are not in the sensor list and stops
/// of what does not run; with kInvalidArgument, requests that the sensor does not serve and records
/// of another kind than announced; with kNullPointer, null callbacks; with kFailed, requests for
/// which there is no room: 256 replies wait, or 64 requests run on the sensor. The settings are
/// listed in hub_settings.h.
///
/// The hub calls the clients' callback objects on threads of its own, one for each sensor and one
/// for replies, without a lock held. Deleting an Api ends its requests, drops its replies and
/// releases its callback objects. It waits for deliveries to them that are under way, unless it is
/// called on one of the hub's threads, that is, inside a callback: then those go on, each holding
/// its callback object until it ends.
///
/// All operations are safe on any thread and inside callbacks.
class [[gnu::visibility("default")]] SimulatedHub {
 public:
  /// The hub of this process, made at the first call; it lives until the process ends.
  static SimulatedHub& Instance();

  /// Puts the hub back to its initial state: no running sensors, default scene, settings and
  /// packing, no faults, real time. Replies that wait are dropped. Waits for deliveries under way,
  /// except inside a callback.
  void Reset();

  /// Holds from the next measurement on. Numbers that make no sense are moved to the nearest that
  /// do.
  void SetScene(const LightScene& scene);
  /// What SetScene was given last, with its numbers as they hold; at first the default.
  LightScene Scene() const;

  /// Runs on real time, as it does initially.
  void UseRealTime();
  /// Runs on a clock that stands still but for Advance. It starts at 0 s.
  void UseVirtualClock();
  /// Moves the virtual clock on, and returns when everything that fell due has been delivered, in
  /// order of time for each sensor. Replies do not wait for the clock; all those to requests made
  /// before the call are delivered first. On real time, waits for the replies alone. Inside a
  /// callback, moves the clock and does not wait.
  void Advance(std::chrono::nanoseconds step);
  /// Nanoseconds on the hub's present clock.
  int64_t Now() const;

  /// Both hold from the next start of the flicker sensor on.
  void SetFlickerPacking(const FlickerPacking& packing);
  void SetFlickerFaults(const FlickerFaults& faults);
  /// Holds for replies to later requests. Delays are of real time, and at most a minute.
  void SetReplyFaults(const ReplyFaults& faults);

  /// The samples, as signed numbers of `bits` bits, that the flicker sensor measured since it was
  /// last started: what a client that loses nothing receives. At most the first 2^20 are kept.
  /// Empty before the first start.
  std::vector<int32_t> FlickerHistory(int bits) const;

  /// The sensors that run, of all Api objects, in no order that may be relied on.
  std::vector<RunningRequest> RunningRequests() const;

 private:
  SimulatedHub();
  ~SimulatedHub() = delete;

  HubState& state_;
};

}  // namespace hyl::v2::host
