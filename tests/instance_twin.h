// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <iterator>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <android-base/logging.h>
#include <gtest/gtest.h>

#include "any_message.h"
#include "client.h"
#include "framework.h"
#include "input.h"
#include "instance_model.h"
#include "test_access.h"

namespace hyl::v2::test {

/// What the library, or the model, has done with its surroundings.
struct Side {
  using Buffer = std::unique_ptr<int[]>;

  std::vector<std::string> trace;     ///< of the latest step
  int connections = 0;                ///< that were asked for so far
  int requests = 0;                   ///< so far
  std::vector<Buffer> buffers;        ///< of flicker sessions
  std::vector<uint32_t> sessions;     ///< all ids that were handed out
  std::function<void()> in_callback;  ///< done in the next callback
};

inline std::string Hex(const void* bytes, size_t size) {
  std::string text;
  for (size_t i = 0; i < size; ++i) {
    text += Text("%02x", static_cast<const uint8_t*>(bytes)[i]);
  }
  return text;
}

/// Notes what it gets.
class TracingClient final : public HylSpectralApiCallbackInterface {
 public:
  explicit TracingClient(Side& side) : side_(side) {}

  void OnSpectralData(uint32_t kind, uint32_t session_id, const Vector<float>& values,
                      int64_t timestamp) override {
    side_.trace.push_back(Text("spectral %u session %u at %ld: ", kind, session_id, timestamp) +
                          Hex(values.data(), values.size() * sizeof(float)));
    CallInside();
  }
  void OnFlickerData(uint32_t session_id, const FlickerSampleBlock* block) override {
    const auto buffer = std::ranges::find(side_.buffers, block->samples, &Side::Buffer::get);
    const auto& [restart, aux8_0, aux8_1, aux16_0, aux16_1, aux16_2, num_samples, seq_num,
                 format_param, aux32_0, aux32_1, auxf_0, auxf_1, samples] = *block;
    side_.trace.push_back(
        Text("flicker session %u buffer %ld: ", session_id, buffer - side_.buffers.begin()) +
        Text("%u %u %u %u ", num_samples, seq_num, format_param, restart) +
        Text("%x %x %x %x %x ", aux8_0, aux8_1, aux16_0, aux16_1, aux16_2) +
        Text("%x %x ", aux32_0, aux32_1) + Hex(&auxf_0, sizeof(float)) +
        Hex(&auxf_1, sizeof(float)) + " " + Hex(samples, num_samples * sizeof(int)));
    CallInside();
  }

 private:
  void CallInside() {
    if (const auto in_callback = std::exchange(side_.in_callback, {})) {
      in_callback();
    }
  }

  Side& side_;
};

/// An instance and its model. Both go through the same steps, which an Input names, with the same
/// framework and client around them. After each step, what they have done is compared: results,
/// calls of the framework, log entries, calls of the client, all in their order.
class InstanceTwin final : public ModelFramework {
 public:
  /// `patience`: how many attempts at discovery may fail.
  InstanceTwin(Input input, size_t patience) : input_(input), patience_(patience) {
    if (input_.Below(16) == 1) {
      TestAccess::NextId() = 0xFFFFFFFD;  // they wrap around soon
    }
    next_id_ = TestAccess::NextId();
    logger_ = android::base::SetLogger(
        [this](auto, auto severity, auto, auto, auto, const char* message) {
          library_.trace.push_back(Text("log %d ", severity) + message);
        });
    framework_.SetHook([this](const FrameworkCall& call) { NoteCall(call); });
  }

  ~InstanceTwin() override {
    Destroy();
    DropObjects();
    EXPECT_EQ(0, framework_.LiveApis());
    android::base::SetLogger(std::move(logger_));
  }
  InstanceTwin(const InstanceTwin&) = delete;
  InstanceTwin& operator=(const InstanceTwin&) = delete;

  /// To the input's end, or the first failure.
  void Run() {
    using Step = void (InstanceTwin::*)();
    constexpr Step kSteps[] = {&InstanceTwin::Call,          &InstanceTwin::Call,
                               &InstanceTwin::Call,          &InstanceTwin::Call,
                               &InstanceTwin::Call,          &InstanceTwin::Call,
                               &InstanceTwin::Deliver,       &InstanceTwin::Deliver,
                               &InstanceTwin::Deliver,       &InstanceTwin::DeliverAndCallInside,
                               &InstanceTwin::RefuseRequest, &InstanceTwin::DeliverDuringRequest,
                               &InstanceTwin::ListSensors,   &InstanceTwin::DoWhatIsRare};
    while (!input_.Empty() && !testing::Test::HasFailure()) {
      if (api_ == nullptr) {
        Create();
      }
      (this->*kSteps[input_.Below(std::size(kSteps))])();
    }
  }

  /// Every result that has been seen.
  const std::set<HylErr>& results() const { return results_; }

 private:
  /// An operation that is done on both sides.
  struct Operation {
    std::function<void(HylSpectralApi&, Side&)> on_library;
    std::function<void(InstanceModel&, Side&)> on_model;
  };
  template <typename Call>
  static Operation OnBoth(Call call) {
    return {call, call};
  }

  void Do(const Operation& operation) {
    operation.on_library(*api_, library_);
    operation.on_model(*model_, model_side_);
    Compare();
  }
  void Compare() {
    EXPECT_EQ(std::exchange(model_side_.trace, {}), std::exchange(library_.trace, {}));
    EXPECT_EQ(model_side_.sessions, library_.sessions);
  }
  void NoteResult(Side& side, const char* operation, HylErr err) {
    results_.insert(err);
    side.trace.push_back(Text("%s: %d", operation, static_cast<int>(err)));
  }

  // Steps: what the framework does.

  void ListSensors() {
    constexpr uint32_t kTypes[] = {268, 1268, 269, 269, 270};
    constexpr uint32_t kIndexes[] = {0, 0, 1, 1, 2, 3, 255, 256};
    constexpr const char* kNames[] = {
        "", "Light", "Light sensor", "50%s", "Flicker", "exactly forty characters, without a NUL!"};
    list_ = {MakeEntry(kListMarker + input_.Byte() % 2, "marker")};
    const size_t first_type = input_.OneIn(8) ? std::size(kTypes) - 1 : 0;  // none is optical
    for (size_t count = std::min<size_t>(input_.Below(30), 15); count > 0; --count) {
      const uint32_t type = kTypes[std::max(first_type, input_.Below(std::size(kTypes)))];
      const size_t name = input_.Below(2 * std::size(kNames));
      list_.push_back(
          MakeEntry(type << 16 | kIndexes[input_.Below(std::size(kIndexes))],
                    name < std::size(kNames) ? kNames[name] : Text("S%zu", list_.size()).c_str()));
    }
    framework_.SetSensorList(list_);
  }

  void FailConnections() {
    for (size_t count = 1 + input_.Below(patience_); count > 0; --count) {
      framework_.FailCreate(static_cast<int>(count));
      failing_.insert(library_.connections + static_cast<int>(count));
    }
  }

  void RefuseRequest() {
    const int number = 1 + static_cast<int>(input_.Below(3));
    const HylErr err{input_.Byte()};
    framework_.RefuseInvoke(number, err);
    refused_[library_.requests + number] = err;
  }

  void RaiseVersionDuringRequest() {
    raising_.insert(library_.requests + 1 + static_cast<int>(input_.Below(3)));
  }

  /// To an ambient-light object, which takes no lock.
  void DeliverDuringRequest() {
    const Object object = Object(input_.Below(2));
    delivering_[library_.requests + 1] = {object, AnyMessage(input_, object == Object::kFlicker)};
  }

  void Deliver() {
    const Object object = Object(std::min<size_t>(input_.Below(4), 2));  // half of them flicker's
    const auto message = AnyMessage(input_, object == Object::kFlicker);
    if (objects_[0] == nullptr) {
      return;  // there is no connection
    }
    DeliverToLibrary(object, *message);
    model_->Deliver(object, *message);
    Compare();
    if (const auto* events = dynamic_cast<const EventMessage*>(message.get())) {
      for (const auto* event = events->events.get(); event != nullptr; event = event->next) {
        EXPECT_EQ(1, event->ref_count) << "a reference to an event is left";
      }
    }
  }

  void DeliverAndCallInside() {
    const Operation inside = input_.OneIn(8) ? End() : AnyOperation();
    library_.in_callback = [&] { inside.on_library(*api_, library_); };
    model_side_.in_callback = [&] { inside.on_model(*model_, model_side_); };
    Deliver();
    library_.in_callback = model_side_.in_callback = {};
  }

  /// What would often end a sequence early.
  void DoWhatIsRare() {
    const size_t what = input_.Below(64);
    if (what < 6) {
      Destroy();
    } else if (what < 16) {
      RaiseVersionDuringRequest();
    } else if (what == 16) {
      FailConnections();
    }
  }

  // Steps: what the client does.

  void Create() {
    DropObjects();
    ListSensors();
    const bool client = input_.Below(8) != 1;
    clients_[0] = client ? std::make_unique<TracingClient>(library_) : nullptr;
    clients_[1] = client ? std::make_unique<TracingClient>(model_side_) : nullptr;
    EXPECT_EQ(HylErr::kOk, HylSpectralApi::Create(&api_, clients_[0].get(), HylLogLevel::kInfo));
    objects_ = TestAccess::ObjectsOf(*api_);
    const ModelLog log([this](const LogEntry& entry) {
      model_side_.trace.push_back(Text("log %d ", entry.severity) + entry.message);
    });
    model_.emplace(*this, clients_[1].get(), log, next_id_);
    Compare();
  }
  void Destroy() {
    if (api_ != nullptr) {
      Do(End());
    }
  }
  /// The framework lets go of the callback objects, which nobody else may hold then.
  void DropObjects() {
    framework_.DropCallbacks();
    for (auto& object : objects_) {
      const std::weak_ptr weak = std::exchange(object, nullptr);
      EXPECT_TRUE(weak.expired()) << "a reference to a callback object is left";
    }
  }
  void Call() { Do(AnyOperation()); }

  Operation AnyOperation() {
    using Make = Operation (InstanceTwin::*)();
    constexpr Make kChoices[] = {
        &InstanceTwin::Enable, &InstanceTwin::Enable, &InstanceTwin::Enable,  &InstanceTwin::Enable,
        &InstanceTwin::Change, &InstanceTwin::Change, &InstanceTwin::Disable, &InstanceTwin::Ask};
    return (this->*kChoices[input_.Below(std::size(kChoices))])();
  }

  /// Mostly of a listed sensor, in a way that suits it.
  Operation Enable() {
    const SensorListEntry& entry = list_[input_.Below(list_.size())];
    const uint32_t type = entry.handle >> 16;
    std::string name(entry.name, strnlen(entry.name, sizeof(entry.name)));
    if (input_.OneIn(4)) {
      name.resize(input_.Below(8), 'x');
    }
    if (input_.OneIn(8) ? input_.OneIn(2) : type == 269) {
      return EnableFlicker(name);
    }
    SensorReportingMode mode = type == 268 ? kOnChange : kContinuous;
    mode = input_.OneIn(8) ? AnyMode() : mode;
    return OnBoth([this, name, mode](auto& api, Side& side) {
      uint32_t id = 0;
      NoteResult(side, "enable", api.EnableAmbientLightSensor(name.c_str(), id, mode));
      side.sessions.push_back(id);
    });
  }

  Operation EnableFlicker(const std::string& name) {
    constexpr size_t kSizes[] = {0, 1, 3, 16, kRoom, kRoom, (size_t{1} << 32) + 1};
    constexpr uint8_t kBits[] = {8, 12, 16, 24, 32};
    const size_t size = kSizes[input_.Below(std::size(kSizes))];
    const uint8_t bits = input_.OneIn(4) ? input_.Byte() : kBits[input_.Below(std::size(kBits))];
    const bool null = input_.Below(8) == 1;
    return OnBoth([this, name, size, bits, null](auto& api, Side& side) {
      uint32_t id = 0;
      side.buffers.push_back(null ? nullptr : std::make_unique<int[]>(std::min(size, kRoom)));
      NoteResult(side, "enable",
                 api.EnableFlickerSensor(name.c_str(), side.buffers.back().get(), size, bits, id));
      side.sessions.push_back(id);
    });
  }

  Operation Change() {
    return OnBoth([this, session = AnySession(), mode = AnyMode()](auto& api, Side& side) {
      NoteResult(side, "change", api.ChangeAmbientLightSensorReporting(session, mode));
    });
  }

  Operation Disable() {
    return OnBoth([this, session = AnySession(), flicker = input_.Below(2)](auto& api, Side& side) {
      NoteResult(side, "disable",
                 flicker != 0 ? api.DisableFlickerSensor(session)
                              : api.DisableAmbientLightSensor(session));
    });
  }

  Operation Ask() {
    constexpr const char* kNames[] = {nullptr, "", "L", "Light s", "Flick", "S1", "S10", "marker"};
    const char* const name = kNames[input_.Below(std::size(kNames))];
    const auto kind = OpticalSensorType(input_.Below(5));
    return OnBoth([session = AnySession(), name, kind](auto& api, Side& side) {
      for (const auto& names : {api.GetAmbientLightSensorNames(), api.GetFlickerSensorNames()}) {
        for (const auto& listed : names) {
          side.trace.emplace_back(listed.c_str());
        }
      }
      side.trace.emplace_back(api.GetSensorName(session).c_str());
      side.trace.push_back(Text("%d", api.IsSensorSupported(kind, name)));
    });
  }

  Operation End() {
    return {[this](HylSpectralApi&, Side&) { HylSpectralApi::Destroy(&api_); },
            [](InstanceModel& model, Side&) { model.End(); }};
  }

  /// One of the latest, open or not, or any number.
  uint32_t AnySession() {
    const size_t back = input_.Below(18);
    return back < library_.sessions.size() ? *(library_.sessions.end() - 1 - static_cast<int>(back))
                                           : input_.Byte();
  }

  SensorReportingMode AnyMode() {
    constexpr uint32_t kModes[] = {1, 1, 1, 2, 2, 2, 0, 3, 257, 0x10002};
    return SensorReportingMode{kModes[input_.Below(std::size(kModes))]};
  }

  void DeliverToLibrary(Object object, const Message& message) {
    objects_[static_cast<size_t>(object)]->OnResponse(&message);
  }

  /// What was planned for the request that the side has just made.
  void DuringRequest(Side& side) {
    ++side.requests;
    const bool model = &side == &model_side_;
    if (raising_.count(side.requests) != 0) {
      if (model) {
        model_->list().RaiseVersion();
      } else {
        TestAccess::RaiseVersion(*api_);
      }
    }
    const auto planned = delivering_.find(side.requests);
    if (planned != delivering_.end()) {
      const auto& [object, message] = planned->second;
      if (model) {
        model_->Deliver(object, *message);
      } else {
        DeliverToLibrary(object, *message);
      }
    }
  }

  void NoteRequest(Side& side, uint32_t handle, uint32_t type, const std::vector<uint8_t>& bytes,
                   Object object) {
    side.trace.push_back(Text("request %u to %x with object %d: ", type, handle, object) +
                         Hex(bytes.data(), bytes.size()));
  }

  void NoteCall(const FrameworkCall& call) {
    using Kind = FrameworkCall::Kind;
    if (call.kind == Kind::kCreate) {
      ++library_.connections;
      library_.trace.push_back(Text("connect as %u", call.type));
    } else if (call.kind == Kind::kGetSensorList) {
      library_.trace.emplace_back("list");
    } else if (call.kind == Kind::kDestroy) {
      library_.trace.emplace_back("disconnect");
    } else {
      const auto object =
          std::ranges::find(objects_, call.callbacks, [](auto& each) { return each.get(); });
      NoteRequest(library_, call.handle, call.type, BytesOf(call),
                  Object(object - objects_.begin()));
      DuringRequest(library_);
    }
  }

  // The framework of the model.
  bool Connect() override {
    model_side_.trace.emplace_back("connect as 10");
    return failing_.count(++model_side_.connections) == 0;
  }
  void Disconnect() override { model_side_.trace.emplace_back("disconnect"); }
  std::vector<SensorListEntry> GetSensorList() override {
    model_side_.trace.emplace_back("list");
    return list_;
  }
  HylErr Invoke(uint32_t handle, uint32_t type, const std::vector<uint8_t>& request,
                Object object) override {
    NoteRequest(model_side_, handle, type, request, object);
    DuringRequest(model_side_);
    const auto refused = refused_.find(model_side_.requests);
    return refused != refused_.end() ? refused->second : HylErr::kOk;
  }

  static constexpr size_t kRoom = 256;  // of a flicker buffer; no chunk has more samples

  Input input_;
  const size_t patience_;
  android::base::LogFunction logger_;  // of the process before
  std::set<HylErr> results_;

  // Plans of the framework, by the numbers of requests and connections.
  std::vector<SensorListEntry> list_ = DefaultSensors();
  std::set<int> failing_;
  std::map<int, HylErr> refused_;
  std::set<int> raising_;
  std::map<int, std::pair<Object, std::unique_ptr<Message>>> delivering_;

  Side library_;
  Side model_side_;
  std::unique_ptr<HylSpectralApiCallbackInterface> clients_[2];
  ScriptedFramework framework_;
  HylSpectralApi* api_ = nullptr;
  std::optional<InstanceModel> model_;
  TestAccess::Objects objects_;
  uint32_t next_id_;
};

}  // namespace hyl::v2::test
