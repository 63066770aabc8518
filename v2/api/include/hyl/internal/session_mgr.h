// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <atomic>
#include <cstdint>

#include <hyl/hyl_spectral_api.h>
#include <hyl/hyl_string.h>
#include <hyl/internal/sample_converter.h>
#include <hyl/internal/sensor_info_mgr.h>

namespace hyl::v2 {

/// How a session reports.
enum class ReportingMode : uint8_t {
  kNone = 0,  ///< the session is free
  kContinuous = 1,
  kOnChange = 2,
};

namespace spectral {

/// One sensor that a client has enabled; free while `id` is 0.
///
/// Changed under the instance mutex only. `id` and `cookie` are atomic because samples and name
/// queries are matched to sessions without that mutex.
struct Session {
  static constexpr uint32_t kDefaultFormatParam = 24000;

  std::atomic<uint32_t> id{0};
  HylString name;
  SensorType type = 0;
  ReportingMode mode = ReportingMode::kNone;
  std::atomic<uint64_t> cookie{0};              ///< of the request that runs the session
  uint32_t format_param = kDefaultFormatParam;  ///< flicker: from the latest format message
  SampleConverter converter;                    ///< flicker: unpacks into the client's buffer

  /// Frees the entry.
  void Reset();
};

/// The fixed table of sessions. The instance mutex guards it; the const operations work without.
class SessionMgr {
 public:
  /// Takes the first free entry and gives it an id that no session of the process had before. Null
  /// when the table is full.
  Session* AddSession(SensorType type, const char* name, uint64_t cookie, ReportingMode mode);

  /// Frees the entry of the session `id`.
  void DeleteSession(uint32_t id);

  /// The session `id`; null when there is none.
  Session* FindById(uint32_t id);
  /// The first session that `cookie` runs; null when there is none.
  Session* FindByCookie(uint64_t cookie);

  /// Id of the first session that `cookie` runs; 0 when there is none. Takes no lock, so the result
  /// may be stale on return.
  uint32_t FindId(uint64_t cookie) const;
  /// Finds the cookie of the session `id`. Takes no lock, so the result may be stale on return.
  bool FindCookie(uint32_t id, uint64_t& cookie) const;

 private:
  friend struct ::hyl::v2::TestAccess;

  static uint32_t NextId();

  /// The next session id. Atomic: all instances of the process share it.
  static std::atomic<uint32_t> session_cnt_;

  std::array<Session, kMaxSessions> sessions_;
};

}  // namespace spectral
}  // namespace hyl::v2
