// Every operation in every state: its result and its messages.

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "data_way.h"
#include "library_test.h"
#include "operations.h"

namespace hyl::v2::test {
namespace {

/// An instance in some state, and the session that the operations are called with.
struct Bench {
  Bench() {
    t_problems = &problems;
    framework.AnswerWith(ScriptedApi::Echo);
  }
  ~Bench() { t_problems = nullptr; }
  Bench(const Bench&) = delete;
  Bench& operator=(const Bench&) = delete;

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
  Bench& RunFlicker() {
    EXPECT_EQ(HylErr::kOk, Create().api().EnableFlickerSensor(nullptr, buffer, 8, 16, session));
    framework.Deliver(kFlicker, FlickerFormat(FlickerFormatSampleWidth::kUncompressed2));
    return *this;
  }
  /// From now on the n-th request is refused. Changes the mode.
  void ChangeRefused(int n) {
    framework.RefuseInvoke(n, HylErr{3});
    EXPECT_EQ(HylErr{3}, api().ChangeAmbientLightSensorReporting(session, kOnChange));
  }
  void DisableRefused() {
    framework.RefuseInvoke(1, HylErr{3});
    EXPECT_EQ(HylErr{3}, api().DisableAmbientLightSensor(session));
  }

  std::vector<LogEntry> problems;
  ScriptedApi framework;
  RecordingClient client;
  int buffer[8] = {};
  uint32_t session = 4'000'000'000;  // no session's
  std::optional<Instance> instance;
};

/// A result and the problems that are logged, in which %d and %u stand for the session.
struct Outcome {
  uint8_t code;
  std::vector<const char*> problems = {};
};

struct OfSession {
  Outcome name, change, disable;
};

struct State {
  const char* name;
  std::function<void(Bench&)> prepare;
  Outcome look_up;  ///< of the operations that just look for sensors
  Outcome enable;   ///< of the rear sensor, on change
  Outcome enable_flicker;
  Outcome access;  ///< to any setting
  OfSession of_session;
  std::optional<DataWay> inside = {};  ///< the operation is called inside this callback
};

std::vector<State> States() {
  const Outcome done{0};
  const Outcome no_sensor{7, {"Sensor '' not found"}};
  const Outcome no_discovery{7, {"Failed to create HYL API instance"}};
  const Outcome no_sensor_discovered{7, {no_discovery.problems[0], no_sensor.problems[0]}};
  const Outcome runs{19, {"Cannot start sensor 'Rear ALS'-12:0, already running"}};
  const Outcome runs_flicker{19, {"Cannot start sensor 'Flicker'-13:0, already running"}};
  const OfSession none{{7, {"Cannot determine sensor name, no session-id:%d"}},
                       {7, {"Change-ALS: Cannot find session for id (%u)"}},
                       {7, {"Cannot disable sensor, no session-id:%d"}}};
  const OfSession open{done, done, done};
  const OfSession stopped{{7},
                          {7, {"Change-ALS: Cannot stop, sensor with cookie:10a0003f4 not found."}},
                          {7, {"Cannot stop, sensor with cookie:10a0003f4 not found."}}};
  const auto list_only = [](uint32_t handle) {
    return [=](Bench& bench) {
      bench.framework.SetSensorList({MakeEntry(handle, "x")});
      bench.Create();
    };
  };
  const auto unconnected = [](Bench& bench) {
    bench.framework.FailCreate(1);
    bench.Create().Discover();
  };
  const auto idle = [](Bench& bench) { bench.Create().Discover().session = 0; };
  const auto run = [](const char* name, SensorReportingMode mode) {
    return [=](Bench& bench) { bench.Run(name, mode); };
  };
  const auto run_flicker = [](Bench& bench) { bench.RunFlicker(); };
  const auto disable_refused = [](Bench& bench) { bench.Run("", kOnChange).DisableRefused(); };
  const auto change_refused = [](int n) {
    return [=](Bench& bench) { bench.Run("", kContinuous).ChangeRefused(n); };
  };
  return {
      {"Unconnected", unconnected, done, {2, {"InvokeAsyncServiceCall err:  2!"}}, {2}, {2}, none},
      {"Undiscovered", [](Bench& bench) { bench.Create(); }, done, done, done, done, none},
      {"Undiscoverable", list_only(kFlicker), no_discovery, no_sensor_discovered,
       no_sensor_discovered, done, none},
      {"WithoutOpticalSensors", list_only(kListMarker), {7}, no_sensor, no_sensor, done, none},
      {"Idle", idle, done, done, done, done, none},
      {"RunningContinuous", run("", kContinuous), done, done, done, done, open},
      {"RunningOnChange", run("", kOnChange), done, runs, done, done, open},
      {"StreamingFlicker", run_flicker, done, done, runs_flicker, done, open},
      {"DisableWasRefused", disable_refused, done, done, done, done, none},
      {"StopOfChangeWasRefused", change_refused(1), done, done, done, done, open},
      {"StartOfChangeWasRefused", change_refused(2), done, done, done, done, stopped},
      {"InsideRearSample", run("", kContinuous), done, done, done, done, open,
       DataWay::kRearSample},
      {"InsideFrontEvents", run("Front", kContinuous), done, done, done, done, open,
       DataWay::kFrontEvents},
      {"InsideFlickerData", run_flicker, done, done, runs_flicker, done, open,
       DataWay::kFlickerData},
  };
}

const Outcome& ExpectedOf(std::string_view operation, const State& state) {
  if (operation == "EnableAmbientLightSensor") {
    return state.enable;
  }
  if (operation == "EnableFlickerSensor") {
    return state.enable_flicker;
  }
  if (operation == "GetSensorName") {
    return state.of_session.name;
  }
  if (operation == "ChangeAmbientLightSensorReporting") {
    return state.of_session.change;
  }
  if (operation.starts_with("Disable")) {
    return state.of_session.disable;
  }
  return operation.ends_with("SensorNames") || operation == "IsSensorSupported" ? state.look_up
                                                                                : state.access;
}

void CallIn(const State& state, const Operation& operation) {
  SCOPED_TRACE(operation.name);
  Bench bench;
  state.prepare(bench);
  const Outcome& expected = ExpectedOf(operation.name, state);
  std::vector<LogEntry> problems;
  for (const char* const problem : expected.problems) {
    const std::string text = Text(problem, bench.session);
    problems.push_back(expected.code == 19 ? Warning(text) : Error(text));
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

INSTANTIATE_TEST_SUITE_P(In, StateTableTest, ::testing::ValuesIn(States()),
                         [](const auto& test) { return std::string(test.param.name); });

/// At the same time, each on an instance of its own, since a discovery can take seconds.
TEST_P(StateTableTest, EveryOperationHasItsResultAndMessages) {
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
