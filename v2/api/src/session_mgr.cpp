// SPDX-License-Identifier: Apache-2.0
#include <hyl/internal/session_mgr.h>

#include <algorithm>

#include "log.h"

namespace hyl::v2::spectral {
namespace {

struct IdAndCookie {
  uint32_t id = 0;
  uint64_t cookie = 0;
};

/// Reads an id and a cookie that were in the entry at the same time. An id is never used twice, so
/// one that is still there after the cookie has been read was there when the cookie was. AddSession
/// writes the cookie before the id, Reset the id before the cookie.
IdAndCookie ReadPair(const Session& session) {
  for (;;) {
    const uint32_t id = session.id.load(std::memory_order_acquire);
    const uint64_t cookie = session.cookie.load(std::memory_order_acquire);
    if (session.id.load(std::memory_order_relaxed) == id) {
      return {id, cookie};
    }
  }
}

}  // namespace

std::atomic<uint32_t> SessionMgr::session_cnt_{1};

void Session::Reset() {
  id.store(0, std::memory_order_relaxed);
  type = 0;
  name.clear();
  cookie.store(0, std::memory_order_release);
  mode = ReportingMode::kNone;
  format_param = kDefaultFormatParam;
  converter.ResetCounters();
}

uint32_t SessionMgr::NextId() {
  uint32_t id = 0;
  while (id == 0) {  // which marks a free entry; the counter gives it when it wraps around
    id = session_cnt_.fetch_add(1, std::memory_order_relaxed);
  }
  return id;
}

Session* SessionMgr::AddSession(SensorType type, const char* name, uint64_t cookie,
                                ReportingMode mode) {
  for (Session& session : sessions_) {
    if (session.id == 0) {
      session.type = type;
      session.name.assign(name);
      session.mode = mode;
      session.cookie.store(cookie, std::memory_order_release);
      session.id.store(NextId(), std::memory_order_release);
      return &session;
    }
  }
  HYL_LOG(ERROR, "Cannot add session for %s %lx, table full!", name != nullptr ? name : "", cookie);
  return nullptr;
}

void SessionMgr::DeleteSession(uint32_t id) {
  Session* const session = FindById(id);
  if (session == nullptr) {
    HYL_LOG(ERROR, "Cannot delete session %d, not active or found!", static_cast<int>(id));
    return;
  }
  session->Reset();
}

Session* SessionMgr::FindById(uint32_t id) {
  const auto found = std::find_if(sessions_.begin(), sessions_.end(),
                                  [=](const Session& session) { return session.id == id; });
  return id != 0 && found != sessions_.end() ? &*found : nullptr;
}

Session* SessionMgr::FindByCookie(uint64_t cookie) {
  const auto found = std::find_if(sessions_.begin(), sessions_.end(),
                                  [=](const Session& session) { return session.cookie == cookie; });
  return cookie != 0 && found != sessions_.end() ? &*found : nullptr;
}

uint32_t SessionMgr::FindId(uint64_t cookie) const {
  if (cookie == 0) {
    return 0;
  }
  for (const Session& session : sessions_) {
    const IdAndCookie pair = ReadPair(session);
    if (pair.id != 0 && pair.cookie == cookie) {
      return pair.id;
    }
  }
  return 0;
}

bool SessionMgr::FindCookie(uint32_t id, uint64_t& cookie) const {
  for (const Session& session : sessions_) {
    const IdAndCookie pair = ReadPair(session);
    if (id != 0 && pair.id == id) {
      cookie = pair.cookie;
      return true;
    }
  }
  return false;
}

}  // namespace hyl::v2::spectral
