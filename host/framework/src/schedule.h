#pragma once

#include <cstdint>

namespace hyl::v2::host {

/// One moment at which a sensor measures.
struct Tick {
  int64_t time_ns = 0;
  uint64_t index = 0;    ///< counts from 0 at the start, skipped ones included
  uint64_t skipped = 0;  ///< ticks before this one that were missed
};

/// When a running request measures: once a period, first one period after its start.
class Schedule {
 public:
  /// At most `max_backlog` ticks that are late are made up for.
  Schedule(int64_t start, int64_t period, uint64_t max_backlog);

  int64_t NextDue() const { return next_due_; }
  /// Takes the tick at NextDue(), which must not be later than `now`. With `may_skip` leaves out
  /// those that are later than the backlog allows.
  Tick Take(int64_t now, bool may_skip);

  /// Goes on with this period, counted from the last tick.
  void SetPeriod(int64_t period, int64_t now);
  /// Goes on from `now` of another clock.
  void Restart(int64_t now) { next_due_ = now + period_; }

 private:
  int64_t period_;  // ns, above 0
  uint64_t max_backlog_;
  int64_t next_due_;
  uint64_t next_index_ = 0;
};

}  // namespace hyl::v2::host
