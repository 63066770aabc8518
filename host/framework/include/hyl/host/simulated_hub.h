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
  kDark,         ///< nearly nothing but sensor noise
};

/// What the simulated sensors look at.
struct LightScene {
  LightKind kind = LightKind::kDaylight;
  double illuminance_lux = 500;
  double drift_period_s = 20;  ///< period of a slow change of level; 0 for none
  double drift_depth = 0.05;   ///< its amplitude, as a part of the level
  double mains_hz = 50;        ///< 50 or 60
  double pwm_hz = 2000;        ///< of the warm LED
  double pwm_duty = 0.5;       ///< of the warm LED, 0 to 1
  uint64_t seed = 1;           ///< of the noise; the same seed gives the same data

  bool operator==(const LightScene&) const = default;
};

/// The scene of a text such as "dark" or "warm-led,lux=300,pwm=1000": a kind, then numbers that are
/// other than the default, moved to the nearest that make sense. They are lux, drift-period,
/// drift-depth, mains, pwm and duty. Empty for any other text.
[[gnu::visibility("default")]] std::optional<LightScene> ParseScene(std::string_view text);

/// What a message says of a text that is no scene.
inline constexpr char kNoScene[] =
    "is no scene; a scene is daylight, warm-led, fluorescent or dark, then numbers, as in "
    "'warm-led,lux=300'";

/// How the simulated flicker sensor packs its samples. A layout that no client can accept (another
/// width than those of FlickerFormatSampleWidth, or more than 16 padding bits) is announced as it
/// is, to show what the client does with it; the data that follow are plain 2-byte samples.
struct FlickerPacking {
  FlickerFormatSampleWidth width = FlickerFormatSampleWidth::kCompressed1;
  bool little_endian = true;  ///< 16-bits-in-2 and uncompressed
  uint8_t msb = 0;            ///< uncompressed: unused bits above the sample field
  uint8_t lsb = 0;            ///< uncompressed: unused bits below the sample field
};

/// Faults of the simulated flicker sensor. Chunks are counted from 0 at each start; a chunk holds
/// 10 ms of samples.
///
/// The sensor knows nothing of its losses: it keeps counting bytes and, in compressed-1, writing
/// each sample as the difference from the one before. So a client of compressed-1 is off by a
/// constant after a lost chunk (the sum of the lost differences) and after a repeated one, until
/// the next restart: every tenth chunk carries the restart flag and begins with an absolute value.
/// The client never loses its place between values, because no value reaches into or out of a
/// lost, repeated or unreadable chunk.
struct FlickerFaults {
  /// Every n-th chunk is measured but not delivered (chunks n - 1, 2n - 1, ...); 1 delivers none, 0
  /// all. A chunk that is lost is not repeated.
  uint32_t lose_every = 0;
  /// This chunk is delivered twice, with the same offset; the second time takes the place of a
  /// chunk, so that all later data come 10 ms late. 0 for none.
  uint32_t repeat_chunk = 0;
  /// Stray bytes, the beginning of a value that has no end, follow the samples of this chunk: two
  /// in compressed-1, one otherwise. They count in the offsets of the chunks after it, which are
  /// sound again. 0 for none.
  uint32_t unreadable_chunk = 0;
};

/// How late and in which order the hub answers requests.
struct ReplyFaults {
  std::chrono::microseconds max_delay{0};  ///< each reply is held up for a random time up to this
  bool reorder = false;                    ///< replies overtake each other as their delays have it
  bool ignore_writes = false;  ///< setting writes are accepted, carried out and never answered
  uint64_t seed = 1;
};

/// A sensor that a client has running.
struct RunningRequest {
  uint32_t sensor_handle;
  uint32_t client_id;
};

/// The sensor hub behind Api::Create on a machine without sensors: two ambient-light sensors and a
/// flicker sensor that look at a LightScene. One hub serves the process, any number of Api objects
/// at a time. The sensors' handles are in sensors.h.
///
/// A sensor measures once a period, first one period after its start:
/// - The rear ambient-light sensor delivers each measurement in a sample message, with its time in
///   nanoseconds.
/// - The front one delivers event chains: in continuous sampling, one for every four measurements.
///   Every second event has its time in platform ticks, and every third chain ends with an event of
///   the kind that clients ignore.
/// - In on-change sampling both deliver their first measurement, and then those for which the light
///   on some channel differs from the one last delivered by more than 3 percent of it plus 0.002
///   counts per millisecond.
/// - The flicker sensor delivers 10 ms of samples every 10 ms, and its format before the first and
///   every tenth of them.
/// In real time, measurements that the client has no time for are skipped; the flicker sensor first
/// holds half a second of them and then pauses.
///
/// Requests: an Api has one request for a sensor handle running; a further start takes the place of
/// the one before. The hub refuses, with kNotFound, handles that are not in the sensor list and
/// stops of what does not run; with kInvalidArgument, requests that the sensor does not serve and
/// records of another kind than announced; with kNullPointer, null callbacks; with kFailed,
/// requests for which there is no room: 256 replies wait, or 64 requests run on the sensor. The
/// settings are listed in sensors.h as well.
///
/// The hub calls the clients' callback objects on its own threads, one for each sensor and one for
/// replies, without a lock held. Deleting an Api ends its requests, drops its replies and releases
/// its callback objects. It waits for deliveries in progress, unless it is called on one of the
/// hub's threads, that is, inside a callback: then they continue, each holding its callback object
/// until it ends.
///
/// All operations are safe on any thread and inside callbacks.
class [[gnu::visibility("default")]] SimulatedHub {
 public:
  /// The hub of this process, made at the first call; it lives until the process ends.
  static SimulatedHub& Instance();

  /// Puts the hub back to its initial state: no running sensors, the scene that the environment
  /// variable HYL_HUB_SCENE describes or else the default, default settings and packing, no faults,
  /// real time. Replies that wait are dropped. Waits for deliveries in
  /// progress, except inside a callback.
  void Reset();

  /// Holds from the next measurement on. Numbers that make no sense are moved to the nearest that
  /// do.
  void SetScene(const LightScene& scene);
  /// What SetScene was given last, with its numbers as they hold; at first the initial
  /// one.
  LightScene Scene() const;

  /// Runs on a clock that only Advance moves, until Reset. It starts at 0 s. Initially the hub runs
  /// on real time.
  void UseVirtualClock();
  /// Moves the virtual clock, and returns when everything that fell due has been delivered, in
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

  /// The requests that are running, of all Api objects, in no particular order.
  std::vector<RunningRequest> RunningRequests() const;

  /// A connection to the hub, whatever is behind Api::Create; empty for kinds of client that
  /// the hub does not serve.
  std::unique_ptr<Api> Connect(ClientType type);

 private:
  struct State;
  class ClientConnection;

  SimulatedHub();
  ~SimulatedHub() = delete;

  State& state_;
};

}  // namespace hyl::v2::host
