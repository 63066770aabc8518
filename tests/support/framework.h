// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <type_traits>
#include <variant>
#include <vector>

#include <hyl/host/messages.h>
#include <hyl/host/scripted_framework.h>
#include <hyl/host/sensors.h>

namespace hyl::v2::test {

using namespace host;  // the testing kit, as a client's author has it

struct Field {
  size_t offset;  ///< counted from the request's table pointer
  size_t width;
  uint64_t value;
};

/// A request of `size` bytes, without its table pointer: its lead byte, and zero but for the
/// fields.
inline std::vector<uint8_t> RequestBytes(size_t size, std::vector<Field> fields) {
  std::vector<uint8_t> bytes(size);
  fields.push_back({8, 1, 1});
  for (const Field& field : fields) {
    for (size_t i = 0; i < field.width; ++i) {
      bytes.at(field.offset + i) = static_cast<uint8_t>(field.value >> (8 * i));
    }
  }
  bytes.erase(bytes.begin(), bytes.begin() + sizeof(Request));
  return bytes;
}

/// The bytes of a request, after its table pointer.
inline std::vector<uint8_t> BytesOf(const FrameworkCall& call) {
  const auto bytes = []<typename Record>(const Record& record) -> std::vector<uint8_t> {
    if constexpr (std::is_base_of_v<Request, Record>) {
      const auto* const first = reinterpret_cast<const uint8_t*>(&record);
      return {first + sizeof(Request), first + sizeof(record)};
    }
    return {};
  };
  return std::visit(bytes, call.request);
}

inline constexpr auto kSpectral = SensorEventType::kSpectralSample;
inline constexpr auto kIgnored = SensorEventType::kIgnored;
inline constexpr SensorEventType kUnknown{5};

/// A way that data takes to the client.
struct DataWay {
  const char* name;
  uint32_t handle;
  /// Delivers one message on the calling thread.
  void (*deliver)(Service::AsyncCallbacks& object);

  bool operator==(const DataWay& other) const { return handle == other.handle; }
};

inline constexpr DataWay kRearSample{"Rear", kRearContinuous, [](Service::AsyncCallbacks& object) {
                                       const SpectralMessage message({1, 2, 3});
                                       object.OnResponse(&message);
                                     }};
/// A chain of two samples.
inline constexpr DataWay kFrontEvents{
    "Front", kFrontContinuous, [](Service::AsyncCallbacks& object) {
      const EventChainMessage message({{kSpectral, {1}}, {kUnknown}, {kSpectral, {2}}});
      object.OnResponse(&message);
    }};
/// With its format, since it may be the first.
inline constexpr DataWay kFlickerData{
    "Flicker", kFlicker, [](Service::AsyncCallbacks& object) {
      const FlickerFormatMessage format(FlickerFormatSampleWidth::kUncompressed2);
      object.OnResponse(&format);
      const FlickerDataMessage message({1, 0, 2, 0});
      object.OnResponse(&message);
    }};
inline constexpr DataWay kDataWays[] = {kRearSample, kFrontEvents, kFlickerData};

}  // namespace hyl::v2::test
