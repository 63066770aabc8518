#pragma once

#include <cstdint>
#include <string>

#include <gtest/gtest.h>

#include "framework.h"

namespace hyl::v2::test {

/// The ways that data takes to the client.
enum class DataWay { kRearSample, kFrontEvents, kFlickerData };

inline constexpr DataWay kAllDataWays[] = {DataWay::kRearSample, DataWay::kFrontEvents,
                                           DataWay::kFlickerData};

inline std::string NameOf(const ::testing::TestParamInfo<DataWay>& way) {
  constexpr const char* kNames[] = {"Rear", "Front", "Flicker"};
  return kNames[static_cast<int>(way.param)];
}

inline uint32_t HandleOf(DataWay way) {
  constexpr uint32_t kHandles[] = {kRearContinuous, kFrontContinuous, kFlicker};
  return kHandles[static_cast<int>(way)];
}

/// Delivers one message (of two samples where it is a chain) on the calling thread. The flicker
/// format must be kUncompressed2.
inline void DeliverData(Service::AsyncCallbacks& object, DataWay way) {
  if (way == DataWay::kRearSample) {
    const SpectralMessage message({1, 2, 3});
    object.OnResponse(&message);
  } else if (way == DataWay::kFrontEvents) {
    const EventChainMessage message({{kSpectral, {1}}, {kUnknown}, {kSpectral, {2}}});
    object.OnResponse(&message);
  } else {
    const FlickerDataMessage message({1, 0, 2, 0});
    object.OnResponse(&message);
  }
}

}  // namespace hyl::v2::test
