#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include <hyl/api.h>
#include <hyl/sensor_info.h>
#include <hyl/thread_annotations.h>
#include <hyl/vector.h>

namespace hyl::v2::spectral {

/// The optical sensors that the framework lists, and which of them run.
///
/// Discovered on first use. Every rebuild of the list raises its version, so that a copy of an
/// entry, or a cookie, from before the rebuild is refused instead of naming another sensor.
///
/// All operations are safe on any thread. The list mutex is never held across a framework call.
class SensorInfoMgr {
 public:
  /// Asks the framework for its sensor list, until an optical sensor has once been seen. Blocks
  /// while the framework's list is not complete, for about 5 s at most.
  void GetOpticalSensors() const HYL_EXCLUDES(mutex_);

  /// Discovers, then finds the first sensor of `type` whose name begins with `name`; with a null or
  /// empty name, the one of that type whose priority is `index`. Leaves `out` alone when there is
  /// none.
  bool GetSensorInfo(VersionedSensorInfo& out, SensorType type, const char* name,
                     uint32_t index) const HYL_EXCLUDES(mutex_);

  /// Finds the sensor whose running request `cookie` names. Does not discover.
  bool GetSensorInfo(VersionedSensorInfo& out, uint64_t cookie) const HYL_EXCLUDES(mutex_);

  /// Records `vsi.info.request_id` in the entry that `vsi` was copied from. False when the list has
  /// been rebuilt since, or has no such entry.
  bool SetRequestId(const VersionedSensorInfo& vsi) HYL_EXCLUDES(mutex_);

  /// Discovers, then lists the names of the sensors of `type`.
  Vector<HylString> GetSensorNames(SensorType type) const HYL_EXCLUDES(mutex_);

  /// Names the list mutex in other classes' annotations. Not defined: nobody else takes it.
  std::mutex& list_mutex() const HYL_RETURN_CAPABILITY(mutex_);

 private:
  struct Discovered;

  bool Found() const { return als_found_ || flicker_found_; }
  static bool FetchCompleteList(std::unique_ptr<Api>& api, std::vector<SensorListEntry>& list);
  void Publish(Discovered& discovered) const HYL_EXCLUDES(mutex_);
  void Dump_locked() const HYL_REQUIRES(mutex_);

  /// The list mutex. Taken after the instance mutex, never before it.
  mutable std::mutex mutex_;
  // Discovery runs from lookups too, so what it changes is mutable.
  mutable Vector<SensorInfo> infos_ HYL_GUARDED_BY(mutex_);
  mutable uint32_t version_ HYL_GUARDED_BY(mutex_) = 0;
  mutable uint64_t last_list_size_ HYL_GUARDED_BY(mutex_) = 0;  ///< of the framework's list
  // Atomic: read without a lock, written under mutex_ together with the list.
  mutable std::atomic<bool> flicker_found_{false};
  mutable std::atomic<bool> als_found_{false};
};

}  // namespace hyl::v2::spectral
