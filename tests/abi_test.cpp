// The binary interface that clients and the framework were built against: the slots of virtual
// operations, the fields of records, and numbers. They are repeated here, apart from the headers,
// so that a change there is noticed.

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <numeric>
#include <string>

#include <hyl/flicker_messages.h>
#include <hyl/rls_msg_access.h>
#include <hyl/sampling_messages.h>

#include "library_test.h"
#include "operations.h"

namespace hyl::v2::test {
namespace {

constexpr const char* kWhatToDo =
    "Existing binaries rely on this. Restore it in the header. If the change is intended, raise "
    "the "
    "major version in CMakeLists.txt, and change the number here.";

// --- the headers ---

struct Number {
  const char* what;
  size_t agreed;
  size_t found;
};

/// The slot of a virtual operation. A pointer to one holds it as a byte offset in the first of two
/// words, in both of the known encodings.
template <typename Member>
size_t SlotOf(Member operation) noexcept {
  std::array<uintptr_t, 2> words{};
  static_assert(sizeof(operation) == sizeof(words));
  std::memcpy(words.data(), &operation, sizeof(words));
  return words[0] / sizeof(void*);
}

#define HYL_NUMBER(agreed, found) \
  { #found, agreed, static_cast < size_t>(found) }

const Number kNumbers[] = {
    // hyl_err.h, hyl_spectral_api.h
    HYL_NUMBER(1, sizeof(HylErr)),
    HYL_NUMBER(0, HylErr::kOk),
    HYL_NUMBER(2, HylErr::kFailed),
    HYL_NUMBER(7, HylErr::kNotFound),
    HYL_NUMBER(9, HylErr::kInvalidArgument),
    HYL_NUMBER(15, HylErr::kNullPointer),
    HYL_NUMBER(17, HylErr::kNoSession),
    HYL_NUMBER(19, HylErr::kAlreadyRunning),
    HYL_NUMBER(8, kMaxSessions),
    HYL_NUMBER(255, kMaxPriority),
    HYL_NUMBER(8, sizeof(HylSpectralApi)),
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
    // hyl_spectral_api_callback_interface.h
    HYL_NUMBER(8, sizeof(HylSpectralApiCallbackInterface)),
    // vector.h, heap.h
    HYL_NUMBER(2, SlotOf(&VectorBase::ConstructElem)),
    HYL_NUMBER(3, SlotOf(&VectorBase::DestroyElem)),
    HYL_NUMBER(4, SlotOf(&VectorBase::MoveElem)),
    HYL_NUMBER(1, sizeof(HylHeapEnum)),
    HYL_NUMBER(1, HylHeapEnum::kDefault),
    // api.h, service.h
    HYL_NUMBER(4, sizeof(ClientType)),
    HYL_NUMBER(10, ClientType::kSpectral),
    HYL_NUMBER(8, sizeof(Api)),
    HYL_NUMBER(0, SlotOf(&Api::GetSensorList)),
    HYL_NUMBER(1, SlotOf(&Api::InvokeAsyncServiceCall)),
    HYL_NUMBER(8, sizeof(Service::AsyncCallbacks)),
    HYL_NUMBER(0, SlotOf(&Service::AsyncCallbacks::OnResponse)),
    HYL_NUMBER(1, SlotOf(&Service::AsyncCallbacks::OnError)),
    HYL_NUMBER(4, SlotOf(&Service::AsyncCallbacks::OnAuxiliaryEvent)),
    HYL_NUMBER(44, sizeof(SensorListEntry)),
    HYL_NUMBER(0, offsetof(SensorListEntry, handle)),
    HYL_NUMBER(4, offsetof(SensorListEntry, name)),
    // request.h, rls_msg_access.h
    HYL_NUMBER(64, RequestType::kRlsMsgAccess),
    HYL_NUMBER(2, SlotOf(&StopSamplingReq::ClientId)),
    HYL_NUMBER(2, SlotOf(&StartOnChangeSamplingReq::ClientId)),
    HYL_NUMBER(3, SlotOf(&StartOnChangeSamplingReq::Passive)),
    HYL_NUMBER(4, SlotOf(&StartOnChangeSamplingReq::MaxLatency)),
    HYL_NUMBER(5, SlotOf(&StartOnChangeSamplingReq::TransformMask)),
    HYL_NUMBER(6, SlotOf(&StartOnChangeSamplingReq::IsWakeUp)),
    HYL_NUMBER(2, SlotOf(&StartContinuousSamplingReq::ClientId)),
    HYL_NUMBER(3, SlotOf(&StartContinuousSamplingReq::Passive)),
    HYL_NUMBER(4, SlotOf(&StartContinuousSamplingReq::MaxLatency)),
    HYL_NUMBER(5, SlotOf(&StartContinuousSamplingReq::TransformMask)),
    HYL_NUMBER(6, SlotOf(&StartContinuousSamplingReq::IncludeRuntimeBias)),
    HYL_NUMBER(7, SlotOf(&StartContinuousSamplingReq::Reserved)),
    HYL_NUMBER(8, SlotOf(&StartContinuousSamplingReq::Period)),
    HYL_NUMBER(9, SlotOf(&StartContinuousSamplingReq::IsWakeUp)),
    // message.h, sampling_messages.h
    HYL_NUMBER(7, MessageType::kSample),
    HYL_NUMBER(8, MessageType::kEvents),
    HYL_NUMBER(64, MessageType::kRlsMsgAccessResp),
    HYL_NUMBER(65, MessageType::kFlickerData),
    HYL_NUMBER(66, MessageType::kFlickerFormat),
    HYL_NUMBER(2, SlotOf(&Message::Type)),
    HYL_NUMBER(3, SlotOf(&SamplingStatusResp::Status)),
    HYL_NUMBER(3, SlotOf(&SampleMessage::Sample)),
};

#undef HYL_NUMBER

TEST(AbiHeadersTest, NumbersStayAsAgreed) {
  for (const Number& number : kNumbers) {
    EXPECT_EQ(number.agreed, number.found) << number.what << '\n' << kWhatToDo;
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

/// Calls the operation at a slot of the object's table, as a client's machine code does.
template <typename Result, typename... Arguments>
Result CallSlot(HylSpectralApi* api, size_t slot, Arguments... arguments) {
  using Function = Result (*)(HylSpectralApi*, Arguments...);
  Function const* table = nullptr;
  std::memcpy(&table, static_cast<void*>(api), sizeof(table));
  return table[slot](api, arguments...);
}

class AbiTest : public LibraryTest {
 protected:
  /// The names that the operation at a slot lists.
  std::string Names(size_t slot) {
    std::string text;
    for (const HylString& name : CallSlot<Vector<HylString>>(instance.get(), slot)) {
      text += (text.empty() ? "" : ", ") + std::string(name.c_str());
    }
    return text;
  }
  /// The requests that the operation at a slot sends: access and command of a setting; type, handle
  /// and client id of any other.
  template <typename... Arguments>
  std::string Sent(size_t slot, Arguments... arguments) {
    framework.Take();
    EXPECT_EQ(HylErr::kOk, CallSlot<HylErr>(instance.get(), slot, arguments...)) << "slot " << slot;
    std::string text;
    for (const FrameworkCall& call : framework.TakeInvokes()) {
      text += text.empty() ? "" : ", ";
      if (const auto* setting = call.As<RlsMsgAccessReq>()) {
        text += setting->access == RlsAccess::kRead ? "read " : "write ";
        text += std::to_string(static_cast<int>(setting->command));
      } else {
        text += Text("%u %08x %08x", call.type, call.handle, call.ClientId());
      }
    }
    return text;
  }

  const testing::ScopedTrace trace_{__FILE__, __LINE__, kWhatToDo};
  const char* const any_ = nullptr;  // sensor
};

TEST_F(AbiTest, SensorOperationsKeepTheirSlots) {
  uint32_t light = Enable("Front ALS");
  uint32_t flicker = 0;
  EXPECT_EQ("Rear ALS, Front ALS", Names(0));
  EXPECT_EQ("Flicker", Names(1));
  EXPECT_STREQ("Front ALS", CallSlot<HylString>(instance.get(), 2, light).c_str());
  EXPECT_EQ("3 04f40000 0a0003f4", Sent(3, any_, &light, kContinuous));
  EXPECT_EQ("4 04f40000 0a0003f4, 2 010c0000 0a00000c", Sent(4, light, kOnChange));
  EXPECT_EQ("3 010d0000 0a00000d",
            Sent(5, any_, &buffer[0], std::size(buffer), uint8_t{16}, &flicker));
  EXPECT_EQ("4 010c0000 0a00000c", Sent(6, light));
  EXPECT_EQ("4 010d0000 0a00000d", Sent(7, flicker));
  const char* const name = "Flicker";
  EXPECT_TRUE(CallSlot<bool>(instance.get(), 17, OpticalSensorType::kFlicker, name));
  EXPECT_FALSE(CallSlot<bool>(instance.get(), 17, OpticalSensorType::kAmbientLight, name));
}

TEST_F(AbiTest, SettingsKeepTheirSlots) {
  framework.AnswerWith(ScriptedFramework::Echo);
  bool flag = true;
  uint8_t byte = 0;
  uint16_t half = 0;
  uint32_t word = 0;
  uint64_t uid = 0;
  float gain = 0;
  FlickerFrequencyMetrics metrics{};
  EXPECT_EQ("read 12", Sent(8, any_, &flag));
  EXPECT_EQ("read 13", Sent(9, any_, &word, &gain));
  EXPECT_EQ("read 1", Sent(10, any_, &metrics));
  EXPECT_EQ("read 2", Sent(11, any_, &half));
  EXPECT_EQ("read 7", Sent(12, any_, byte, &byte));
  EXPECT_EQ("read 11", Sent(13, any_, &flag));
  EXPECT_EQ("read 14", Sent(14, any_, &flag));
  EXPECT_EQ("read 15", Sent(15, any_, &flag));
  EXPECT_EQ("read 8", Sent(16, any_, &uid));
  EXPECT_EQ("write 0", Sent(18, any_, word, &word));
  EXPECT_EQ("write 12", Sent(19, any_, flag));
  EXPECT_EQ("write 3", Sent(20, any_, byte, byte));
  EXPECT_EQ("write 5", Sent(21, any_, byte));
  EXPECT_EQ("write 4", Sent(22, any_, byte, gain, &gain));
  EXPECT_EQ("write 7", Sent(23, any_, byte, byte));
  EXPECT_EQ("write 6", Sent(24, any_, word, &word));
  EXPECT_EQ("write 11", Sent(25, any_, flag));
  EXPECT_EQ("write 14", Sent(26, any_, flag));
  EXPECT_EQ("write 15", Sent(27, any_, flag));
  EXPECT_EQ("write 10", Sent(28, any_, flag));
}

TEST_F(AbiTest, DestructorsComeLast) {
  instance.Destroy();
  constexpr size_t kComplete = 29;
  constexpr size_t kDeleting = 30;
  static_assert(std::size(kOperations) == kComplete, "operations.h has them all");
  for (const size_t slot : {kComplete, kDeleting}) {
    HylSpectralApi* api = nullptr;
    ASSERT_EQ(HylErr::kOk, HylSpectralApi::Create(&api, nullptr, HylLogLevel::kInfo));
    CallSlot<void>(api, slot);
    EXPECT_EQ(0, framework.LiveApis()) << "slot " << slot;
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
