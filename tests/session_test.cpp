// SPDX-License-Identifier: Apache-2.0
// The session table and session ids.

#include <atomic>
#include <thread>

#include <hyl/internal/session_mgr.h>

#include "library_test.h"
#include "test_access.h"

namespace hyl::v2::test {
namespace {

using spectral::Session;
using spectral::SessionMgr;

Session* Add(SessionMgr& table, uint64_t cookie) {
  return table.AddSession(kFlickerType, "name", cookie, ReportingMode::kContinuous);
}

TEST(SessionMgr, ReadersSeeIdsAndCookiesThatBelongTogether) {
  constexpr uint32_t kRounds = 300'000;
  constexpr uint64_t kOffset = 0x1'00000000;
  SessionMgr table;
  const uint32_t first = TestAccess::NextId();
  std::atomic<uint32_t> current{first};
  std::thread writer([&] {  // alone adds sessions, so that their ids are known before
    for (uint32_t id = first; id < first + kRounds; ++id) {
      Add(table, kOffset + id);
      current = id;
      table.DeleteSession(id);
    }
    current = 0;
  });
  int mismatches = 0;
  for (uint32_t id = current; id != 0; id = current) {
    for (const uint32_t wanted : {id, id + 1}) {
      uint64_t cookie = kOffset + wanted;
      mismatches += table.FindCookie(wanted, cookie) && cookie != kOffset + wanted ? 1 : 0;
      const uint32_t found = table.FindId(kOffset + wanted);
      mismatches += found != 0 && found != wanted ? 1 : 0;
    }
  }
  writer.join();
  EXPECT_EQ(0, mismatches);
}

}  // namespace
}  // namespace hyl::v2::test
