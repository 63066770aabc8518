// Every operation in every state: its result and its messages.

#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "data_way.h"
#include "library_test.h"
#include "operations.h"

namespace hyl::v2::test {
namespace {

using ::testing::ElementsAre;

/// An instance in some state, and the session that the operations are called with.
struct Bench {
  Bench() {
    t_problems = &problems;
    framework.AnswerWith(ScriptedFramework::Echo);
  }
  ~Bench() { t_problems = nullptr; }

  HylSpectralApi& api() { return *instance->get(); }
  Bench& Create() {
    instance.emplace(&client);
    return *this;
  }
  Bench& Discover() {
    (void)api().IsSensorSupported(OpticalSensorType::kAnyOptical, "x");
    return *this;
  }
  Bench& Run(const char* name, SensorReportingMode mode) {
    EXPECT_EQ(HylErr::kOk, Create().api().EnableAmbientLightSensor(name, session, mode));
    return *this;
  }
  Bench& Refuse(int request) {
    framework.RefuseInvoke(request, HylErr{3});
    return *this;
  }

  std::vector<LogEntry> problems;
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
  bench.Create().Discover();
  EXPECT_THAT(bench.problems, ElementsAre(Error("Failed to create HYL API instance")));
}
template <uint32_t kHandle>
void ListOnly(Bench& bench) {
  bench.framework.SetSensorList({MakeEntry(kHandle, "x")});
  bench.Create();
}
void Idle(Bench& bench) {
  bench.Create().Discover().session = 0;
}
void RunContinuous(Bench& bench) {
  bench.Run("", kContinuous);
}
void RunFront(Bench& bench) {
  bench.Run("Front", kContinuous);
}
void RunOnChange(Bench& bench) {
  bench.Run("", kOnChange);
}
void RunFlicker(Bench& bench) {
  EXPECT_EQ(HylErr::kOk,
            bench.Create().api().EnableFlickerSensor("", bench.buffer, 8, 16, bench.session));
  bench.framework.Deliver(kFlicker, FlickerFormatMessage(FlickerFormatSampleWidth::kUncompressed2));
}
void RefuseDisable(Bench& bench) {
  EXPECT_EQ(HylErr{3},
            bench.Run("", kOnChange).Refuse(1).api().DisableAmbientLightSensor(bench.session));
}
template <int kRequest>
void RefuseChange(Bench& bench) {
  HylSpectralApi& api = bench.Run("", kContinuous).Refuse(kRequest).api();
  EXPECT_EQ(HylErr{3}, api.ChangeAmbientLightSensorReporting(bench.session, kOnChange));
}

/// A result and the problems that are logged, in which %d and %u stand for the session.
struct Outcome {
  uint8_t code;
  const char* problems[2] = {};
};

struct OfSession {
  Outcome name, change, disable;
};

struct State : OfSession {
  const char* name_of_state;
  void (*prepare)(Bench&);
  Outcome look_up;                     ///< of the operations that just look for sensors
  Outcome enable;                      ///< of the rear sensor, on change
  Outcome enable_flicker;              ///< likewise
  Outcome access;                      ///< to any setting
  std::optional<DataWay> inside = {};  ///< the operation is called inside this callback
};

constexpr Outcome kDone{0};
constexpr Outcome kNoSensor{7, {"Sensor '' not found"}};
constexpr Outcome kNoList{7, {"Failed to create HYL API instance"}};
constexpr Outcome kNeither{7, {kNoList.problems[0], kNoSensor.problems[0]}};
constexpr Outcome kNotSent{2, {"InvokeAsyncServiceCall err:  2!"}};
constexpr Outcome kRuns{19, {"Cannot start sensor 'Rear ALS'-12:0, already running"}};
constexpr Outcome kStreams{19, {"Cannot start sensor 'Flicker'-13:0, already running"}};
constexpr OfSession kNone{{7, {"Cannot determine sensor name, no session-id:%d"}},
                          {7, {"Change-ALS: Cannot find session for id (%u)"}},
                          {7, {"Cannot disable sensor, no session-id:%d"}}};
constexpr OfSession kOpen{kDone, kDone, kDone};
constexpr OfSession kStopped{
    {7},
    {7, {"Change-ALS: Cannot stop, sensor with cookie:10a0003f4 not found."}},
    {7, {"Cannot stop, sensor with cookie:10a0003f4 not found."}}};

using enum DataWay;

// clang-format off
constexpr State kStates[] = {
    //         state                 way there              look up  enable     flicker    setting
    {kNone,    "Unconnected",        Unconnected,           kDone,   kNotSent,  {2},       {2}},
    {kNone,    "Undiscovered",       CreateIt,              kDone,   kDone,     kDone,     kDone},
    {kNone,    "Undiscoverable",     ListOnly<kFlicker>,    kNoList, kNeither,  kNeither,  kDone},
    {kNone,    "NothingOptical",     ListOnly<kListMarker>, {7},     kNoSensor, kNoSensor, kDone},
    {kNone,    "Idle",               Idle,                  kDone,   kDone,     kDone,     kDone},
    {kOpen,    "RunningContinuous",  RunContinuous,         kDone,   kDone,     kDone,     kDone},
    {kOpen,    "RunningOnChange",    RunOnChange,           kDone,   kRuns,     kDone,     kDone},
    {kOpen,    "StreamingFlicker",   RunFlicker,            kDone,   kDone,     kStreams,  kDone},
    {kNone,    "DisableRefused",     RefuseDisable,         kDone,   kDone,     kDone,     kDone},
    {kOpen,    "ChangeStopRefused",  RefuseChange<1>,       kDone,   kDone,     kDone,     kDone},
    {kStopped, "ChangeStartRefused", RefuseChange<2>,       kDone,   kDone,     kDone,     kDone},
    {kOpen,    "InRearSample",       RunContinuous,         kDone,   kDone,     kDone,     kDone,
     kRearSample},
    {kOpen,    "InFrontEvents",      RunFront,              kDone,   kDone,     kDone,     kDone,
     kFrontEvents},
    {kOpen,    "InFlickerData",      RunFlicker,            kDone,   kDone,     kStreams,  kDone,
     kFlickerData},
};
// clang-format on

/// The column of an operation.
const Outcome& In(const State& state, std::string_view operation) {
  constexpr std::pair<std::string_view, Outcome State::*> kColumns[] = {
      {"SensorNames", &State::look_up},
      {"IsSensorSupported", &State::look_up},
      {"GetSensorName", &State::name},
      {"EnableAmbientLightSensor", &State::enable},
      {"EnableFlickerSensor", &State::enable_flicker},
      {"ChangeAmbientLightSensorReporting", &State::change},
      {"DisableAmbientLightSensor", &State::disable},
      {"DisableFlickerSensor", &State::disable}};
  for (const auto& [name, column] : kColumns) {
    if (operation.ends_with(name)) {
      return state.*column;
    }
  }
  return state.access;
}

void CallIn(const State& state, const Operation& operation) {
  SCOPED_TRACE(operation.name);
  Bench bench;
  state.prepare(bench);
  const Outcome& expected = In(state, operation.name);
  std::vector<LogEntry> problems;
  for (const char* const problem : expected.problems) {
    if (problem != nullptr) {
      const std::string text = Text(problem, bench.session);
      problems.push_back(expected.code == 19 ? Warning(text) : Error(text));
    }
  }
  int calls = 0;
  const auto call = [&] {
    if (++calls == 1) {
      bench.problems.clear();
      EXPECT_EQ(HylErr{expected.code}, operation.call(bench.api(), bench.session));
      EXPECT_EQ(problems, bench.problems);
    }
  };
  if (state.inside) {
    bench.client.SetHook(call);
    DeliverData(*bench.framework.CallbacksOf(HandleOf(*state.inside)), *state.inside);
  } else {
    call();
  }
  EXPECT_LT(0, calls);
}

class StateTableTest : public ::testing::TestWithParam<State> {
 protected:
  LogCapture log_of_the_frameworks_threads_;
};

INSTANTIATE_TEST_SUITE_P(, StateTableTest, ::testing::ValuesIn(kStates),
                         [](const auto& test) { return std::string(test.param.name_of_state); });

/// At the same time, each on an instance of its own, since a discovery can take seconds.
TEST_P(StateTableTest, HoldsForEveryOperation) {
  std::vector<std::thread> calls;
  for (const Operation& operation : kOperations) {
    calls.emplace_back([&] { CallIn(GetParam(), operation); });
  }
  for (std::thread& call : calls) {
    call.join();
  }
}

}  // namespace
}  // namespace hyl::v2::test
