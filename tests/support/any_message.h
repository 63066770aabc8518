// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <memory>
#include <vector>

#include "framework.h"
#include "input.h"

namespace hyl::v2::test {

// Messages that may be wrong wherever the framework can be: they lie, but not about memory.

inline std::vector<float> AnyFloats(Input& input) {
  std::vector<float> values(input.OneIn(16) ? input.Byte() : input.Below(5));
  std::generate(values.begin(), values.end(), [&] { return input.Value<float>(); });
  return values;
}

/// Overwrites the fields from offset `begin` to before `end`.
template <typename Record>
std::unique_ptr<Message> WithAnyFields(std::unique_ptr<Record> message, size_t begin, size_t end,
                                       Input& input) {
  const auto bytes = input.Bytes(end - begin);
  std::copy(bytes.begin(), bytes.end(), reinterpret_cast<uint8_t*>(message.get()) + begin);
  return message;
}

inline std::unique_ptr<Message> AnySample(Input& input) {
  auto message = std::make_unique<SpectralMessage>(AnyFloats(input), input.Value<int64_t>());
  if (input.OneIn(4)) {
    message->sample.value_count = input.Value<uint32_t>();
  }
  return message;
}

inline std::unique_ptr<Message> AnyEvents(Input& input) {
  constexpr size_t kEndless = 15;
  const size_t count = input.Below(kEndless + 1);
  std::vector<SensorEvent> events(input.Below(8));
  for (SensorEvent& event : events) {
    event = {SensorEventType{input.OneIn(4) ? input.Byte() : uint8_t{1}}, AnyFloats(input),
             input.Value<int64_t>()};
  }
  return std::make_unique<EventChainMessage>(MakeEventChain(events),
                                             count == kEndless ? uint64_t{1} << 32 : count);
}

inline std::unique_ptr<Message> AnyFlickerData(Input& input) {
  enum : size_t { kNullData = 1, kShortened = 2, kEnd = 8 };
  const size_t lie = input.Below(kEnd);
  const auto bytes = input.Bytes(input.OneIn(16) ? input.Byte() : 4 * input.Below(12));
  auto message = std::make_unique<FlickerDataMessage>(std::vector(bytes.begin(), bytes.end()),
                                                      input.Value<uint32_t>());
  if (lie == kNullData) {
    message->data = nullptr;
  } else if (lie == kShortened) {
    message->size = std::min<uint64_t>(message->size, input.Byte());
  }
  return WithAnyFields(std::move(message), 49, 84, input);
}

inline std::unique_ptr<Message> AnyFlickerFormat(Input& input) {
  constexpr int kKinds[] = {2, 3, 4, 6, 6, 6, 7};
  const size_t pick = input.Below(std::size(kKinds) + 1);
  auto message = std::make_unique<FlickerFormatMessage>(
      FlickerFormatSampleWidth{pick < std::size(kKinds) ? kKinds[pick] : input.SignedByte()});
  message->format_param = input.Value<uint32_t>();
  if (input.OneIn(2)) {
    return message;
  }
  return WithAnyFields(std::move(message), 20, 23, input);
}

/// A message of any type, of the class that its receivers take it for; mostly of one that the
/// sensor sends.
inline std::unique_ptr<Message> AnyMessage(Input& input, bool flicker) {
  constexpr uint8_t kAmbientLight[] = {2, 3, 4, 7, 8, 64};
  constexpr uint8_t kFlicker[] = {65, 65, 66};
  const uint8_t pick = input.Byte();
  const uint8_t handled = flicker ? kFlicker[pick % std::size(kFlicker)]
                                  : kAmbientLight[pick % std::size(kAmbientLight)];
  const uint8_t type = pick < 0xE0 ? handled : static_cast<uint8_t>(input.Below(80));
  switch (type) {
    case 2:
    case 3:
    case 4:
      return std::make_unique<StatusReply>(type, input.Byte());
    case 7:
      return AnySample(input);
    case 8:
      return AnyEvents(input);
    case 64:
      return WithAnyFields(std::make_unique<SettingReply>(RlsAccess{}, RlsCommand{}), 10, 61,
                           input);
    case 65:
      return AnyFlickerData(input);
    case 66:
      return AnyFlickerFormat(input);
    default:
      return std::make_unique<StatusReply>(type);
  }
}

}  // namespace hyl::v2::test
