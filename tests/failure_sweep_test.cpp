// One script that uses every operation, played again for every point at which one thing can go
// wrong. What is owed to the client then, is told by rules of the test's own.

#include <functional>
#include <map>
#include <memory>
#include <set>
#include <span>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <hyl/host/hooks.h>
#include <hyl/hyl_spectral_impl.h>

#include "data_way.h"
#include "library_test.h"
#include "operations.h"

namespace hyl::v2::test {
namespace {

using spectral::SensorInfoMgr;
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
  kRefused,       // a request
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
  std::pair<uint32_t, uint32_t> request() const { return {handle, request_id()}; }
  uint64_t cookie() const { return uint64_t{1} << 32 | request_id(); }
  SensorReportingMode mode() const { return type == 12 ? kOnChange : kContinuous; }
};

constexpr Sensor kRearOnChangeSensor{kRearOnChange, 12, 0, "Rear ALS"};
constexpr Sensor kRearSensor{kRearContinuous, 1012, 0, "Rear ALS"};
constexpr Sensor kFrontOnChangeSensor{kFrontOnChange, 12, 1, "Front ALS"};
constexpr Sensor kFrontSensor{kFrontContinuous, 1012, 1, "Front ALS"};
constexpr Sensor kFlickerSensor{kFlicker, 13, 0, "Flicker"};
/// In the order of the framework's list.
constexpr const Sensor* kSensors[] = {&kRearOnChangeSensor, &kRearSensor, &kFrontOnChangeSensor,
                                      &kFrontSensor, &kFlickerSensor};

/// Told of every operation before it is called, tells its result. A session goes by the way of its
/// data.
class Rules {
 public:
  Rules(Fault fault, int number) : fault_(fault), number_(number) {}

  /// A sensor for which there is no memory is left out.
  void Discover() {
    for (const Sensor* const sensor : kSensors) {
      if (Grow()) {
        listed.insert(sensor);
      }
    }
  }

  /// Number of the names.
  size_t Names(SensorType type) {
    size_t count = 0;
    for (const Sensor* const sensor : kSensors) {
      count += sensor->type == type && listed.count(sensor) != 0 && Grow() ? 1U : 0U;
    }
    return count;
  }

  /// There is memory for all values at once, or for some of them.
  std::vector<float> Values(std::vector<float> values) {
    if (!Grow()) {
      std::erase_if(values, [&](float) { return !Grow(); });
    }
    return values;
  }

  HylErr Enable(DataWay way, const Sensor& sensor) {
    if (listed.count(&sensor) == 0) {
      return HylErr::kNotFound;
    }
    if (running.count(&sensor) != 0) {
      return HylErr::kAlreadyRunning;
    }
    return Start(way, sensor);
  }

  /// A refused stop changes nothing. After a refused start the session has no running sensor.
  HylErr Change(DataWay way, const Sensor& to) {
    const Sensor* const from = sessions[way];
    if (from == &to) {
      return HylErr::kOk;
    }
    if (from == nullptr || running.count(from) == 0) {
      return HylErr::kNotFound;
    }
    const HylErr err = Ask();
    if (err != HylErr::kOk) {
      return err;
    }
    running.erase(from);
    return listed.count(&to) == 0 ? HylErr::kNotFound : Start(way, to);
  }

  /// The session is gone whatever happens. A sensor whose stop is refused counts as stopped, though
  /// the framework still runs it.
  HylErr Disable(DataWay way) {
    const Sensor* const sensor = std::exchange(sessions[way], nullptr);
    if (sensor == nullptr || running.erase(sensor) == 0) {
      return HylErr::kNotFound;
    }
    const HylErr err = Ask();
    if (err != HylErr::kOk) {
      abandoned.insert(sensor->request());
    }
    return err;
  }

  /// An operation that waits needs its reply.
  HylErr AccessSetting(bool waits) {
    const HylErr err = Ask();
    const bool no_reply = fault_ >= Fault::kReplyLost && fault_ <= Fault::kReplyUnknown;
    return waits && no_reply && requests == number_ ? HylErr::kFailed : err;
  }

  std::set<const Sensor*> listed;
  std::map<DataWay, const Sensor*> sessions;
  std::set<const Sensor*> running;  // for the library
  /// Runs for the framework alone: its stop was refused, or the instance that started it is gone.
  std::set<std::pair<uint32_t, uint32_t>> abandoned;
  int requests = 0;

 private:
  bool Grow() {
    ++growths_;
    return !(fault_ == Fault::kGrowth && growths_ == number_) &&
           !(fault_ == Fault::kGrowthFromThenOn && growths_ >= number_);
  }
  /// Nothing is sent without a connection, which the first Create makes.
  HylErr Ask() {
    if (fault_ == Fault::kCreate && number_ == 1) {
      return HylErr::kFailed;
    }
    return ++requests == number_ && fault_ == Fault::kRefused ? kRefusal : HylErr::kOk;
  }
  HylErr Start(DataWay way, const Sensor& sensor) {
    const HylErr err = Ask();
    if (err == HylErr::kOk) {
      sessions[way] = &sensor;
      running.insert(&sensor);
      abandoned.erase(sensor.request());
    }
    return err;
  }

  Fault fault_;
  int number_;
  int growths_ = 0;
};

thread_local std::function<bool()> t_growth_fails;  // of vectors that grow on this thread

/// A framework with one fault, and the instances that play the script on it one after the other.
class ScriptRun {
 public:
  ScriptRun(Fault fault, int number) : fault_(fault), number_(number) {
    t_growth_fails = [this] { return GrowthFails(); };
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
  ~ScriptRun() { t_growth_fails = {}; }

  /// Plays the script on a new instance.
  void Play() {
    rules_ = Rules(fault_, number_);
    rules_.abandoned = framework_.Running();
    framework_.Take();
    ids_.clear();
    EXPECT_EQ(HylErr::kOk, HylSpectralApi::Create(&api_, &client_, HylLogLevel::kInfo));
    rules_.Discover();
    CompareNames();
    Enable(DataWay::kRearSample, kRearSensor);
    Enable(DataWay::kFrontEvents, kFrontOnChangeSensor);
    Enable(DataWay::kFlickerData, kFlickerSensor);
    Enable(DataWay::kFlickerData, kFlickerSensor);  // runs already
    AccessSettings();
    Change(DataWay::kRearSample, kRearOnChangeSensor);
    Change(DataWay::kRearSample, kRearSensor);
    Change(DataWay::kFrontEvents, kFrontSensor);
    Change(DataWay::kFrontEvents, kFrontSensor);  // in that mode already
    Deliver(DataWay::kRearSample, {{1, 2, 3}});
    Deliver(DataWay::kFrontEvents, {{1}, {2}});
    for (const DataWay way : kAllDataWays) {
      Disable(way);
      Disable(way);
    }
    Change(DataWay::kRearSample, kRearOnChangeSensor);
    Enable(DataWay::kRearSample, kRearSensor);
    Enable(DataWay::kFlickerData, kFlickerSensor);
    HylSpectralApi::Destroy(&api_);  // stops neither
    DeliverLateReply();
    EXPECT_EQ(0, framework_.live_apis());
    CountCalls();
  }

  /// From now on nothing goes wrong any more.
  void EndFault() { fault_ = Fault::kNone; }
  bool struck() const { return struck_; }
  int calls(Kind kind) { return calls_[kind]; }
  int growths() const { return growths_; }

 private:
  bool Strikes(Fault fault, int number) {
    const bool strikes = fault_ == fault && number_ == number;
    struck_ = struck_ || strikes;
    return strikes;
  }

  // The framework's side.

  bool GrowthFails() {
    ++growths_;
    return Strikes(Fault::kGrowth, growths_) ||
           (growths_ >= number_ && Strikes(Fault::kGrowthFromThenOn, number_));
  }

  std::vector<std::unique_ptr<Message>> Answer(const FrameworkCall& call) {
    ++answered_;
    auto replies = ScriptedFramework::Echo(call);
    if (Strikes(Fault::kReplyLost, answered_) || Strikes(Fault::kReplyLate, answered_) ||
        Strikes(Fault::kReplyInWay, answered_)) {
      late_ = {call.handle, std::move(replies[0])};
      replies.clear();
    } else if (Strikes(Fault::kReplyDoubled, answered_)) {
      replies.push_back(std::move(ScriptedFramework::Echo(call)[0]));
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
      framework_.Deliver(late_.first, *std::exchange(late_.second, nullptr));
    }
  }

  void CountCalls() {
    calls_.clear();
    for (const FrameworkCall& call : framework_.Take()) {
      ++calls_[call.kind];
      struck_ = struck_ || call.result == kRefusal || (call.kind == Kind::kCreate && call.api == 0);
    }
    EXPECT_EQ(rules_.requests, calls_[Kind::kInvoke]);
  }

  // The client's side: steps of the script, each of which ends in Check.

  void CompareNames() {
    EXPECT_EQ(rules_.Names(1012), api_->GetAmbientLightSensorNames().size());
    EXPECT_EQ(rules_.Names(13), api_->GetFlickerSensorNames().size());
    EXPECT_EQ(rules_.listed.count(&kFlickerSensor) != 0,
              api_->IsSensorSupported(OpticalSensorType::kAnyOptical, kFlickerSensor.name));
    Check("names");
  }

  void Enable(DataWay way, const Sensor& sensor) {
    constexpr uint32_t kUntouched = 0xFFFFFFFF;
    uint32_t id = kUntouched;
    const std::string prefix(sensor.name, 4);
    const HylErr expected = rules_.Enable(way, sensor);
    EXPECT_EQ(expected,
              way == DataWay::kFlickerData
                  ? api_->EnableFlickerSensor(prefix.c_str(), buffer_, std::size(buffer_), 16, id)
                  : api_->EnableAmbientLightSensor(prefix.c_str(), id, sensor.mode()));
    EXPECT_EQ(expected == HylErr::kOk, id != kUntouched);
    ids_[way] = expected == HylErr::kOk ? id : ids_[way];
    Check("Enable");
  }

  void Change(DataWay way, const Sensor& to) {
    EXPECT_EQ(rules_.Change(way, to),
              api_->ChangeAmbientLightSensorReporting(ids_[way], to.mode()));
    Check("Change");
  }

  void Disable(DataWay way) {
    EXPECT_EQ(rules_.Disable(way), way == DataWay::kFlickerData
                                       ? api_->DisableFlickerSensor(ids_[way])
                                       : api_->DisableAmbientLightSensor(ids_[way]));
    Check("Disable");
  }

  /// Data of a sensor that runs for a session.
  void Deliver(DataWay way, const std::vector<std::vector<float>>& values) {
    const Sensor* const sensor = rules_.sessions[way];
    if (sensor == nullptr || rules_.running.count(sensor) == 0) {
      return;
    }
    const ScriptedFramework::Callbacks object = framework_.CallbacksOf(sensor->handle);
    ASSERT_NE(nullptr, object);
    DeliverData(*object, way);
    const std::vector<SpectralCall> calls = client_.TakeSpectral();
    ASSERT_EQ(values.size(), calls.size());
    for (size_t i = 0; i < calls.size(); ++i) {
      EXPECT_EQ(rules_.Values(values[i]), calls[i].values);
    }
  }

  void AccessSettings() {
    for (const Operation& operation : kOperations) {
      const std::string name = operation.name;
      if (operation.kind != Operation::Kind::kOther && name != "SetExposureTime") {
        const bool waits = operation.kind == Operation::Kind::kSettingThatWaits;
        EXPECT_EQ(rules_.AccessSetting(waits), operation.call(*api_, 0));
        Check(operation.name);
        SetExposureTime(static_cast<uint32_t>(&operation - kOperations));
      }
    }
  }

  /// Hands back its own value, never that of another reply; nothing when it fails.
  void SetExposureTime(uint32_t time) {
    uint32_t applied = 0;
    const HylErr expected = rules_.AccessSetting(true);
    EXPECT_EQ(expected, api_->SetExposureTime(nullptr, time, &applied));
    EXPECT_EQ(expected == HylErr::kOk ? time : 0, applied);
    Check("SetExposureTime");
  }

  /// Lets the framework come to rest and looks at what the step has left behind.
  void Check(const char* step) {
    SCOPED_TRACE(step);
    framework_.AwaitAnswers();
    if (fault_ == Fault::kReplyLate) {
      DeliverLateReply();
    }
    auto& instance = static_cast<HylSpectralImpl&>(*api_);
    std::set<std::pair<uint32_t, uint32_t>> running = rules_.abandoned;
    std::map<uint64_t, uint32_t> sessions;  // ids by cookies
    for (const auto& [way, sensor] : rules_.sessions) {
      if (sensor != nullptr) {
        sessions[sensor->cookie()] = ids_[way];
        EXPECT_STREQ(rules_.running.count(sensor) != 0 ? sensor->name : "",
                     api_->GetSensorName(ids_[way]).c_str());
      }
    }
    for (const Sensor* const sensor : kSensors) {
      const bool runs = rules_.running.count(sensor) != 0;
      spectral::VersionedSensorInfo found;
      ListOf(instance).GetSensorInfo(found, sensor->type, nullptr, sensor->index);
      EXPECT_EQ(runs ? sensor->request_id() : 0, found.info.request_id) << sensor->handle;
      EXPECT_EQ(sessions[sensor->cookie()], TableOf(instance).FindId(sensor->cookie()));
      if (runs) {
        running.insert(sensor->request());
      }
    }
    EXPECT_EQ(running, framework_.Running());
  }

  Fault fault_;
  const int number_;
  bool struck_ = false;
  int answered_ = 0;
  int growths_ = 0;
  std::map<Kind, int> calls_;                           // of the latest play
  std::pair<uint32_t, std::unique_ptr<Message>> late_;  // reply, and its request's handle

  ScriptedFramework framework_;
  RecordingClient client_;
  int buffer_[8] = {};
  HylSpectralApi* api_ = nullptr;
  std::map<DataWay, uint32_t> ids_;  // of the sessions that were opened last
  Rules rules_{Fault::kNone, 0};
};

struct Sweep {
  const char* name;
  Fault fault;
  Kind of = Kind::kInvoke;
};

constexpr Sweep kSweeps[] = {{"Refused", Fault::kRefused},
                             {"ReplyDoubled", Fault::kReplyDoubled},
                             {"ReplyLost", Fault::kReplyLost},
                             {"ReplyLate", Fault::kReplyLate},
                             {"ReplyInWay", Fault::kReplyInWay},
                             {"ReplyUnknown", Fault::kReplyUnknown},
                             {"Growth", Fault::kGrowth},
                             {"LaterGrowth", Fault::kGrowthFromThenOn},
                             {"Create", Fault::kCreate, Kind::kCreate},
                             {"SensorList", Fault::kSensorList, Kind::kGetSensorList}};

class FailureSweepTest : public ::testing::TestWithParam<Sweep> {
 protected:
  FailureSweepTest() {
    host::FailVectorGrowth([] { return t_growth_fails && t_growth_fails(); });
  }
  ~FailureSweepTest() override { host::FailVectorGrowth({}); }

  static void PlayWithFaultAt(int number) {
    SCOPED_TRACE(Text("%s at %d", GetParam().name, number));
    ScriptRun run(GetParam().fault, number);
    run.Play();
    EXPECT_TRUE(run.struck());
    run.EndFault();
    SCOPED_TRACE("on a new instance");
    run.Play();
  }

  LogCapture log_;  // keeps the output short
};

INSTANTIATE_TEST_SUITE_P(, FailureSweepTest, ::testing::ValuesIn(kSweeps),
                         [](const auto& test) { return std::string(test.param.name); });

/// As some plays wait for seconds, several run at the same time; not all of them, since the library
/// gives replies that have been overtaken a tenth of a second.
constexpr size_t kPlaysAtOnce = 24;

TEST_P(FailureSweepTest, CostsACodeAndNothingElse) {
  ScriptRun sound(Fault::kNone, 0);
  sound.Play();
  const bool of_growth =
      GetParam().fault == Fault::kGrowth || GetParam().fault == Fault::kGrowthFromThenOn;
  const int chances = of_growth ? sound.growths() : sound.calls(GetParam().of);
  ASSERT_LT(0, chances);
  for (int next = 1; next <= chances;) {
    std::vector<std::thread> plays;
    for (; next <= chances && plays.size() < kPlaysAtOnce; ++next) {
      plays.emplace_back(PlayWithFaultAt, next);
    }
    for (std::thread& play : plays) {
      play.join();
    }
  }
}

}  // namespace
}  // namespace hyl::v2::test
