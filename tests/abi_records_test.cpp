// What clients and the framework were built against: sizes, clients' fields, and numbers. They
// stand here once more, apart from the headers, so that a change of both sides at once does not
// pass unseen. The fields of requests and messages are in the tests that look at their bytes.

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include <gtest/gtest.h>
#include <hyl/api.h>
#include <hyl/flicker_messages.h>
#include <hyl/hyl_spectral_api.h>
#include <hyl/rls_msg_access.h>
#include <hyl/sampling_messages.h>

namespace hyl::v2::test {
namespace {

struct Number {
  const char* what;
  size_t agreed;
  size_t found;
};

// Offsets in classes with virtual operations are well-defined for g++ and clang++.
#pragma GCC diagnostic ignored "-Winvalid-offsetof"
#define HYL_SIZE(type, size)                 \
  Number {                                   \
    "the size of " #type, size, sizeof(type) \
  }
#define HYL_AT(offset, record, field)                    \
  Number {                                               \
#record "::" #field, offset, offsetof(record, field) \
  }
#define HYL_VALUE(value, name)                \
  Number {                                    \
#name, value, static_cast < size_t>(name) \
  }

constexpr Number kNumbers[] = {
    // hyl_spectral_api.h, hyl_err.h
    HYL_SIZE(HylSpectralApi, 8),
    HYL_SIZE(HylErr, 1),
    HYL_VALUE(0, HylErr::kOk),
    HYL_VALUE(2, HylErr::kFailed),
    HYL_VALUE(7, HylErr::kNotFound),
    HYL_VALUE(9, HylErr::kInvalidArgument),
    HYL_VALUE(15, HylErr::kNullPointer),
    HYL_VALUE(17, HylErr::kNoSession),
    HYL_VALUE(19, HylErr::kAlreadyRunning),
    HYL_SIZE(SensorReportingMode, 4),
    HYL_VALUE(1, SensorReportingMode::kContinuous),
    HYL_VALUE(2, SensorReportingMode::kOnChange),
    HYL_SIZE(OpticalSensorType, 4),
    HYL_VALUE(0, OpticalSensorType::kAmbientLight),
    HYL_VALUE(1, OpticalSensorType::kFlicker),
    HYL_VALUE(3, OpticalSensorType::kAnyOptical),
    HYL_SIZE(HylLogLevel, 4),
    HYL_SIZE(FlickerFrequencyMetrics, 8),
    HYL_AT(0, FlickerFrequencyMetrics, metric0),
    HYL_AT(2, FlickerFrequencyMetrics, metric1),
    HYL_AT(4, FlickerFrequencyMetrics, saturation),
    HYL_AT(6, FlickerFrequencyMetrics, metric_byte),
    // hyl_spectral_api_callback_interface.h
    HYL_SIZE(HylSpectralApiCallbackInterface, 8),
    HYL_SIZE(FlickerSampleBlock, 48),
    HYL_AT(0, FlickerSampleBlock, restart),
    HYL_AT(1, FlickerSampleBlock, aux8_0),
    HYL_AT(2, FlickerSampleBlock, aux8_1),
    HYL_AT(4, FlickerSampleBlock, aux16_0),
    HYL_AT(6, FlickerSampleBlock, aux16_1),
    HYL_AT(8, FlickerSampleBlock, aux16_2),
    HYL_AT(12, FlickerSampleBlock, num_samples),
    HYL_AT(16, FlickerSampleBlock, seq_num),
    HYL_AT(20, FlickerSampleBlock, format_param),
    HYL_AT(24, FlickerSampleBlock, aux32_0),
    HYL_AT(28, FlickerSampleBlock, aux32_1),
    HYL_AT(32, FlickerSampleBlock, auxf_0),
    HYL_AT(36, FlickerSampleBlock, auxf_1),
    HYL_AT(40, FlickerSampleBlock, samples),
    // api.h, service.h
    HYL_VALUE(10, ClientType::kSpectral),
    HYL_SIZE(ClientType, 4),
    HYL_SIZE(Api, 8),
    HYL_SIZE(Service::AsyncCallbacks, 8),
    HYL_SIZE(SensorListEntry, 44),
    HYL_AT(0, SensorListEntry, handle),
    HYL_AT(4, SensorListEntry, name),
    // hyl_string.h, vector.h; their fields are private: TheContainersHoldTheirWords
    HYL_SIZE(HylString, 24),
    HYL_SIZE(Vector<HylString>, 32),
    HYL_VALUE(1, HylHeapEnum::kDefault),
    HYL_SIZE(HylHeapEnum, 1),
    // request.h, rls_msg_access.h
    HYL_VALUE(2, RequestType::kStartOnChangeSampling),
    HYL_VALUE(3, RequestType::kStartContinuousSampling),
    HYL_VALUE(4, RequestType::kStopSampling),
    HYL_VALUE(64, RequestType::kRlsMsgAccess),
    HYL_SIZE(StopSamplingReq, 16),
    HYL_SIZE(StartOnChangeSamplingReq, 40),
    HYL_SIZE(StartContinuousSamplingReq, 56),
    HYL_SIZE(RlsMsgAccessReq, 64),
    HYL_SIZE(RlsMsgAccessResp, 64),
    // message.h, sampling_messages.h, ref_counted_sensor_event.h, flicker_messages.h
    HYL_VALUE(7, MessageType::kSample),
    HYL_VALUE(8, MessageType::kEvents),
    HYL_VALUE(64, MessageType::kRlsMsgAccessResp),
    HYL_VALUE(65, MessageType::kFlickerData),
    HYL_VALUE(66, MessageType::kFlickerFormat),
    HYL_SIZE(Message, 8),
    HYL_SIZE(SpectralSample, 96),
    HYL_SIZE(EventMessage, 32),
    HYL_SIZE(RefCountedSensorEvent, 24),
    HYL_SIZE(FlickerFormatResp, 24),
    HYL_SIZE(FlickerDataResp, 88),
};

#undef HYL_SIZE
#undef HYL_AT
#undef HYL_VALUE

TEST(AbiRecordsTest, SizesFieldsAndNumbersStayAsAgreed) {
  for (const Number& number : kNumbers) {
    EXPECT_EQ(number.agreed, number.found)
        << number.what << "\nhas changed, and what was built against it no longer fits. Restore it"
        << " in the header, which the comment above its line in " << __FILE__ << " names. If it is"
        << " meant to change, raise the major version in CMakeLists.txt, and this number.";
  }
}

/// The machine words of an object.
template <typename Object>
std::array<uintptr_t, sizeof(Object) / sizeof(uintptr_t)> Words(const Object& object) {
  std::array<uintptr_t, sizeof(Object) / sizeof(uintptr_t)> words{};
  std::memcpy(words.data(), static_cast<const void*>(&object), sizeof(object));
  return words;
}

TEST(AbiRecordsTest, TheContainersHoldTheirWords) {
  HylString text;
  text.assign("text");
  EXPECT_EQ(reinterpret_cast<uintptr_t>(text.data()), Words(text)[0]);
  Vector<float> vector;
  ASSERT_EQ(HylErr::kOk, vector.Resize(3));
  EXPECT_EQ(reinterpret_cast<uintptr_t>(vector.data()), Words(vector)[1]);
  EXPECT_EQ(3U, Words(vector)[2]);
}

}  // namespace
}  // namespace hyl::v2::test
