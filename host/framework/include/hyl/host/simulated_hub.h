// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include <hyl/api.h>
#include <hyl/flicker_messages.h>

namespace hyl::v2::host {

/// Kinds of light. Each has its own spectrum and flicker.
enum class LightKind {
  kDaylight,     ///< steady
  kWarmLed,      ///< phosphor LED, dimmed by pulse width at a few kilohertz
  kFluorescent,  ///< line spectrum; ripples at twice the mains frequency, with harmonics
  kDark,         ///< hardly more than the sensors' own noise
};

/// What the simulated sensors see.
struct LightScene {
  LightKind kind = LightKind::kDaylight;
  double illuminance_lux = 500;
  double drift_period_s = 20;  ///< period of a slow change of level; 0 for none
  double drift_depth = 0.05;   ///< amplitude of that change, as a fraction of the level
  double mains_hz = 50;        ///< 50 or 60
  double pwm_hz = 2000;        ///< of the warm LED
  double pwm_duty = 0.5;       ///< of the warm LED, 0 to 1
  uint64_t seed = 1;           ///< for the noise; the same seed gives the same data

  bool operator==(const LightScene&) const = default;
};

/// Reads a scene such as "dark" or "warm-led,lux=300,pwm=1000": a kind, then the numbers that
/// differ from the default. Their names are lux, drift-period, drift-depth, mains, pwm and duty. A
/// number out of range is moved to the nearest in range. Returns nothing for any other text.
[[gnu::visibility("default")]] std::optional<LightScene> ParseScene(std::string_view text);

/// Completes an error message that begins with a text that is no scene.
inline constexpr char kNoScene[] =
    "is no scene; a scene is daylight, warm-led, fluorescent or dark, then numbers, as in "
    "'warm-led,lux=300'";

/// How the simulated flicker sensor packs its samples. A layout that no client can accept has a
/// width outside FlickerFormatSampleWidth or more than 16 padding bits. The sensor announces it
/// unchanged, to test the client, and then sends plain 2-byte samples.
struct FlickerPacking {
  FlickerFormatSampleWidth width = FlickerFormatSampleWidth::kCompressed1;
  bool little_endian = true;  ///< 16-bits-in-2 and uncompressed
  uint8_t msb = 0;            ///< uncompressed: unused bits above the sample field
  uint8_t lsb = 0;            ///< uncompressed: unused bits below the sample field
};

/// Faults of the simulated flicker sensor. A chunk holds 10 ms of samples. Each start of the sensor
/// counts chunks from 0.
///
/// The sensor does not notice its losses. It continues to count bytes and, in compressed-1, to
/// write each sample as the difference from the previous one. After a lost or repeated chunk, a
/// client of compressed-1 is therefore off by a constant until the next restart: every tenth chunk
/// carries the restart flag and begins with an absolute value. The client never loses its place
/// between values, because no value crosses the edge of a lost, repeated or unreadable chunk.
struct FlickerFaults {
  /// With n, chunks n - 1, 2n - 1 and so on are measured but not delivered. 1 loses all chunks, 0
  /// none. A lost chunk is not repeated.
  uint32_t lose_every = 0;
  /// This chunk is delivered twice, with the same offset. The repetition delays all later data by
  /// 10 ms. 0 for none.
  uint32_t repeat_chunk = 0;
  /// Stray bytes follow the samples of this chunk: two in compressed-1, one otherwise. They begin a
  /// value that never ends. They count in the offsets of later chunks, which are sound. 0 for none.
  uint32_t unreadable_chunk = 0;
};

/// When and in which order the hub answers requests.
struct ReplyFaults {
  std::chrono::microseconds max_delay{0};  ///< each reply is delayed by a random time up to this
  bool reorder = false;                    ///< a reply may overtake another one with a longer delay
  bool ignore_writes = false;  ///< setting writes are accepted and carried out, but never answered
  uint64_t seed = 1;
};

/// A request that runs on a sensor.
struct RunningRequest {
  uint32_t sensor_handle;
  uint32_t client_id;
};

/// The sensor hub behind Api::Create on a machine without sensors: two ambient-light sensors and a
/// flicker sensor that see a LightScene. One hub serves all Api objects of the process. sensors.h
/// has the sensors' handles and settings.
///
/// A sensor measures once a period, first one period after its start:
/// - The rear ambient-light sensor delivers each measurement in a sample message, with its time in
///   nanoseconds.
/// - The front one delivers event chains: in continuous sampling, one for every four measurements.
///   Every second event has its time in platform ticks. Every third chain ends with an event of the
///   kind that clients ignore.
/// - In on-change sampling, both deliver their first measurement. After that, they deliver one when
///   the light on a channel has changed by more than 3 percent plus 0.002 counts per millisecond
///   since the last delivery.
/// - The flicker sensor delivers 10 ms of samples every 10 ms. Its format precedes the first chunk
///   and every tenth one.
/// In real time, a slow client misses measurements. The flicker sensor first holds half a second of
/// them, then pauses.
///
/// For each sensor handle, an Api has at most one running request; a further start replaces it. The
/// hub refuses requests with these results:
/// - kNullPointer: the callbacks are null;
/// - kNotFound: the handle is not in the sensor list, or the request to stop does not run;
/// - kInvalidArgument: the sensor does not serve the request, or its record is of another kind;
/// - kFailed: there is no room. 256 replies wait, or 64 requests run on the sensor.
///
/// The hub calls the clients' callback objects on its own threads: one for each sensor, and one for
/// replies. It holds no lock then. Deleting an Api ends its requests, drops its replies and
/// releases its callback objects. The deletion waits for deliveries in progress, except inside a
/// callback. In that case they continue, and each holds its callback object until it ends.
///
/// All operations are safe on any thread and inside callbacks.
class [[gnu::visibility("default")]] SimulatedHub {
 public:
  /// The hub of this process. The first call creates it; it lives until the process ends.
  static SimulatedHub& Instance();

  /// Restores the initial state: no running sensors, the scene in the environment variable
  /// HYL_HUB_SCENE or else the default one, default settings and packing, no faults, real time.
  /// Drops replies that wait. Waits for deliveries in progress, except inside a callback.
  void Reset();

  /// Takes effect at the next measurement. A number out of range is moved to the nearest in range.
  void SetScene(const LightScene& scene);
  /// The scene in effect.
  LightScene Scene() const;

  /// Replaces real time, until Reset, by a clock that starts at 0 s and that only Advance moves.
  void UseVirtualClock();
  /// Delivers the replies to all requests made before the call, then moves the virtual clock.
  /// Returns when everything that fell due has been delivered, for each sensor in order of time. On
  /// real time, it waits for the replies only. Inside a callback, it moves the clock and does not
  /// wait.
  void Advance(std::chrono::nanoseconds step);
  /// The time on the hub's clock, in nanoseconds.
  int64_t Now() const;

  /// Both take effect at the next start of the flicker sensor.
  void SetFlickerPacking(const FlickerPacking& packing);
  void SetFlickerFaults(const FlickerFaults& faults);
  /// Affects replies to later requests. Delays are in real time, and at most a minute.
  void SetReplyFaults(const ReplyFaults& faults);

  /// What the flicker sensor has measured since its last start, as signed numbers of `bits` bits:
  /// the samples of a client that loses nothing. At most the first 2^20. Empty before the first
  /// start.
  std::vector<int32_t> FlickerHistory(int bits) const;

  /// The running requests of all Api objects, in no particular order.
  std::vector<RunningRequest> RunningRequests() const;

  /// A connection to the hub, even while a ScriptedFramework is behind Api::Create. Null for a kind
  /// of client that the hub does not serve.
  std::unique_ptr<Api> Connect(ClientType type);

 private:
  struct State;
  class ClientConnection;

  SimulatedHub();
  ~SimulatedHub() = delete;

  State& state_;
};

}  // namespace hyl::v2::host
