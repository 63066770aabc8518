// SPDX-License-Identifier: Apache-2.0
// The binary interface that clients and the framework were built against: the slots of virtual
// operations, the fields of records, and numbers. They are repeated here, apart from the headers,
// so that a change there is noticed.

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <utility>
#include <vector>

#include <hyl/flicker_messages.h>
#include <hyl/rls_msg_access.h>
#include <hyl/sampling_messages.h>

#include "library_test.h"

namespace hyl::v2::test {
namespace {

constexpr const char* kWhatToDo =
    "Existing binaries rely on this. Restore it in the header. If the change is intended, raise "
    "the major version in CMakeLists.txt, and change the number here.";

struct Number {
  const char* what;
  size_t agreed;
  size_t found;
};

#define HYL_NUMBER(agreed, found) \
  { #found, agreed, static_cast < size_t>(found) }

// Offsets in classes with virtual operations are well-defined for g++ and clang++.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof"

// Those that neither the instance's model nor docs/errors.md promises.
const Number kNumbers[] = {
    HYL_NUMBER(1, sizeof(HylErr)),
    HYL_NUMBER(8, sizeof(HylSpectralApi)),
    HYL_NUMBER(8, sizeof(HylSpectralApiCallbackInterface)),
    HYL_NUMBER(4, sizeof(SensorReportingMode)),
    HYL_NUMBER(4, sizeof(OpticalSensorType)),
    HYL_NUMBER(4, sizeof(HylLogLevel)),
    HYL_NUMBER(8, sizeof(FlickerFrequencyMetrics)),
    HYL_NUMBER(0, offsetof(FlickerFrequencyMetrics, metric0)),
    HYL_NUMBER(2, offsetof(FlickerFrequencyMetrics, metric1)),
    HYL_NUMBER(4, offsetof(FlickerFrequencyMetrics, saturation)),
    HYL_NUMBER(6, offsetof(FlickerFrequencyMetrics, metric_byte)),
    HYL_NUMBER(0, offsetof(FlickerSampleBlock, restart)),
    HYL_NUMBER(1, offsetof(FlickerSampleBlock, aux8_0)),
    HYL_NUMBER(2, offsetof(FlickerSampleBlock, aux8_1)),
    HYL_NUMBER(4, offsetof(FlickerSampleBlock, aux16_0)),
    HYL_NUMBER(6, offsetof(FlickerSampleBlock, aux16_1)),
    HYL_NUMBER(8, offsetof(FlickerSampleBlock, aux16_2)),
    HYL_NUMBER(12, offsetof(FlickerSampleBlock, num_samples)),
    HYL_NUMBER(16, offsetof(FlickerSampleBlock, seq_num)),
    HYL_NUMBER(20, offsetof(FlickerSampleBlock, format_param)),
    HYL_NUMBER(24, offsetof(FlickerSampleBlock, aux32_0)),
    HYL_NUMBER(28, offsetof(FlickerSampleBlock, aux32_1)),
    HYL_NUMBER(32, offsetof(FlickerSampleBlock, auxf_0)),
    HYL_NUMBER(36, offsetof(FlickerSampleBlock, auxf_1)),
    HYL_NUMBER(40, offsetof(FlickerSampleBlock, samples)),
    HYL_NUMBER(1, sizeof(HylHeapEnum)),
    HYL_NUMBER(1, HylHeapEnum::kDefault),
    HYL_NUMBER(4, sizeof(ClientType)),
    HYL_NUMBER(8, sizeof(Api)),
    HYL_NUMBER(8, sizeof(Service::AsyncCallbacks)),
    HYL_NUMBER(0, offsetof(SensorListEntry, handle)),
    HYL_NUMBER(4, offsetof(SensorListEntry, name)),
    HYL_NUMBER(7, MessageType::kSample),
    HYL_NUMBER(8, MessageType::kEvents),
    HYL_NUMBER(64, MessageType::kRlsMsgAccessResp),
    HYL_NUMBER(65, MessageType::kFlickerData),
    HYL_NUMBER(66, MessageType::kFlickerFormat),
    HYL_NUMBER(12, offsetof(FlickerFormatResp, format_param)),
    HYL_NUMBER(16, offsetof(FlickerFormatResp, width)),
    HYL_NUMBER(20, offsetof(FlickerFormatResp, little_endian)),
    HYL_NUMBER(21, offsetof(FlickerFormatResp, lsb)),
    HYL_NUMBER(22, offsetof(FlickerFormatResp, msb)),
    HYL_NUMBER(12, offsetof(FlickerDataResp, offset)),
    HYL_NUMBER(24, offsetof(FlickerDataResp, data)),
    HYL_NUMBER(32, offsetof(FlickerDataResp, size)),
    HYL_NUMBER(49, offsetof(FlickerDataResp, aux8_0)),
    HYL_NUMBER(52, offsetof(FlickerDataResp, aux32_0)),
    HYL_NUMBER(56, offsetof(FlickerDataResp, aux32_1)),
    HYL_NUMBER(60, offsetof(FlickerDataResp, auxf_0)),
    HYL_NUMBER(64, offsetof(FlickerDataResp, aux16_0)),
    HYL_NUMBER(66, offsetof(FlickerDataResp, restart)),
    HYL_NUMBER(72, offsetof(FlickerDataResp, aux16_1)),
    HYL_NUMBER(74, offsetof(FlickerDataResp, aux16_2)),
    HYL_NUMBER(76, offsetof(FlickerDataResp, aux8_1)),
    HYL_NUMBER(80, offsetof(FlickerDataResp, auxf_1)),
};

#pragma GCC diagnostic pop
#undef HYL_NUMBER

TEST(AbiHeadersTest, NumbersStayAsAgreed) {
  for (const Number& number : kNumbers) {
    EXPECT_EQ(number.agreed, number.found) << number.what << '\n' << kWhatToDo;
  }
}

/// The slot of a virtual operation. A pointer to one holds it as a byte offset in the first of two
/// words, in both of the known encodings.
template <typename Member>
size_t SlotOf(Member operation) noexcept {
  std::array<uintptr_t, 2> words{};
  static_assert(sizeof(operation) == sizeof(words));
  std::memcpy(words.data(), &operation, sizeof(words));
  return words[0] / sizeof(void*);
}

template <typename... Members>
std::vector<size_t> SlotsOf(Members... operations) {
  return {SlotOf(operations)...};
}

TEST(AbiHeadersTest, OthersOperationsKeepTheirSlots) {
  const std::pair<std::vector<size_t>, std::vector<size_t>> cases[] = {
      {{2, 3, 4},
       SlotsOf(&VectorBase::ConstructElem, &VectorBase::DestroyElem, &VectorBase::MoveElem)},
      {{0, 1}, SlotsOf(&Api::GetSensorList, &Api::InvokeAsyncServiceCall)},
      {{0, 1, 4},
       SlotsOf(&Service::AsyncCallbacks::OnResponse, &Service::AsyncCallbacks::OnError,
               &Service::AsyncCallbacks::OnAuxiliaryEvent)},
      {{2}, SlotsOf(&StopSamplingReq::ClientId)},
      {{2, 3, 4, 5, 6},
       SlotsOf(&StartOnChangeSamplingReq::ClientId, &StartOnChangeSamplingReq::Passive,
               &StartOnChangeSamplingReq::MaxLatency, &StartOnChangeSamplingReq::TransformMask,
               &StartOnChangeSamplingReq::IsWakeUp)},
      {{2, 3, 4, 5, 6, 7, 8, 9},
       SlotsOf(&StartContinuousSamplingReq::ClientId, &StartContinuousSamplingReq::Passive,
               &StartContinuousSamplingReq::MaxLatency, &StartContinuousSamplingReq::TransformMask,
               &StartContinuousSamplingReq::IncludeRuntimeBias,
               &StartContinuousSamplingReq::Reserved, &StartContinuousSamplingReq::Period,
               &StartContinuousSamplingReq::IsWakeUp)},
      {{2, 3, 3}, SlotsOf(&Message::Type, &SamplingStatusResp::Status, &SampleMessage::Sample)},
      {{2, 3},
       SlotsOf(&HylSpectralApiCallbackInterface::OnSpectralData,
               &HylSpectralApiCallbackInterface::OnFlickerData)}};
  for (const auto& [agreed, found] : cases) {
    EXPECT_EQ(agreed, found) << kWhatToDo;
  }
}

/// The slot of an operation of the interface, which must have this signature.
template <typename Signature>
size_t Slot(Signature HylSpectralApi::*operation) noexcept {
  return SlotOf(operation);
}

using ReadFlag = HylErr(const char*, bool*);
using WriteFlag = HylErr(const char*, bool);
using WriteWord = HylErr(const char*, uint32_t, uint32_t*);

/// In the order of their slots.
const size_t kSlots[] = {
    Slot<Vector<HylString>()>(&HylSpectralApi::GetAmbientLightSensorNames),
    Slot<Vector<HylString>()>(&HylSpectralApi::GetFlickerSensorNames),
    Slot<HylString(uint32_t)>(&HylSpectralApi::GetSensorName),
    Slot<HylErr(const char*, uint32_t&, SensorReportingMode)>(
        &HylSpectralApi::EnableAmbientLightSensor),
    Slot<HylErr(uint32_t, SensorReportingMode)>(&HylSpectralApi::ChangeAmbientLightSensorReporting),
    Slot<HylErr(const char*, int*, size_t, uint8_t, uint32_t&)>(
        &HylSpectralApi::EnableFlickerSensor),
    Slot<HylErr(uint32_t)>(&HylSpectralApi::DisableAmbientLightSensor),
    Slot<HylErr(uint32_t)>(&HylSpectralApi::DisableFlickerSensor),
    Slot<ReadFlag>(&HylSpectralApi::GetFlickerAutoGainEnabled),
    Slot<HylErr(const char*, uint32_t*, float*)>(&HylSpectralApi::GetFlickerConfig),
    Slot<HylErr(const char*, FlickerFrequencyMetrics*)>(
        &HylSpectralApi::GetFlickerFrequencyMetrics),
    Slot<HylErr(const char*, uint16_t*)>(&HylSpectralApi::GetFlickerSaturation),
    Slot<HylErr(const char*, uint8_t, uint8_t*)>(&HylSpectralApi::GetRegister),
    Slot<ReadFlag>(&HylSpectralApi::GetSpectralAutoGainEnabled),
    Slot<ReadFlag>(&HylSpectralApi::GetSpectralApplyFacCal),
    Slot<ReadFlag>(&HylSpectralApi::GetSpectralApplyOtpCal),
    Slot<HylErr(const char*, uint64_t*)>(&HylSpectralApi::GetDeviceUid),
    Slot<bool(OpticalSensorType, const char*) const>(&HylSpectralApi::IsSensorSupported),
    Slot<WriteWord>(&HylSpectralApi::SetExposureTime),
    Slot<WriteFlag>(&HylSpectralApi::SetFlickerAutoGainEnabled),
    Slot<HylErr(const char*, uint8_t, uint8_t)>(&HylSpectralApi::SetFlickerChannel),
    Slot<HylErr(const char*, uint8_t)>(&HylSpectralApi::SetFlickerPedestal),
    Slot<HylErr(const char*, uint8_t, float, float*)>(&HylSpectralApi::SetGain),
    Slot<HylErr(const char*, uint8_t, uint8_t)>(&HylSpectralApi::SetRegister),
    Slot<WriteWord>(&HylSpectralApi::SetSamplingPeriod),
    Slot<WriteFlag>(&HylSpectralApi::SetSpectralAutoGainEnabled),
    Slot<WriteFlag>(&HylSpectralApi::SetSpectralApplyFacCalEnabled),
    Slot<WriteFlag>(&HylSpectralApi::SetSpectralApplyOtpCalEnabled),
    Slot<WriteFlag>(&HylSpectralApi::SetTorchLightState),
};

TEST(AbiHeadersTest, OperationsKeepTheirSlots) {
  for (size_t slot = 0; slot < std::size(kSlots); ++slot) {
    EXPECT_EQ(slot, kSlots[slot]) << kWhatToDo;
  }
}

/// The machine words of an object.
template <typename Object>
std::array<uintptr_t, sizeof(Object) / sizeof(uintptr_t)> Words(const Object& object) {
  std::array<uintptr_t, sizeof(Object) / sizeof(uintptr_t)> words{};
  std::memcpy(words.data(), static_cast<const void*>(&object), sizeof(object));
  return words;
}

TEST(AbiHeadersTest, ContainersHoldTheirWords) {
  HylString text;
  text.assign("text");
  EXPECT_EQ(reinterpret_cast<uintptr_t>(text.data()), Words(text)[0]) << kWhatToDo;
  Vector<float> vector;
  ASSERT_EQ(HylErr::kOk, vector.Resize(3));
  EXPECT_EQ(reinterpret_cast<uintptr_t>(vector.data()), Words(vector)[1]) << kWhatToDo;
  EXPECT_EQ(3U, Words(vector)[2]) << kWhatToDo;
}

// --- the built library ---

using AbiTest = LibraryTest;

/// Calls a destructor in the object's table, as a client's machine code does.
void CallSlot(HylSpectralApi* api, size_t slot) {
  using Function = void (*)(HylSpectralApi*);
  Function const* table = nullptr;
  std::memcpy(&table, static_cast<void*>(api), sizeof(table));
  table[slot](api);
}

TEST_F(AbiTest, DestructorsComeLast) {
  instance.reset();
  constexpr size_t kComplete = std::size(kSlots);
  constexpr size_t kDeleting = kComplete + 1;
  for (const size_t slot : {kComplete, kDeleting}) {
    HylSpectralApi* api = nullptr;
    ASSERT_EQ(HylErr::kOk, HylSpectralApi::Create(&api, nullptr, HylLogLevel::kInfo));
    CallSlot(api, slot);
    EXPECT_EQ(0, framework.LiveApis()) << "slot " << slot << '\n' << kWhatToDo;
    if (slot == kComplete) {
      ::operator delete(static_cast<void*>(api));  // a second deletion if the slot did it already
    }
  }
}

}  // namespace
}  // namespace hyl::v2::test
