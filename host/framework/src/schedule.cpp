#include "schedule.h"

#include <algorithm>

namespace hyl::v2::host {

Schedule::Schedule(int64_t start, int64_t period, uint64_t max_backlog)
    : period_(period), max_backlog_(max_backlog), next_due_(start + period) {}

Tick Schedule::Take(int64_t now, bool may_skip) {
  const auto late = static_cast<uint64_t>((now - next_due_) / period_);
  const uint64_t skipped = may_skip && late > max_backlog_ ? late - max_backlog_ : 0;
  const Tick tick{.time_ns = next_due_ + static_cast<int64_t>(skipped) * period_,
                  .index = next_index_ + skipped,
                  .skipped = skipped};
  next_due_ = tick.time_ns + period_;
  next_index_ = tick.index + 1;
  return tick;
}

void Schedule::SetPeriod(int64_t period, int64_t now) {
  const int64_t last = next_due_ - period_;
  period_ = period;
  next_due_ = std::max(last + period, now);
}

}  // namespace hyl::v2::host
