// Every operation in every state: its result and its messages.

#include <optional>
#include <string>
#include <vector>

#include "library_test.h"
#include "operations.h"

namespace hyl::v2::test {
namespace {

/// An instance in some state, and the session that the operations are called with.
struct Bench {
  Bench() { framework.AnswerWith(ScriptedFramework::Echo); }

  HylSpectralApi& api() { return *instance->get(); }
  void Create() { instance.emplace(&client); }
  void Enable(const char* name, SensorReportingMode mode) {
    Create();
    EXPECT_EQ(HylErr::kOk, api().EnableAmbientLightSensor(name, session, mode));
  }
  void Refuse(int request, OperationKind kind) {
    framework.RefuseInvoke(request, HylErr{3});
    EXPECT_EQ(HylErr{3}, kind == kChange
                             ? api().ChangeAmbientLightSensorReporting(session, kOnChange)
                             : api().DisableAmbientLightSensor(session));
  }

  LogCapture log;
  ScriptedFramework framework;
  RecordingClient client;
  int buffer[8] = {};
  uint32_t session = 4'000'000'000;  // no session's
  std::optional<Instance> instance;
};

// Ways into the states.
void CreateIt(Bench& bench) {
  bench.Create();
}
void Unconnected(Bench& bench) {
  bench.framework.FailCreate(1);
  bench.Create();
  EXPECT_THAT(bench.log.Take(), ::testing::ElementsAre(Error("Failed to create HYL API instance")));
}
void NothingOptical(Bench& bench) {
  bench.framework.SetSensorList({MakeEntry(kListMarker, "x")});
  bench.Create();
}
void Idle(Bench& bench) {
  bench.Create();
  bench.session = 0;
}
void RunContinuous(Bench& bench) {
  bench.Enable("", kContinuous);
}
void RunOnChange(Bench& bench) {
  bench.Enable("", kOnChange);
}
void RunFront(Bench& bench) {
  bench.Enable("Front", kContinuous);
}
void RunFlicker(Bench& bench) {
  bench.Create();
  EXPECT_EQ(HylErr::kOk, bench.api().EnableFlickerSensor("", bench.buffer, 8, 16, bench.session));
}
void RefuseDisable(Bench& bench) {
  RunOnChange(bench);
  bench.Refuse(1, kDisable);
}
void RefuseStopForChange(Bench& bench) {
  RunContinuous(bench);
  bench.Refuse(1, kChange);
}
void RefuseStartForChange(Bench& bench) {
  RunContinuous(bench);
  bench.Refuse(2, kChange);
}
void DisableWhatIsStopped(Bench& bench) {
  RefuseStartForChange(bench);
  EXPECT_EQ(HylErr::kNotFound, bench.api().DisableAmbientLightSensor(bench.session));
}

/// A result and the problem that is logged, in which %d and %u stand for the session.
struct Outcome {
  HylErr code;
  const char* problem = nullptr;
};

struct OfSession {
  Outcome name, change, disable;
};

struct State : OfSession {
  const char* name_of_state;
  void (*prepare)(Bench&);
  Outcome look_up;       ///< of the operations that just look for sensors
  Outcome enable_light;  ///< of the rear sensor, on change
  Outcome enable_flicker;
  Outcome setting;                     ///< any
  std::optional<DataWay> inside = {};  ///< the operation is called inside this callback
};

constexpr Outcome kDone{HylErr::kOk};
constexpr Outcome kFails{HylErr::kFailed};
constexpr Outcome kNotListed{HylErr::kNotFound};
constexpr Outcome kNotFound{HylErr::kNotFound, "Sensor '' not found"};
constexpr Outcome kNotSent{HylErr::kFailed, "InvokeAsyncServiceCall err:  2!"};
constexpr Outcome kRuns{HylErr::kAlreadyRunning,
                        "Cannot start sensor 'Rear ALS'-12:0, already running"};
constexpr Outcome kStreams{HylErr::kAlreadyRunning,
                           "Cannot start sensor 'Flicker'-13:0, already running"};
constexpr OfSession kNone{{HylErr::kNotFound, "Cannot determine sensor name, no session-id:%d"},
                          {HylErr::kNotFound, "Change-ALS: Cannot find session for id (%u)"},
                          {HylErr::kNotFound, "Cannot disable sensor, no session-id:%d"}};
constexpr OfSession kOpen{kDone, kDone, kDone};
constexpr OfSession kStopped{
    {HylErr::kNotFound},
    {HylErr::kNotFound, "Change-ALS: Cannot stop, sensor with cookie:10a0003f4 not found."},
    {HylErr::kNotFound, "Cannot stop, sensor with cookie:10a0003f4 not found."}};

// clang-format off
constexpr State kStates[] = {
    // session  state                way there             look up     light      flicker    setting
    {kNone,    "Unconnected",        Unconnected,          kDone,      kNotSent,  kFails,    kFails},
    {kNone,    "Undiscovered",       CreateIt,             kDone,      kDone,     kDone,     kDone},
    {kNone,    "NothingOptical",     NothingOptical,       kNotListed, kNotFound, kNotFound, kDone},
    {kNone,    "Idle",               Idle,                 kDone,      kDone,     kDone,     kDone},
    {kOpen,    "RunningContinuous",  RunContinuous,        kDone,      kDone,     kDone,     kDone},
    {kOpen,    "RunningOnChange",    RunOnChange,          kDone,      kRuns,     kDone,     kDone},
    {kOpen,    "StreamingFlicker",   RunFlicker,           kDone,      kDone,     kStreams,  kDone},
    {kNone,    "DisableRefused",     RefuseDisable,        kDone,      kDone,     kDone,     kDone},
    {kOpen,    "ChangeStopRefused",  RefuseStopForChange,  kDone,      kDone,     kDone,     kDone},
    {kStopped, "ChangeStartRefused", RefuseStartForChange, kDone,      kDone,     kDone,     kDone},
    {kNone,    "StoppedAndDisabled", DisableWhatIsStopped, kDone,      kDone,     kDone,     kDone},
    {kOpen,    "InRearSample",       RunContinuous,        kDone,      kDone,     kDone,     kDone,
     kRearSample},
    {kOpen,    "InFrontEvents",      RunFront,             kDone,      kDone,     kDone,     kDone,
     kFrontEvents},
    {kOpen,    "InFlickerData",      RunFlicker,           kDone,      kDone,     kStreams,  kDone,
     kFlickerData},
};
// clang-format on

const Outcome& In(const State& state, OperationKind operation) {
  switch (operation) {
    case kNames:
    case kSupport:
      return state.look_up;
    case kSessionName:
      return state.name;
    case kEnableLight:
      return state.enable_light;
    case kEnableFlicker:
      return state.enable_flicker;
    case kChange:
      return state.change;
    case kDisable:
      return state.disable;
    default:
      return state.setting;
  }
}

std::vector<LogEntry> Problems(const Outcome& outcome, uint32_t session) {
  if (outcome.problem == nullptr) {
    return {};
  }
  const std::string text = Text(outcome.problem, session);
  return {outcome.code == HylErr::kAlreadyRunning ? Warning(text) : Error(text)};
}

void CallIn(const State& state, const Operation& operation) {
  SCOPED_TRACE(operation.name);
  Bench bench;
  state.prepare(bench);
  const Outcome& expected = In(state, operation.kind);
  bool called = false;
  const auto call = [&] {
    if (!called) {
      called = true;
      bench.log.Take();
      EXPECT_EQ(expected.code, operation.Call(bench.api(), bench.session));
      EXPECT_EQ(Problems(expected, bench.session), bench.log.TakeProblems());
    }
  };
  if (state.inside) {
    bench.client.SetHook(call);
    state.inside->deliver(*bench.framework.CallbacksOf(state.inside->handle));
  } else {
    call();
  }
  EXPECT_TRUE(called);
}

using StateTableTest = ::testing::TestWithParam<State>;

INSTANTIATE_TEST_SUITE_P(, StateTableTest, ::testing::ValuesIn(kStates),
                         [](const auto& test) { return std::string(test.param.name_of_state); });

TEST_P(StateTableTest, HoldsForEveryOperation) {
  for (const Operation& operation : kOperations) {
    CallIn(GetParam(), operation);
  }
}

}  // namespace
}  // namespace hyl::v2::test
