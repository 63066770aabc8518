// One script that uses every operation, played again for every point at which one thing can go
// wrong. What each operation then owes its client is told by rules of the test's own.

#include <algorithm>
#include <map>
#include <memory>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include <hyl/host/vector_faults.h>
#include <hyl/hyl_spectral_impl.h>

#include "data_way.h"
#include "library_test.h"
#include "operations.h"

namespace hyl::v2::test {
namespace {

using spectral::SensorInfoMgr;
using spectral::Session;
using spectral::SessionMgr;
using Kind = FrameworkCall::Kind;

// The instance's tables are private, but an explicit instantiation may name them.
SensorInfoMgr& ListOf(HylSpectralImpl& instance);
SessionMgr& TableOf(HylSpectralImpl& instance);
template <SensorInfoMgr HylSpectralImpl::*kList, SessionMgr HylSpectralImpl::*kTable>
struct Access {
  friend SensorInfoMgr& ListOf(HylSpectralImpl& instance) { return instance.*kList; }
  friend SessionMgr& TableOf(HylSpectralImpl& instance) { return instance.*kTable; }
};
template struct Access<&HylSpectralImpl::sensor_info_mgr_, &HylSpectralImpl::session_mgr_>;

enum class Fault {
  kNone,
  kRefused,       // the request of that number
  kReplyDoubled,  // its reply; likewise below
  kReplyLost,     // comes when the instance is gone
  kReplyLate,     // comes when the operation has returned
  kReplyInWay,    // comes when the next request has been sent, ahead of that one's own
  kReplyUnknown,
  kGrowth,  // of a vector
  kGrowthFromThenOn,
  kCreate,
  kSensorList,
};

constexpr HylErr kRefusal{77};

struct Sensor {
  uint32_t handle;
  SensorType type;
  uint32_t index;
  const char* name;

  uint32_t request_id() const { return 0x0A000000 | index << 16 | type; }
  uint64_t cookie() const { return uint64_t{1} << 32 | request_id(); }
  SensorReportingMode mode() const { return type == 12 ? kOnChange : kContinuous; }
  std::string ToStr() const { return Text("'%s'-%d:%u", name, type, index); }
};

enum { kRearSeldom, kRear, kFrontSeldom, kFront, kLamp };
constexpr Sensor kSensors[] = {{kRearOnChange, 12, 0, "Rear ALS"},  // in the order of the list
                               {kRearContinuous, 1012, 0, "Rear ALS"},
                               {kFrontOnChange, 12, 1, "Front ALS"},
                               {kFrontContinuous, 1012, 1, "Front ALS"},
                               {kFlicker, 13, 0, "Flicker"}};

/// Told of every operation before it is called, tells its result.
class Rules {
 public:
  Rules(Fault fault, int number) : fault_(fault), number_(number) {}

  void Create() {
    connected_ = fault_ != Fault::kCreate || number_ != 1;
    if (!connected_) {
      Fail(HylErr::kOk, "Failed to create HYL API instance");
    }
  }

  /// A sensor for which there is no memory is left out.
  void Discover() {
    for (const Sensor& sensor : kSensors) {
      if (Grow()) {
        listed_.insert(&sensor);
      }
    }
  }

  std::string Names(SensorType type) {
    std::string names;
    for (const Sensor& sensor : kSensors) {
      if (sensor.type == type && listed_.count(&sensor) != 0 && Grow()) {
        names.append(sensor.name).append(";");
      }
    }
    return names;
  }

  bool Lists(const char* first_name) const {
    return std::any_of(listed_.begin(), listed_.end(), [=](const Sensor* sensor) {
      return std::string_view(sensor->name).starts_with(first_name);
    });
  }

  /// There is memory for all values at once, or for some of them.
  std::vector<float> Values(std::vector<float> values) {
    if (!Grow()) {
      std::erase_if(values, [&](float) { return !Grow(); });
    }
    return values;
  }

  HylErr Enable(DataWay way, const Sensor& sensor) {
    if (listed_.count(&sensor) == 0) {
      return Fail(HylErr::kNotFound, Text("Sensor '%s' not found", sensor.name));
    }
    if (running.count(&sensor) != 0) {
      problems.push_back(Warning("Cannot start sensor " + sensor.ToStr() + ", already running"));
      return HylErr::kAlreadyRunning;
    }
    const HylErr err = Start(sensor);
    if (err == HylErr::kOk) {
      sessions[way] = &sensor;
    } else if (sensor.handle != kFlicker) {
      Fail(err, Text("InvokeAsyncServiceCall err:  %d!", static_cast<int>(err)));
    }
    return err;
  }

  /// A refused stop changes nothing. After a refused start the session has no running sensor.
  HylErr Change(DataWay way, uint32_t id, const Sensor& to) {
    const auto session = sessions.find(way);
    if (session == sessions.end()) {
      return Fail(HylErr::kNotFound, Text("Change-ALS: Cannot find session for id (%u)", id));
    }
    const Sensor& from = *session->second;
    if (&from == &to) {
      return HylErr::kOk;
    }
    if (running.count(&from) == 0) {
      return Fail(HylErr::kNotFound, Text("Change-ALS: Cannot stop, sensor with cookie:%lx not "
                                          "found.",
                                          from.cookie()));
    }
    if (const HylErr err = Ask(4, from); err != HylErr::kOk) {
      return Fail(err, "Change-ALS: InvokeAsyncServiceCall err:  77!");
    }
    running.erase(&from);
    if (listed_.count(&to) == 0) {
      return Fail(HylErr::kNotFound, Text("Change-ALS: Sensor of new type %d priority %u not found",
                                          to.type, to.index));
    }
    if (const HylErr err = Start(to); err != HylErr::kOk) {
      return Fail(err, "Change-ALS: start err:  77!");
    }
    session->second = &to;
    return HylErr::kOk;
  }

  /// The session is gone whatever happens. A sensor whose stop is refused counts as stopped, though
  /// the framework still runs it.
  HylErr Disable(DataWay way, uint32_t id) {
    const auto session = sessions.extract(way);
    if (!session) {
      return Fail(HylErr::kNotFound, Text("Cannot disable sensor, no session-id:%u", id));
    }
    const Sensor& sensor = *session.mapped();
    if (running.erase(&sensor) == 0) {
      return Fail(HylErr::kNotFound,
                  Text("Cannot stop, sensor with cookie:%lx not found.", sensor.cookie()));
    }
    const HylErr err = Ask(4, sensor);
    if (err != HylErr::kOk) {
      abandoned.insert({sensor.handle, sensor.request_id()});
      Fail(err, Text("Failed to stop sensor %s(%u@v1) (err:77)", sensor.ToStr().c_str(),
                     sensor.request_id()));
    }
    return err;
  }

  /// An operation that waits needs its reply.
  HylErr AccessSetting(bool waits) {
    const HylErr err = Ask(64, {kRearContinuous, 0, 0, ""});
    const bool no_reply = fault_ >= Fault::kReplyLost && fault_ <= Fault::kReplyUnknown &&
                          static_cast<int>(requests.size()) == number_;
    return waits && no_reply ? HylErr::kFailed : err;
  }

  std::map<DataWay, const Sensor*> sessions;
  std::set<const Sensor*> running;  // for the library
  /// Runs for the framework alone: a stop was refused, or the instance that started it is gone.
  std::set<std::pair<uint32_t, uint32_t>> abandoned;
  std::vector<std::string> requests;
  std::vector<LogEntry> problems;

 private:
  HylErr Fail(HylErr err, const std::string& text) {
    problems.push_back(Error(text));
    return err;
  }
  bool Grow() {
    ++growths_;
    return !(fault_ == Fault::kGrowth && growths_ == number_) &&
           !(fault_ == Fault::kGrowthFromThenOn && growths_ >= number_);
  }
  HylErr Ask(uint32_t type, const Sensor& sensor) {
    if (!connected_) {
      return HylErr::kFailed;
    }
    requests.push_back(Text("%u %x", type, sensor.handle));
    return fault_ == Fault::kRefused && static_cast<int>(requests.size()) == number_ ? kRefusal
                                                                                     : HylErr::kOk;
  }
  HylErr Start(const Sensor& sensor) {
    const HylErr err = Ask(sensor.type == 12 ? 2 : 3, sensor);
    if (err == HylErr::kOk) {
      running.insert(&sensor);
      abandoned.erase({sensor.handle, sensor.request_id()});
    }
    return err;
  }

  Fault fault_;
  int number_;
  int growths_ = 0;
  bool connected_ = true;
  std::set<const Sensor*> listed_;
};

class ScriptRun;
thread_local ScriptRun* t_run = nullptr;  // that of this thread, whose vectors grow

/// A framework with one fault, and the instances that play the script on it one after the other.
class ScriptRun {
 public:
  ScriptRun(Fault fault, int number) : fault_(fault), number_(number) {
    t_run = this;
    t_problems = &problems_;
    framework_.AnswerWith([this](const FrameworkCall& call) { return Answer(call); });
    framework_.SetHook([this](const FrameworkCall& call) { BeforeCall(call); });
    framework_.SetSensorList([this](int query) {
      return Strikes(Fault::kSensorList, query) ? std::vector<SensorListEntry>() : DefaultSensors();
    });
    if (fault == Fault::kRefused) {
      framework_.RefuseInvoke(number, kRefusal);
    } else if (fault == Fault::kCreate) {
      framework_.FailCreate(number);
    }
  }
  ~ScriptRun() {
    t_run = nullptr;
    t_problems = nullptr;
  }
  ScriptRun(const ScriptRun&) = delete;
  ScriptRun& operator=(const ScriptRun&) = delete;

  /// Plays the script on a new instance.
  void Play() {
    rules_ = Rules(fault_, number_);
    rules_.abandoned = framework_.Running();
    framework_.Take();
    ids_.clear();
    rules_.Create();
    EXPECT_EQ(HylErr::kOk, HylSpectralApi::Create(&api_, &client_, HylLogLevel::kInfo));
    rules_.Discover();
    CompareNames();
    Enable(DataWay::kRearSample, kSensors[kRear]);
    Enable(DataWay::kFrontEvents, kSensors[kFrontSeldom]);
    Enable(DataWay::kFlickerData, kSensors[kLamp]);
    Enable(DataWay::kFlickerData, kSensors[kLamp]);  // runs already
    AccessSettings();
    Change(DataWay::kRearSample, kSensors[kRearSeldom]);
    Change(DataWay::kRearSample, kSensors[kRear]);
    Change(DataWay::kFrontEvents, kSensors[kFront]);
    Change(DataWay::kFrontEvents, kSensors[kFront]);  // in that mode already
    Deliver(DataWay::kRearSample, {{1, 2, 3}});
    Deliver(DataWay::kFrontEvents, {{1}, {2}});
    Deliver(DataWay::kFlickerData, {});
    for (const DataWay way : kAllDataWays) {
      Disable(way);
      Disable(way);
    }
    Change(DataWay::kRearSample, kSensors[kRearSeldom]);
    Enable(DataWay::kRearSample, kSensors[kRear]);
    Enable(DataWay::kFlickerData, kSensors[kLamp]);
    HylSpectralApi::Destroy(&api_);  // stops neither
    DeliverLateReply();
    EXPECT_EQ(0, framework_.live_apis());
    CompareCalls();
  }

  /// From now on nothing goes wrong any more.
  void EndFault() { fault_ = Fault::kNone; }

  bool GrowthFails() {
    ++growths_;
    return Strikes(Fault::kGrowth, growths_) ||
           (growths_ >= number_ && Strikes(Fault::kGrowthFromThenOn, number_));
  }

  /// How often the fault could have struck in the latest play.
  int Chances(Fault fault) const {
    switch (fault) {
      case Fault::kGrowth:
      case Fault::kGrowthFromThenOn:
        return growths_;
      case Fault::kCreate:
        return calls_.at(Kind::kCreate);
      case Fault::kSensorList:
        return calls_.at(Kind::kGetSensorList);
      default:
        return calls_.at(Kind::kInvoke);
    }
  }
  bool struck() const { return struck_; }

 private:
  bool Strikes(Fault fault, int number) {
    const bool strikes = fault_ == fault && number_ == number;
    struck_ = struck_ || strikes;
    return strikes;
  }

  // The framework's side.

  std::vector<std::unique_ptr<Message>> Answer(const FrameworkCall& call) {
    ++answered_;
    auto replies = ScriptedApi::Echo(call);
    if (Strikes(Fault::kReplyLost, answered_) || Strikes(Fault::kReplyLate, answered_) ||
        Strikes(Fault::kReplyInWay, answered_)) {
      late_ = {call.handle, std::move(replies[0])};
      replies.clear();
    } else if (Strikes(Fault::kReplyDoubled, answered_)) {
      replies.push_back(std::move(ScriptedApi::Echo(call)[0]));
    } else if (Strikes(Fault::kReplyUnknown, answered_)) {
      replies[0] = std::make_unique<BareMessage>(99);
    }
    return replies;
  }

  void BeforeCall(const FrameworkCall& call) {
    if (fault_ == Fault::kReplyInWay && call.kind == Kind::kInvoke) {
      std::thread([this] { DeliverLateReply(); }).join();
    }
  }

  void DeliverLateReply() {
    if (late_.second != nullptr) {
      framework_.Deliver(late_.first, *late_.second);
      late_.second.reset();
    }
  }

  void CompareCalls() {
    std::vector<std::string> requests;
    calls_.clear();
    for (const FrameworkCall& call : framework_.Take()) {
      ++calls_[call.kind];
      struck_ = struck_ || call.result == kRefusal || (call.kind == Kind::kCreate && call.api == 0);
      if (call.kind == Kind::kInvoke) {
        requests.push_back(Text("%u %x", call.type, call.handle));
      }
    }
    EXPECT_EQ(rules_.requests, requests);
  }

  // The client's side: steps of the script, each of which ends in Check.

  void CompareNames() {
    const auto list = [](const Vector<HylString>& names) {
      std::string text;
      for (const HylString& name : names) {
        text.append(name.c_str()).append(";");
      }
      return text;
    };
    EXPECT_EQ(rules_.Names(1012), list(api_->GetAmbientLightSensorNames()));
    EXPECT_EQ(rules_.Names(13), list(api_->GetFlickerSensorNames()));
    EXPECT_EQ(rules_.Lists("Rear"),
              api_->IsSensorSupported(OpticalSensorType::kAnyOptical, "Rear"));
    Check("GetNames");
  }

  void Enable(DataWay way, const Sensor& sensor) {
    constexpr uint32_t kUntouched = 0xFFFFFFFF;
    uint32_t id = kUntouched;
    const HylErr expected = rules_.Enable(way, sensor);
    EXPECT_EQ(expected,
              way == DataWay::kFlickerData
                  ? api_->EnableFlickerSensor(sensor.name, buffer_, std::size(buffer_), 16, id)
                  : api_->EnableAmbientLightSensor(sensor.name, id, sensor.mode()));
    EXPECT_EQ(expected == HylErr::kOk, id != kUntouched);
    ids_[way] = expected == HylErr::kOk ? id : ids_[way];
    Check("Enable");
  }

  void Change(DataWay way, const Sensor& to) {
    EXPECT_EQ(rules_.Change(way, ids_[way], to),
              api_->ChangeAmbientLightSensorReporting(ids_[way], to.mode()));
    Check("Change");
  }

  void Disable(DataWay way) {
    EXPECT_EQ(rules_.Disable(way, ids_[way]), way == DataWay::kFlickerData
                                                  ? api_->DisableFlickerSensor(ids_[way])
                                                  : api_->DisableAmbientLightSensor(ids_[way]));
    Check("Disable");
  }

  /// Data of a sensor that runs for a session.
  void Deliver(DataWay way, std::vector<std::vector<float>> values) {
    const auto session = rules_.sessions.find(way);
    if (session == rules_.sessions.end() || rules_.running.count(session->second) == 0) {
      return;
    }
    if (way == DataWay::kFlickerData) {
      framework_.Deliver(kFlicker, FlickerFormat(FlickerFormatSampleWidth::kUncompressed2));
    } else if (way == DataWay::kFrontEvents) {
      rules_.problems.push_back(Warning("Unknown Sensor Event type:5\n"));
    }
    DeliverData(*framework_.CallbacksOf(session->second->handle), way);
    const std::vector<SpectralCall> calls = client_.TakeSpectral();
    ASSERT_EQ(values.size(), calls.size());
    for (size_t i = 0; i < calls.size(); ++i) {
      EXPECT_EQ(rules_.Values(values[i]), calls[i].values);
    }
    EXPECT_EQ(way == DataWay::kFlickerData ? 1U : 0U, client_.TakeFlicker().size());
    Check("data");
  }

  void AccessSettings() {
    constexpr size_t kFirst = 8;  // of the settings' slots
    for (const Operation& operation : std::span(kOperations).subspan(kFirst)) {
      const std::string name = operation.name;
      if (name != "IsSensorSupported") {
        const bool waits = name[0] == 'G' || name == "SetExposureTime" || name == "SetGain" ||
                           name == "SetSamplingPeriod";
        EXPECT_EQ(rules_.AccessSetting(waits), operation.call(*api_, 0));
        Check(operation.name);
      }
    }
    Apply(1234U, [&](auto* out) { return api_->SetExposureTime(nullptr, 1234, out); });
    Apply(2.5F, [&](auto* out) { return api_->SetGain(nullptr, 1, 2.5F, out); });
    Apply(777U, [&](auto* out) { return api_->SetSamplingPeriod(nullptr, 777, out); });
  }

  /// Hands back the operation's own value, never that of another reply; nothing when it failed.
  template <typename T, typename Call>
  void Apply(T wanted, Call call) {
    T applied{};
    const HylErr expected = rules_.AccessSetting(true);
    EXPECT_EQ(expected, call(&applied));
    EXPECT_EQ(expected == HylErr::kOk ? wanted : T{}, applied);
    Check("a value");
  }

  /// Lets the framework come to rest and looks at what the step has left behind.
  void Check(const char* step) {
    SCOPED_TRACE(step);
    framework_.AwaitAnswers();
    if (fault_ == Fault::kReplyLate) {
      DeliverLateReply();
    }
    EXPECT_EQ(std::exchange(rules_.problems, {}), std::exchange(problems_, {}));
    std::set<std::pair<uint32_t, uint32_t>> running = rules_.abandoned;
    for (const Sensor& sensor : kSensors) {
      spectral::VersionedSensorInfo found;
      ListOf(Impl()).GetSensorInfo(found, sensor.type, nullptr, sensor.index);
      const bool runs = rules_.running.count(&sensor) != 0;
      EXPECT_EQ(runs ? sensor.request_id() : 0, found.info.request_id) << sensor.ToStr();
      if (runs) {
        running.insert({sensor.handle, sensor.request_id()});
      }
      CheckSession(sensor);
    }
    EXPECT_EQ(running, framework_.Running());
  }

  void CheckSession(const Sensor& sensor) {
    const auto expected = std::find_if(rules_.sessions.begin(), rules_.sessions.end(),
                                       [&](const auto& each) { return each.second == &sensor; });
    const Session* const session = TableOf(Impl()).FindByCookie(sensor.cookie());
    ASSERT_EQ(expected != rules_.sessions.end(), session != nullptr) << sensor.ToStr();
    if (session != nullptr) {
      EXPECT_EQ(ids_[expected->first], session->id);
      EXPECT_EQ(sensor.type, session->type);
      EXPECT_EQ(static_cast<int>(sensor.mode()), static_cast<int>(session->mode));
      EXPECT_STREQ(rules_.running.count(&sensor) != 0 ? sensor.name : "",
                   api_->GetSensorName(session->id).c_str());
    }
  }

  HylSpectralImpl& Impl() { return static_cast<HylSpectralImpl&>(*api_); }

  Fault fault_;
  const int number_;
  bool struck_ = false;
  int answered_ = 0;
  int growths_ = 0;
  std::map<Kind, int> calls_;
  std::pair<uint32_t, std::unique_ptr<Message>> late_;  // reply, and the handle of its request
  std::vector<LogEntry> problems_;

  ScriptedApi framework_;
  RecordingClient client_;
  int buffer_[8] = {};
  HylSpectralApi* api_ = nullptr;
  std::map<DataWay, uint32_t> ids_;  // of the sessions that were opened last
  Rules rules_{Fault::kNone, 0};
};

class FailureSweepTest : public ::testing::TestWithParam<std::pair<Fault, const char*>> {
 protected:
  FailureSweepTest() {
    host::FailVectorGrowth([] { return t_run != nullptr && t_run->GrowthFails(); });
  }
  ~FailureSweepTest() override { host::FailVectorGrowth({}); }

  static void PlayWithFaultAt(int number) {
    SCOPED_TRACE(Text("%s at %d", GetParam().second, number));
    ScriptRun run(GetParam().first, number);
    run.Play();
    EXPECT_TRUE(run.struck());
    run.EndFault();
    SCOPED_TRACE("on a new instance");
    run.Play();
  }

  LogCapture log_of_the_frameworks_threads_;
};

INSTANTIATE_TEST_SUITE_P(Of, FailureSweepTest,
                         ::testing::Values(std::pair(Fault::kRefused, "Refused"),
                                           std::pair(Fault::kReplyLost, "ReplyLost"),
                                           std::pair(Fault::kReplyLate, "ReplyLate"),
                                           std::pair(Fault::kReplyInWay, "ReplyInTheNextOnesWay"),
                                           std::pair(Fault::kReplyDoubled, "ReplyDoubled"),
                                           std::pair(Fault::kReplyUnknown, "ReplyOfUnknownType"),
                                           std::pair(Fault::kGrowth, "Growth"),
                                           std::pair(Fault::kGrowthFromThenOn, "GrowthFromThenOn"),
                                           std::pair(Fault::kCreate, "Create"),
                                           std::pair(Fault::kSensorList, "SensorList")),
                         [](const auto& test) { return std::string(test.param.second); });

/// The plays run at the same time, as some of them wait for seconds.
TEST_P(FailureSweepTest, CostsAnErrorCodeAndNothingElse) {
  ScriptRun sound(Fault::kNone, 0);
  sound.Play();
  const int chances = sound.Chances(GetParam().first);
  ASSERT_LT(0, chances);
  std::vector<std::thread> plays;
  for (int number = 1; number <= chances; ++number) {
    plays.emplace_back([=] { PlayWithFaultAt(number); });
  }
  for (std::thread& play : plays) {
    play.join();
  }
}

}  // namespace
}  // namespace hyl::v2::test
