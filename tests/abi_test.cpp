// The binary interface that clients and the framework were built against: the slots of virtual
// operations, the fields of records, and numbers. They are repeated here, apart from the headers,
// so that a change there is noticed.

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <numeric>
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

// Those that neither the tests of requests and messages nor docs/errors.md promise.
const Number kNumbers[] = {
    HYL_NUMBER(1, sizeof(HylErr)),
    HYL_NUMBER(8, kMaxSessions),
    HYL_NUMBER(255, kMaxPriority),
    HYL_NUMBER(8, sizeof(HylSpectralApi)),
    HYL_NUMBER(8, sizeof(HylSpectralApiCallbackInterface)),
    HYL_NUMBER(4, sizeof(SensorReportingMode)),
    HYL_NUMBER(1, SensorReportingMode::kContinuous),
    HYL_NUMBER(2, SensorReportingMode::kOnChange),
    HYL_NUMBER(4, sizeof(OpticalSensorType)),
    HYL_NUMBER(0, OpticalSensorType::kAmbientLight),
    HYL_NUMBER(1, OpticalSensorType::kFlicker),
    HYL_NUMBER(3, OpticalSensorType::kAnyOptical),
    HYL_NUMBER(4, sizeof(HylLogLevel)),
    HYL_NUMBER(8, sizeof(FlickerFrequencyMetrics)),
    HYL_NUMBER(0, offsetof(FlickerFrequencyMetrics, metric0)),
    HYL_NUMBER(2, offsetof(FlickerFrequencyMetrics, metric1)),
    HYL_NUMBER(4, offsetof(FlickerFrequencyMetrics, saturation)),
    HYL_NUMBER(6, offsetof(FlickerFrequencyMetrics, metric_byte)),
    HYL_NUMBER(1, sizeof(HylHeapEnum)),
    HYL_NUMBER(1, HylHeapEnum::kDefault),
    HYL_NUMBER(4, sizeof(ClientType)),
    HYL_NUMBER(10, ClientType::kSpectral),
    HYL_NUMBER(8, sizeof(Api)),
    HYL_NUMBER(8, sizeof(Service::AsyncCallbacks)),
    HYL_NUMBER(0, offsetof(SensorListEntry, handle)),
    HYL_NUMBER(4, offsetof(SensorListEntry, name)),
    HYL_NUMBER(7, MessageType::kSample),
    HYL_NUMBER(64, MessageType::kRlsMsgAccessResp),
};

#undef HYL_NUMBER

TEST(AbiHeadersTest, NumbersStayAsAgreed) {
  for (const Number& number : kNumbers) {
    EXPECT_EQ(number.agreed, number.found) << number.what << '\n' << kWhatToDo;
  }
}

/// The slots of virtual operations. A pointer to one holds its slot as a byte offset in the first
/// of two words, in both of the known encodings.
template <typename... Members>
std::vector<size_t> SlotsOf(Members... operations) {
  const auto slot_of = [](auto operation) {
    std::array<uintptr_t, 2> words{};
    static_assert(sizeof(operation) == sizeof(words));
    std::memcpy(words.data(), &operation, sizeof(words));
    return words[0] / sizeof(void*);
  };
  return {slot_of(operations)...};
}

TEST(AbiHeadersTest, TheFrameworksOperationsKeepTheirSlots) {
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
      {{3, 3}, SlotsOf(&SamplingStatusResp::Status, &SampleMessage::Sample)}};
  for (const auto& [agreed, found] : cases) {
    EXPECT_EQ(agreed, found) << kWhatToDo;
  }
}

/// The slot of an operation of the interface, which must have this signature.
template <typename Signature>
size_t SlotOf(Signature HylSpectralApi::*operation) {
  return SlotsOf(operation)[0];
}

using ReadFlag = HylErr(const char*, bool*);
using WriteFlag = HylErr(const char*, bool);
using WriteWord = HylErr(const char*, uint32_t, uint32_t*);

/// In the order of their slots.
const size_t kSlots[] = {
    SlotOf<Vector<HylString>()>(&HylSpectralApi::GetAmbientLightSensorNames),
    SlotOf<Vector<HylString>()>(&HylSpectralApi::GetFlickerSensorNames),
    SlotOf<HylString(uint32_t)>(&HylSpectralApi::GetSensorName),
    SlotOf<HylErr(const char*, uint32_t&, SensorReportingMode)>(
        &HylSpectralApi::EnableAmbientLightSensor),
    SlotOf<HylErr(uint32_t, SensorReportingMode)>(
        &HylSpectralApi::ChangeAmbientLightSensorReporting),
    SlotOf<HylErr(const char*, int*, size_t, uint8_t, uint32_t&)>(
        &HylSpectralApi::EnableFlickerSensor),
    SlotOf<HylErr(uint32_t)>(&HylSpectralApi::DisableAmbientLightSensor),
    SlotOf<HylErr(uint32_t)>(&HylSpectralApi::DisableFlickerSensor),
    SlotOf<ReadFlag>(&HylSpectralApi::GetFlickerAutoGainEnabled),
    SlotOf<HylErr(const char*, uint32_t*, float*)>(&HylSpectralApi::GetFlickerConfig),
    SlotOf<HylErr(const char*, FlickerFrequencyMetrics*)>(
        &HylSpectralApi::GetFlickerFrequencyMetrics),
    SlotOf<HylErr(const char*, uint16_t*)>(&HylSpectralApi::GetFlickerSaturation),
    SlotOf<HylErr(const char*, uint8_t, uint8_t*)>(&HylSpectralApi::GetRegister),
    SlotOf<ReadFlag>(&HylSpectralApi::GetSpectralAutoGainEnabled),
    SlotOf<ReadFlag>(&HylSpectralApi::GetSpectralApplyFacCal),
    SlotOf<ReadFlag>(&HylSpectralApi::GetSpectralApplyOtpCal),
    SlotOf<HylErr(const char*, uint64_t*)>(&HylSpectralApi::GetDeviceUid),
    SlotOf<bool(OpticalSensorType, const char*) const>(&HylSpectralApi::IsSensorSupported),
    SlotOf<WriteWord>(&HylSpectralApi::SetExposureTime),
    SlotOf<WriteFlag>(&HylSpectralApi::SetFlickerAutoGainEnabled),
    SlotOf<HylErr(const char*, uint8_t, uint8_t)>(&HylSpectralApi::SetFlickerChannel),
    SlotOf<HylErr(const char*, uint8_t)>(&HylSpectralApi::SetFlickerPedestal),
    SlotOf<HylErr(const char*, uint8_t, float, float*)>(&HylSpectralApi::SetGain),
    SlotOf<HylErr(const char*, uint8_t, uint8_t)>(&HylSpectralApi::SetRegister),
    SlotOf<WriteWord>(&HylSpectralApi::SetSamplingPeriod),
    SlotOf<WriteFlag>(&HylSpectralApi::SetSpectralAutoGainEnabled),
    SlotOf<WriteFlag>(&HylSpectralApi::SetSpectralApplyFacCalEnabled),
    SlotOf<WriteFlag>(&HylSpectralApi::SetSpectralApplyOtpCalEnabled),
    SlotOf<WriteFlag>(&HylSpectralApi::SetTorchLightState),
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
  instance.Destroy();
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

using Slot = void (*)();

/// A client's callback object without a class: a table of functions that record which was called.
struct RawClient {
  static void Never(RawClient* self) { self->called = -1; }
  static void OnSpectralData(RawClient* self, uint32_t kind, uint32_t id, const void*,
                             int64_t timestamp) {
    self->called = kind == 0 && timestamp == 5 ? 2 : -1;
    self->session = id;
  }
  static void OnFlickerData(RawClient* self, uint32_t id, const void* block) {
    self->called = 3;
    self->session = id;
    std::memcpy(self->block.data(), block, self->block.size());
  }

  static inline const Slot kTable[] = {reinterpret_cast<Slot>(Never), reinterpret_cast<Slot>(Never),
                                       reinterpret_cast<Slot>(OnSpectralData),
                                       reinterpret_cast<Slot>(OnFlickerData)};
  const Slot* table = kTable;
  int called = 0;
  uint32_t session = 0;
  std::array<uint8_t, 48> block{};
};

/// A message without a class: a table with its type, and bytes that each hold their offset, except
/// for the fields that Put sets.
template <uint8_t kType, size_t kSize>
class RawMessage {
 public:
  RawMessage() { std::iota(bytes_.begin(), bytes_.end(), static_cast<uint8_t>(sizeof(table_))); }
  template <typename T>
  void Put(size_t offset, T value) {
    std::memcpy(&bytes_.at(offset - sizeof(table_)), &value, sizeof(value));
  }
  const Message& operator*() const { return reinterpret_cast<const Message&>(*this); }

 private:
  static uint8_t Type(const void*) { return kType; }

  static inline const Slot kTable[] = {nullptr, nullptr, reinterpret_cast<Slot>(Type)};
  const Slot* table_ = kTable;
  std::array<uint8_t, kSize - sizeof(table_)> bytes_;
};

constexpr int kPadding = -1;
/// The bytes of a block up to its pointer. Most are copies of a RawMessage's bytes.
constexpr int kBlock[40] = {
    66,   49,   76,       kPadding, 64, 65, 72, 73,
    74,   75,   kPadding, kPadding, 1,  0,  0,  0,  // num_samples
    0x86, 0x06, 0x87,     0x07,  // seq_num: half of the offset in the message, 0x0F0E0D0C
    12,   13,   14,       15,    // format_param
    52,   53,   54,       55,       56, 57, 58, 59,
    60,   61,   62,       63,       80, 81, 82, 83};

TEST_F(AbiTest, CallbacksKeepSlotsAndRecordsKeepFields) {
  RawClient raw;
  const Instance api(reinterpret_cast<HylSpectralApiCallbackInterface*>(&raw));
  uint32_t id = 0;
  ASSERT_EQ(HylErr::kOk, api->EnableAmbientLightSensor(nullptr, id, kContinuous));
  const SensorEventPtr chain = MakeEventChain({{kSpectral, {1, 2}, 5}});
  RawMessage<8, 32> events;
  events.Put(16, chain.get());
  events.Put(24, uint64_t{1});
  framework.Deliver(kRearContinuous, *events);
  ASSERT_EQ(2, raw.called);
  EXPECT_EQ(id, raw.session);

  ASSERT_EQ(HylErr::kOk, api->EnableFlickerSensor(nullptr, buffer, std::size(buffer), 16, id));
  RawMessage<66, 24> format;
  format.Put(16, int32_t{2});  // uncompressed-2 with 3 unused bits below, 5 above
  format.Put(21, uint8_t{3});
  format.Put(22, uint8_t{5});
  framework.Deliver(kFlicker, *format);
  const std::array<uint8_t, 2> chunk = {0x08, 0xF8};
  RawMessage<65, 88> data;
  data.Put(24, chunk.data());
  data.Put(32, uint64_t{chunk.size()});
  framework.Deliver(kFlicker, *data);
  ASSERT_EQ(3, raw.called);
  EXPECT_EQ(id, raw.session);
  EXPECT_EQ(0x0100, buffer[0]);
  for (size_t i = 0; i < std::size(kBlock); ++i) {
    if (kBlock[i] != kPadding) {
      EXPECT_EQ(kBlock[i], raw.block[i]) << "byte " << i;
    }
  }
  const int* const samples = buffer;
  EXPECT_EQ(0, std::memcmp(&samples, &raw.block[std::size(kBlock)], sizeof(samples)));
}

}  // namespace
}  // namespace hyl::v2::test
