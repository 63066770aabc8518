#pragma once

#include <cstdint>
#include <ostream>
#include <type_traits>
#include <variant>
#include <vector>

#include <hyl/host/messages.h>
#include <hyl/host/scripted_framework.h>
#include <hyl/host/sensors.h>

namespace hyl::v2::host {

/// What GoogleTest prints of a call.
inline void PrintTo(const FrameworkCall& call, std::ostream* out) {
  constexpr const char* kNames[] = {"Create", "GetSensorList", "Invoke", "Destroy"};
  *out << kNames[static_cast<int>(call.kind)] << " by api " << call.api << std::hex << " handle 0x"
       << call.handle << std::dec << " type " << call.type << " -> "
       << int{static_cast<uint8_t>(call.result)};
}

}  // namespace hyl::v2::host

namespace hyl::v2::test {

using namespace host;  // the testing kit, as a client's author has it

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

}  // namespace hyl::v2::test
