#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include <hyl/host/sensor_event.h>

#include "sensor_source.h"
#include "spectral_model.h"

namespace hyl::v2::host {

/// Collects readings of the front sensor into chains of events.
class EventBatch {
 public:
  void Add(int64_t time_ns, const std::array<float, kSpectralChannelCount>& values);
  size_t Size() const { return readings_.size(); }

  /// Delivers the readings so far as one chain and forgets them.
  void Flush(const Deliver& deliver);

 private:
  struct Reading {
    int64_t timestamp;
    std::array<float, kSpectralChannelCount> values;
  };

  std::vector<Reading> readings_;
  uint64_t reading_count_ = 0;
  uint64_t chain_count_ = 0;
};

}  // namespace hyl::v2::host
