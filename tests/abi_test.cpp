// What clients that were built earlier rely on: the slots of the virtual operations.

#include <array>
#include <cstdint>
#include <cstring>

#include <hyl/sampling_messages.h>

#include "library_test.h"

namespace hyl::v2::test {
namespace {

/// The slot of a virtual operation, from a pointer to it, which both of the known encodings hold as
/// a byte offset in the first of two words.
template <typename Member>
size_t SlotOf(Member operation) {
  std::array<uintptr_t, 2> words{};
  static_assert(sizeof(operation) == sizeof(words));
  std::memcpy(words.data(), &operation, sizeof(words));
  return words[0] / sizeof(void*);
}

TEST(AbiTest, OperationsKeepTheirSlots) {
  using Api = HylSpectralApi;
  const size_t slots[] = {
      SlotOf(&Api::GetAmbientLightSensorNames),
      SlotOf(&Api::GetFlickerSensorNames),
      SlotOf(&Api::GetSensorName),
      SlotOf(&Api::EnableAmbientLightSensor),
      SlotOf(&Api::ChangeAmbientLightSensorReporting),
      SlotOf(&Api::EnableFlickerSensor),
      SlotOf(&Api::DisableAmbientLightSensor),
      SlotOf(&Api::DisableFlickerSensor),
      SlotOf(&Api::GetFlickerAutoGainEnabled),
      SlotOf(&Api::GetFlickerConfig),
      SlotOf(&Api::GetFlickerFrequencyMetrics),
      SlotOf(&Api::GetFlickerSaturation),
      SlotOf(&Api::GetRegister),
      SlotOf(&Api::GetSpectralAutoGainEnabled),
      SlotOf(&Api::GetSpectralApplyFacCal),
      SlotOf(&Api::GetSpectralApplyOtpCal),
      SlotOf(&Api::GetDeviceUid),
      SlotOf(&Api::IsSensorSupported),
      SlotOf(&Api::SetExposureTime),
      SlotOf(&Api::SetFlickerAutoGainEnabled),
      SlotOf(&Api::SetFlickerChannel),
      SlotOf(&Api::SetFlickerPedestal),
      SlotOf(&Api::SetGain),
      SlotOf(&Api::SetRegister),
      SlotOf(&Api::SetSamplingPeriod),
      SlotOf(&Api::SetSpectralAutoGainEnabled),
      SlotOf(&Api::SetSpectralApplyFacCalEnabled),
      SlotOf(&Api::SetSpectralApplyOtpCalEnabled),
      SlotOf(&Api::SetTorchLightState),
  };
  for (size_t slot = 0; slot < std::size(slots); ++slot) {
    EXPECT_EQ(slot, slots[slot]);
  }
  EXPECT_EQ(2U, SlotOf(&HylSpectralApiCallbackInterface::OnSpectralData));
  EXPECT_EQ(3U, SlotOf(&HylSpectralApiCallbackInterface::OnFlickerData));
}

TEST(AbiTest, TheFrameworkIsCalledThroughItsOwnSlots) {
  using OnChange = StartOnChangeSamplingReq;
  using Continuous = StartContinuousSamplingReq;
  // Where an operation stands after a destructor, that takes the two slots before it.
  const std::array<std::array<size_t, 2>, 25> slots = {{
      {0, SlotOf(&Api::GetSensorList)},
      {1, SlotOf(&Api::InvokeAsyncServiceCall)},
      {0, SlotOf(&Service::AsyncCallbacks::OnResponse)},
      {1, SlotOf(&Service::AsyncCallbacks::OnError)},
      {4, SlotOf(&Service::AsyncCallbacks::OnAuxiliaryEvent)},
      {2, SlotOf(&Message::Type)},
      {3, SlotOf(&SamplingStatusResp::Status)},
      {3, SlotOf(&SampleMessage::Sample)},
      {2, SlotOf(&StopSamplingReq::ClientId)},
      {2, SlotOf(&OnChange::ClientId)},
      {3, SlotOf(&OnChange::Passive)},
      {4, SlotOf(&OnChange::MaxLatency)},
      {5, SlotOf(&OnChange::TransformMask)},
      {6, SlotOf(&OnChange::IsWakeUp)},
      {2, SlotOf(&Continuous::ClientId)},
      {3, SlotOf(&Continuous::Passive)},
      {4, SlotOf(&Continuous::MaxLatency)},
      {5, SlotOf(&Continuous::TransformMask)},
      {6, SlotOf(&Continuous::IncludeRuntimeBias)},
      {7, SlotOf(&Continuous::Reserved)},
      {8, SlotOf(&Continuous::Period)},
      {9, SlotOf(&Continuous::IsWakeUp)},
      {2, SlotOf(&VectorBase::ConstructElem)},
      {3, SlotOf(&VectorBase::DestroyElem)},
      {4, SlotOf(&VectorBase::MoveElem)},
  }};
  for (size_t row = 0; row < slots.size(); ++row) {
    EXPECT_EQ(slots[row][0], slots[row][1]) << "row " << row;
  }
}

TEST(AbiTest, DestructorsComeLast) {
  ScriptedApi framework;
  constexpr size_t kComplete = 29;
  constexpr size_t kDeleting = 30;
  for (const size_t slot : {kComplete, kDeleting}) {
    HylSpectralApi* api = nullptr;
    HylSpectralApi::Create(&api, nullptr, HylLogLevel::kInfo);
    using Destructor = void (*)(void*);
    Destructor const* table = nullptr;
    std::memcpy(&table, static_cast<void*>(api), sizeof(table));
    table[slot](api);
    EXPECT_EQ(0, framework.live_apis());
    if (slot == kComplete) {
      ::operator delete(static_cast<void*>(api));  // a second deletion if the slot did it already
    }
  }
}

}  // namespace
}  // namespace hyl::v2::test
