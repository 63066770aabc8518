// What clients that were built earlier, and the framework, rely on: which slot of an object's table
// of virtual operations holds what. The operations are called through the table itself, by number.

#include <array>
#include <cstdint>
#include <cstring>
#include <set>
#include <utility>
#include <vector>

#include <hyl/rls_msg_access.h>
#include <hyl/sampling_messages.h>

#include "library_test.h"

namespace hyl::v2::test {
namespace {

constexpr const char kWhatToDo[] =
    "\nWhat was built earlier calls by slot: restore the order of the virtual operations, and their"
    " arguments, in v2/api/include/hyl/hyl_spectral_api.h,\nhyl_spectral_api_callback_interface.h "
    "or"
    " v2/core/include/hyl. If it is meant to change, raise the major version in CMakeLists.txt,"
    " and the number here.";

/// Calls what stands at a slot of the object's table, as a client's machine code does.
template <typename Result, typename... Arguments>
Result CallSlot(HylSpectralApi* api, size_t slot, Arguments... arguments) {
  using Function = Result (*)(HylSpectralApi*, Arguments...);
  Function const* table = nullptr;
  std::memcpy(&table, static_cast<void*>(api), sizeof(table));
  return table[slot](api, arguments...);
}

/// An argument of type T that every setting accepts.
template <typename T>
struct Argument {
  T Get() const { return T{}; }
};
template <typename T>
struct Argument<T*> {
  T* Get() { return &target; }
  T target{};
};

/// Calls a settings operation that takes a sensor's name and then the given types.
template <typename... Arguments>
HylErr CallSetting(HylSpectralApi* api, size_t slot) {
  const char* const any_sensor = nullptr;
  return CallSlot<HylErr>(api, slot, any_sensor, Argument<Arguments>().Get()...);
}

struct SettingSlot {
  size_t slot;
  RlsAccess access;
  RlsCommand command;
  HylErr (*call)(HylSpectralApi* api, size_t slot);
};

constexpr SettingSlot kSettingSlots[] = {
    {8, RlsAccess::kRead, RlsCommand::kFlickerAutoGain, CallSetting<bool*>},
    {9, RlsAccess::kRead, RlsCommand::kFlickerConfig, CallSetting<uint32_t*, float*>},
    {10, RlsAccess::kRead, RlsCommand::kFlickerFrequencyMetrics,
     CallSetting<FlickerFrequencyMetrics*>},
    {11, RlsAccess::kRead, RlsCommand::kFlickerSaturation, CallSetting<uint16_t*>},
    {12, RlsAccess::kRead, RlsCommand::kRegister, CallSetting<uint8_t, uint8_t*>},
    {13, RlsAccess::kRead, RlsCommand::kSpectralAutoGain, CallSetting<bool*>},
    {14, RlsAccess::kRead, RlsCommand::kApplyFacCal, CallSetting<bool*>},
    {15, RlsAccess::kRead, RlsCommand::kApplyOtpCal, CallSetting<bool*>},
    {16, RlsAccess::kRead, RlsCommand::kDeviceUid, CallSetting<uint64_t*>},
    {18, RlsAccess::kWrite, RlsCommand::kExposureTime, CallSetting<uint32_t, uint32_t*>},
    {19, RlsAccess::kWrite, RlsCommand::kFlickerAutoGain, CallSetting<bool>},
    {20, RlsAccess::kWrite, RlsCommand::kFlickerChannel, CallSetting<uint8_t, uint8_t>},
    {21, RlsAccess::kWrite, RlsCommand::kFlickerPedestal, CallSetting<uint8_t>},
    {22, RlsAccess::kWrite, RlsCommand::kGain, CallSetting<uint8_t, float, float*>},
    {23, RlsAccess::kWrite, RlsCommand::kRegister, CallSetting<uint8_t, uint8_t>},
    {24, RlsAccess::kWrite, RlsCommand::kSamplingPeriod, CallSetting<uint32_t, uint32_t*>},
    {25, RlsAccess::kWrite, RlsCommand::kSpectralAutoGain, CallSetting<bool>},
    {26, RlsAccess::kWrite, RlsCommand::kApplyFacCal, CallSetting<bool>},
    {27, RlsAccess::kWrite, RlsCommand::kApplyOtpCal, CallSetting<bool>},
    {28, RlsAccess::kWrite, RlsCommand::kTorchLight, CallSetting<bool>},
};

class AbiTest : public LibraryTest {
 protected:
  using Running = std::set<std::pair<uint32_t, uint32_t>>;
};

TEST_F(AbiTest, SettingsKeepTheirSlots) {
  framework.AnswerWith(ScriptedFramework::Echo);
  for (const SettingSlot& row : kSettingSlots) {
    EXPECT_EQ(HylErr::kOk, row.call(instance.get(), row.slot)) << "slot " << row.slot << kWhatToDo;
    const std::vector<FrameworkCall> calls = framework.TakeInvokes();
    ASSERT_EQ(1U, calls.size()) << "slot " << row.slot << kWhatToDo;
    EXPECT_EQ(static_cast<uint8_t>(row.access), BytesOf(calls[0])[1])
        << "slot " << row.slot << kWhatToDo;
    EXPECT_EQ(static_cast<uint8_t>(row.command), BytesOf(calls[0])[2])
        << "slot " << row.slot << kWhatToDo;
  }
}

TEST_F(AbiTest, NamesKeepTheirSlots) {
  const auto rear_and_front = CallSlot<Vector<HylString>>(instance.get(), 0);
  ASSERT_EQ(2U, rear_and_front.size()) << "slot 0" << kWhatToDo;
  const auto flicker = CallSlot<Vector<HylString>>(instance.get(), 1);
  ASSERT_EQ(1U, flicker.size()) << "slot 1" << kWhatToDo;
  EXPECT_STREQ("Flicker", flicker[0].c_str()) << "slot 1" << kWhatToDo;
  const uint32_t id = Enable("Front ALS");
  EXPECT_STREQ("Front ALS", CallSlot<HylString>(instance.get(), 2, id).c_str()) << kWhatToDo;
  const char* const name = "Flicker";
  EXPECT_TRUE(CallSlot<bool>(instance.get(), 17, OpticalSensorType::kFlicker, name)) << kWhatToDo;
  EXPECT_FALSE(CallSlot<bool>(instance.get(), 17, OpticalSensorType::kAmbientLight, name))
      << kWhatToDo;
}

TEST_F(AbiTest, SensorOperationsKeepTheirSlots) {
  HylSpectralApi* const api = instance.get();
  const char* const any = nullptr;
  uint32_t id = 0;
  EXPECT_EQ(HylErr::kOk, CallSlot<HylErr>(api, 3, any, &id, kContinuous)) << kWhatToDo;
  EXPECT_EQ((Running{{kRearContinuous, 0x0A0003F4}}), framework.Running()) << kWhatToDo;
  EXPECT_EQ(HylErr::kOk, CallSlot<HylErr>(api, 4, id, kOnChange)) << kWhatToDo;
  EXPECT_EQ((Running{{kRearOnChange, 0x0A00000C}}), framework.Running()) << kWhatToDo;
  EXPECT_EQ(HylErr::kOk, CallSlot<HylErr>(api, 6, id)) << kWhatToDo;
  EXPECT_EQ(Running{}, framework.Running()) << kWhatToDo;
  EXPECT_EQ(HylErr::kOk, CallSlot<HylErr>(api, 5, any, &buffer[0], std::size(buffer),
                                          static_cast<uint8_t>(16), &id))
      << kWhatToDo;
  EXPECT_EQ((Running{{kFlicker, 0x0A00000D}}), framework.Running()) << kWhatToDo;
  EXPECT_EQ(HylErr::kOk, CallSlot<HylErr>(api, 7, id)) << kWhatToDo;
  EXPECT_EQ(Running{}, framework.Running()) << kWhatToDo;
}

/// A client's callback object without a class: a table of functions, which note who was called.
/// They follow no pointer, since one called in the place of another gets other arguments.
struct RawClient {
  static void Never(RawClient* self) { self->called = -1; }
  static void OnSpectralData(RawClient* self, uint32_t kind, uint32_t session, const void*,
                             int64_t timestamp) {
    self->called = kind == 0 && timestamp == 5 ? 2 : -1;
    self->session = session;
  }
  static void OnFlickerData(RawClient* self, uint32_t session, const void*) {
    self->called = 3;
    self->session = session;
  }

  void (*const* table)();
  int called = 0;
  uint32_t session = 0;
};

TEST_F(AbiTest, ClientCallbacksKeepTheirSlots) {
  using Slot = void (*)();
  const Slot table[] = {reinterpret_cast<Slot>(RawClient::Never),
                        reinterpret_cast<Slot>(RawClient::Never),
                        reinterpret_cast<Slot>(RawClient::OnSpectralData),
                        reinterpret_cast<Slot>(RawClient::OnFlickerData)};
  RawClient raw{.table = table};
  Instance raw_instance(reinterpret_cast<HylSpectralApiCallbackInterface*>(&raw));
  uint32_t id = 0;
  ASSERT_EQ(HylErr::kOk, raw_instance->EnableAmbientLightSensor(nullptr, id, kContinuous));
  framework.Deliver(kRearContinuous, SpectralMessage({1, 2}, 5));
  EXPECT_EQ(2, raw.called) << kWhatToDo;
  EXPECT_EQ(id, raw.session) << kWhatToDo;
  ASSERT_EQ(HylErr::kOk,
            raw_instance->EnableFlickerSensor(nullptr, buffer, std::size(buffer), 16, id));
  framework.Deliver(kFlicker, FlickerFormatMessage(FlickerFormatSampleWidth::k16BitsIn2));
  framework.Deliver(kFlicker, FlickerDataMessage({1, 2, 3, 4}));
  EXPECT_EQ(3, raw.called) << kWhatToDo;
  EXPECT_EQ(id, raw.session) << kWhatToDo;
}

/// The slot of a virtual operation, from a pointer to it, which both of the known encodings hold as
/// a byte offset in the first of two words.
template <typename Member>
size_t SlotOf(Member operation) {
  std::array<uintptr_t, 2> words{};
  static_assert(sizeof(operation) == sizeof(words));
  std::memcpy(words.data(), &operation, sizeof(words));
  return words[0] / sizeof(void*);
}

TEST(AbiSlotsTest, TheFrameworkIsCalledThroughItsOwnSlots) {
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
    EXPECT_EQ(slots[row][0], slots[row][1]) << "row " << row << kWhatToDo;
  }
}

TEST(AbiSlotsTest, DestructorsComeLast) {
  ScriptedFramework framework;
  constexpr size_t kComplete = 29;
  constexpr size_t kDeleting = 30;
  for (const size_t slot : {kComplete, kDeleting}) {
    HylSpectralApi* api = nullptr;
    HylSpectralApi::Create(&api, nullptr, HylLogLevel::kInfo);
    using Destructor = void (*)(void*);
    Destructor const* table = nullptr;
    std::memcpy(&table, static_cast<void*>(api), sizeof(table));
    table[slot](api);
    EXPECT_EQ(0, framework.live_apis()) << "slot " << slot << kWhatToDo;
    if (slot == kComplete) {
      ::operator delete(static_cast<void*>(api));  // a second deletion if the slot did it already
    }
  }
}

}  // namespace
}  // namespace hyl::v2::test
