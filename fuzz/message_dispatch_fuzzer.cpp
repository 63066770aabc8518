// Any messages to the three callback objects: what the client gets is what they say, and nothing
// else.
//
// An input is: 1 for a null client, the flicker buffer's capacity (255: a null buffer), the width
// of its samples; then steps: the sensor whose object is meant, what happens (0: the sensor is
// disabled, 1: a null message, 2: an error, above that: a message), and the message.

#include <algorithm>
#include <bit>
#include <memory>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>
#include <hyl/sampling_messages.h>

#include "any_message.h"
#include "client.h"
#include "framework.h"
#include "log_capture.h"
#include "sample_converter_model.h"

namespace hyl::v2::test {
namespace {

uint32_t Bits(float value) {
  return std::bit_cast<uint32_t>(value);
}

int64_t ToNs(int64_t timestamp) {
  const auto ticks = static_cast<uint64_t>(timestamp) << 1 >> 1;
  return timestamp >= 0 ? timestamp : static_cast<int64_t>(Time::PlatformTicksToNs(ticks));
}

/// What a session has to get from a message to its spectral object.
std::vector<SpectralCall> CallsFor(const Message& message, uint32_t id) {
  std::vector<SpectralCall> calls;
  if (const auto* sample = dynamic_cast<const SpectralMessage*>(&message)) {
    const auto& [unused0, values, count, unused1, timestamp, unused2] = sample->sample;
    calls.push_back({0, id, {values, values + std::min(count, 16U)}, ToNs(timestamp)});
  } else if (const auto* events = dynamic_cast<const EventChainMessage*>(&message)) {
    const RefCountedSensorEvent* event = events->events.get();
    for (uint64_t i = 0; i < events->event_count && event != nullptr; ++i, event = event->next) {
      if (event->event_type == SensorEventType::kSpectralSample) {
        const std::vector values(event->values(), event->values() + event->value_count);
        calls.push_back({0, id, values, ToNs(event->timestamp)});
      }
    }
  }
  return calls;
}

/// NaNs pass through bit for bit.
bool Same(const SpectralCall& a, const SpectralCall& b) {
  return std::tie(a.kind, a.session_id, a.timestamp) ==
             std::tie(b.kind, b.session_id, b.timestamp) &&
         std::equal(a.values.begin(), a.values.end(), b.values.begin(), b.values.end(),
                    [](float x, float y) { return Bits(x) == Bits(y); });
}

/// Of a flicker data message, and of the block that comes of it.
auto SharedFields(const auto& from) {
  return std::tuple(from.restart, from.aux8_0, from.aux8_1, from.aux16_0, from.aux16_1,
                    from.aux16_2, from.aux32_0, from.aux32_1, Bits(from.auxf_0), Bits(from.auxf_1));
}

/// An instance that runs three sensors at first, and what has to become of their messages.
class Dispatch {
 public:
  explicit Dispatch(Input& input)
      : null_client_(input.Below(2) != 0), instance_(null_client_ ? nullptr : &client_) {
    constexpr uint8_t kNullBuffer = 255;
    const uint8_t capacity = input.Byte();
    const uint8_t bits = input.Byte();
    buffer_ = capacity == kNullBuffer ? nullptr : std::make_unique<int[]>(capacity);
    wanted_.resize(buffer_ != nullptr ? capacity : 0);
    converter_.SetOutput(wanted_.data(), wanted_.size(), bits);
    constexpr auto kMode = SensorReportingMode::kContinuous;
    EXPECT_EQ(HylErr::kOk, instance_->EnableAmbientLightSensor("Rear", ids_[0], kMode));
    EXPECT_EQ(HylErr::kOk, instance_->EnableAmbientLightSensor("Front", ids_[1], kMode));
    EXPECT_EQ(HylErr::kOk, instance_->EnableFlickerSensor("", buffer_.get(), capacity, bits,
                                                          ids_[kFlickerSensor]));
  }

  void Step(Input& input) {
    constexpr uint32_t kHandles[] = {kRearContinuous, kFrontContinuous, kFlicker};
    const size_t sensor = input.Below(std::size(kHandles));
    const auto object = framework_.CallbacksOf(kHandles[sensor]);
    switch (input.Byte()) {
      case 0:
        return Disable(sensor);
      case 1:
        return object->OnResponse(nullptr);
      case 2:
        return object->OnError(static_cast<HylErr>(input.Byte()));
    }
    const auto message = AnyMessage(input);
    object->OnResponse(message.get());
    sensor == kFlickerSensor ? CheckFlicker(*message) : CheckSpectral(*message, ids_[sensor]);
    EXPECT_TRUE(client_.TakeSpectral().empty());
    EXPECT_TRUE(client_.TakeFlicker().empty());
  }

 private:
  static constexpr size_t kFlickerSensor = 2;

  /// For good.
  void Disable(size_t sensor) {
    const HylErr result = sensor == kFlickerSensor
                              ? instance_->DisableFlickerSensor(ids_[sensor])
                              : instance_->DisableAmbientLightSensor(ids_[sensor]);
    EXPECT_EQ(ids_[sensor] != 0 ? HylErr::kOk : HylErr::kNotFound, result);
    ids_[sensor] = 0;
    if (sensor == kFlickerSensor) {
      buffer_ = nullptr;  // not written any more
    }
  }

  void CheckSpectral(const Message& message, uint32_t id) {
    if (id != 0 && !null_client_) {
      const auto wanted = CallsFor(message, id);
      const auto calls = client_.TakeSpectral();
      EXPECT_TRUE(std::equal(wanted.begin(), wanted.end(), calls.begin(), calls.end(), Same));
    }
  }

  void CheckFlicker(const Message& message) {
    const auto* format = dynamic_cast<const FlickerFormatMessage*>(&message);
    const auto* data = dynamic_cast<const FlickerDataMessage*>(&message);
    if (ids_[kFlickerSensor] != 0 && format != nullptr) {
      format_param_ = format->format_param;
      converter_.Configure(static_cast<int32_t>(format->width), format->little_endian != 0,
                           format->msb, format->lsb);
    } else if (ids_[kFlickerSensor] != 0 && data != nullptr && data->data != nullptr &&
               data->size != 0 && !null_client_) {
      CheckData(*data);
    }
  }

  void CheckData(const FlickerDataMessage& message) {
    const auto calls = client_.TakeFlicker();
    for (const FlickerCall& call : calls) {
      EXPECT_TRUE(converter_.MayHaveNumber(message.offset, call.block.seq_num));
    }
    const bool converted = converter_.Convert({message.data, message.size}, message.restart);
    ASSERT_EQ(converted ? 1U : 0U, calls.size());
    for (const auto& [session_id, block, samples] : calls) {
      EXPECT_EQ(ids_[kFlickerSensor], session_id);
      EXPECT_EQ(format_param_, block.format_param);
      EXPECT_EQ(buffer_.get(), block.samples);
      EXPECT_TRUE(std::ranges::equal(converter_.Samples(), samples));
      EXPECT_EQ(SharedFields(message), SharedFields(block));
    }
  }

  const bool null_client_;
  LogCapture log_;
  ScriptedFramework framework_;
  RecordingClient client_;
  SampleConverterModel converter_;
  std::vector<int32_t> wanted_;  // its buffer
  uint32_t format_param_ = 24000;
  std::unique_ptr<int[]>
      buffer_;            // of its exact size, so that AddressSanitizer sees what is beyond
  uint32_t ids_[3] = {};  // 0 for a disabled sensor
  Instance instance_;
};

}  // namespace
}  // namespace hyl::v2::test

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  hyl::v2::test::Input input({data, size});
  for (hyl::v2::test::Dispatch dispatch(input); !input.Empty();) {
    dispatch.Step(input);
  }
  return 0;
}
