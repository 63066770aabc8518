// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include <hyl/api.h>
#include <hyl/hyl_string.h>
#include <hyl/internal/thread_annotations.h>
#include <hyl/vector.h>

namespace hyl::v2 {

/// A sensor's type as the library keeps it: the framework's type minus kFrameworkTypeOffset.
using SensorType = uint16_t;

inline constexpr uint32_t kFrameworkTypeOffset = 256;
inline constexpr SensorType kAnySensorType = 0;  ///< matches every type in lookups
inline constexpr SensorType kOnChangeAmbientLightType = 12;
inline constexpr SensorType kFlickerType = 13;
inline constexpr SensorType kContinuousAmbientLightType = 1012;

/// Reaches private members; the tests define it.
struct TestAccess;

namespace spectral {

/// One entry of the list of optical sensors.
struct SensorInfo {
  SensorType type = 0;
  uint32_t priority = 0;    ///< index within the type
  uint32_t request_id = 0;  ///< of the request that runs the sensor; 0 when none does
  HylString name;

  /// One line for the log: name, type, priority and request id.
  HylString ToStr() const;
};

static_assert(sizeof(SensorInfo) == 40);

/// A copy of a list entry, with the version of the list that it was taken from.
struct VersionedSensorInfo {
  uint32_t version = 0;
  SensorInfo info;

  /// Names the entry's running request across operations: version in the upper half, request id in
  /// the lower half.
  uint64_t Cookie() const { return uint64_t{version} << 32 | info.request_id; }
};

/// The optical sensors that the framework lists, and which of them run.
///
/// Discovered on first use. Every rebuild of the list raises its version, so that a copy of an
/// entry, or a cookie, from before the rebuild is refused instead of naming another sensor.
///
/// All operations are safe on any thread. The list mutex is never held across a framework call.
class SensorInfoMgr {
 public:
  /// Asks the framework for its sensor list, until an optical sensor has been seen. Blocks
  /// while the framework's list is not complete, for kDiscoveryTimeLimit at most.
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

  /// For the annotations of other classes, which name the list mutex by it. Not defined.
  std::mutex& list_mutex() const HYL_RETURN_CAPABILITY(mutex_);

 private:
  friend struct ::hyl::v2::TestAccess;
  struct Discovered;

  bool Found() const { return als_found_ || flicker_found_; }
  static bool FetchCompleteList(std::unique_ptr<Api>& api, std::vector<SensorListEntry>& list);
  void Publish(Discovered& discovered) const HYL_EXCLUDES(mutex_);
  void Dump_locked() const HYL_REQUIRES(mutex_);

  /// The list mutex. Taken after the instance mutex, never before it, and held while logging.
  mutable std::mutex mutex_;
  // Mutable, since const lookups discover, too.
  mutable Vector<SensorInfo> infos_ HYL_GUARDED_BY(mutex_);
  mutable uint32_t version_ HYL_GUARDED_BY(mutex_) = 0;
  // Atomic: read without a lock, written under mutex_ together with the list.
  mutable std::atomic<uint64_t> last_list_size_{0};  ///< of the framework's list
  mutable std::atomic<bool> flicker_found_{false};
  mutable std::atomic<bool> als_found_{false};
};

}  // namespace spectral
}  // namespace hyl::v2
