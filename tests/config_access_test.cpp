// The settings operations against the scripted framework: requests, replies and waiting.

#include <chrono>
#include <cstdint>
#include <functional>
#include <future>
#include <map>
#include <memory>
#include <ostream>
#include <set>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include <hyl/rls_msg_access.h>

#include "library_test.h"
#include "operations.h"

namespace hyl::v2::test {
namespace {

using Messages = std::vector<std::unique_ptr<Message>>;

/// Room for the out values of every operation, full of values that no reply brings.
struct Outs {
  bool flag = true;
  uint8_t byte = 0xEE;
  uint16_t word = 0xEEEE;
  uint32_t number = 0xEEEEEEEE;
  uint64_t uid = 0xEEEEEEEEEEEEEEEE;
  float gain = -1;
  FlickerFrequencyMetrics metrics = {0xEEEE, 0xEEEE, 0xEEEE, 0xEE};

  auto Fields() const {
    return std::tuple(flag, byte, word, number, uid, gain, metrics.metric0, metrics.metric1,
                      metrics.saturation, metrics.metric_byte);
  }
  bool operator==(const Outs& other) const { return Fields() == other.Fields(); }
  friend std::ostream& operator<<(std::ostream& out, const Outs& outs) {
    return out << testing::PrintToString(outs.Fields());
  }
};

template <typename T>
T* At(Outs* outs, T Outs::*member) {
  return outs != nullptr ? &(outs->*member) : nullptr;
}

using Api = HylSpectralApi;
using Reply = RlsMsgAccessResp;
/// Passes a null pointer for the first or second out value where that of the two is null.
using Call = std::function<HylErr(Api& api, const char* sensor, Outs* first, Outs* second)>;
/// What a reply makes of the out values.
using Expect = std::function<void(Outs& outs, const Reply& reply)>;

template <typename Member, typename T, typename... Args>
Call Waiting(Member operation, T Outs::*out, Args... args) {
  return [=](Api& api, const char* sensor, Outs* first, Outs*) {
    return (api.*operation)(sensor, args..., At(first, out));
  };
}

template <typename Member, typename... Args>
Call Writing(Member operation, Args... args) {
  return
      [=](Api& api, const char* sensor, Outs*, Outs*) { return (api.*operation)(sensor, args...); };
}

HylErr CallGetFlickerConfig(Api& api, const char* sensor, Outs* first, Outs* second) {
  return api.GetFlickerConfig(sensor, At(first, &Outs::number), At(second, &Outs::gain));
}

template <typename T, typename Field>
Expect Takes(T Outs::*out, Field Reply::*field) {
  return [=](Outs& outs, const Reply& reply) { outs.*out = static_cast<T>(reply.*field); };
}

void ExpectConfig(Outs& outs, const Reply& reply) {
  outs.number = reply.param_a;
  outs.gain = reply.gain;
}

void ExpectMetrics(Outs& outs, const Reply& reply) {
  outs.metrics = {static_cast<uint16_t>(reply.metric0), static_cast<uint16_t>(reply.metric1),
                  static_cast<uint16_t>(reply.saturation), reply.metric_byte};
}

struct SettingCase {
  const char* name;
  /// Bytes of the request that are not zero, by their offset; all have lead byte 1 besides.
  std::map<size_t, int> request;
  Call call;
  int out_count;  ///< 0: does not wait
  Expect expect;
  uint8_t Reply::*flag;  ///< the reply's switch that the operation hands back, if any
};

constexpr size_t kAccess = 9;
constexpr size_t kCommand = 10;
using Arguments = std::map<size_t, int>;

SettingCase Read(const char* name, int command, Arguments arguments, Call call, Expect expect,
                 int out_count = 1) {
  arguments.insert({kCommand, command});
  return {name, std::move(arguments), std::move(call), out_count, std::move(expect), nullptr};
}

template <typename Member>
SettingCase ReadSwitch(const char* name, int command, Member operation, uint8_t Reply::*flag) {
  return {name, {{kCommand, command}},    Waiting(operation, &Outs::flag),
          1,    Takes(&Outs::flag, flag), flag};
}

SettingCase Write(const char* name, int command, Arguments arguments, Call call) {
  arguments.insert({{kAccess, 1}, {kCommand, command}});
  return {name, std::move(arguments), std::move(call), 0, [](Outs&, const Reply&) {}, nullptr};
}

template <typename T, typename Field>
SettingCase WriteAndWait(const char* name, int command, const Arguments& arguments, Call call,
                         T Outs::*out, Field Reply::*field) {
  SettingCase operation = Write(name, command, arguments, std::move(call));
  operation.out_count = 1;
  operation.expect = Takes(out, field);
  return operation;
}

std::vector<SettingCase> OperationsThatWait() {
  return {
      ReadSwitch("GetFlickerAutoGainEnabled", 12, &Api::GetFlickerAutoGainEnabled,
                 &Reply::flicker_auto_gain),
      ReadSwitch("GetSpectralAutoGainEnabled", 11, &Api::GetSpectralAutoGainEnabled,
                 &Reply::spectral_auto_gain),
      ReadSwitch("GetSpectralApplyFacCal", 14, &Api::GetSpectralApplyFacCal, &Reply::cal_enabled),
      ReadSwitch("GetSpectralApplyOtpCal", 15, &Api::GetSpectralApplyOtpCal, &Reply::cal_enabled),
      Read("GetFlickerConfig", 13, {}, CallGetFlickerConfig, ExpectConfig, 2),
      Read("GetFlickerFrequencyMetrics", 1, {},
           Waiting(&Api::GetFlickerFrequencyMetrics, &Outs::metrics), ExpectMetrics),
      Read("GetFlickerSaturation", 2, {}, Waiting(&Api::GetFlickerSaturation, &Outs::word),
           Takes(&Outs::word, &Reply::saturation)),
      Read("GetRegister", 7, {{40, 0x21}}, Waiting(&Api::GetRegister, &Outs::byte, uint8_t{0x21}),
           Takes(&Outs::byte, &Reply::value8)),
      Read("GetDeviceUid", 8, {}, Waiting(&Api::GetDeviceUid, &Outs::uid),
           Takes(&Outs::uid, &Reply::device_uid)),
      WriteAndWait("SetExposureTime", 0, {{36, 4}, {37, 3}, {38, 2}, {39, 1}},
                   Waiting(&Api::SetExposureTime, &Outs::number, 0x01020304U), &Outs::number,
                   &Reply::value32),
      WriteAndWait("SetGain", 4, {{20, 3}, {26, 0x20}, {27, 0x40}},
                   Waiting(&Api::SetGain, &Outs::gain, uint8_t{3}, 2.5F), &Outs::gain,
                   &Reply::gain),
      WriteAndWait("SetSamplingPeriod", 6, {{36, 0xA4}, {37, 0xA3}, {38, 0xA2}, {39, 0xA1}},
                   Waiting(&Api::SetSamplingPeriod, &Outs::number, 0xA1A2A3A4U), &Outs::number,
                   &Reply::value32),
  };
}

std::vector<SettingCase> OperationsThatDoNotWait() {
  constexpr uint8_t kA = 0x12;
  constexpr uint8_t kB = 0x34;
  return {
      Write("SetFlickerChannel", 3, {{20, kA}, {60, kB}}, Writing(&Api::SetFlickerChannel, kA, kB)),
      Write("SetFlickerPedestal", 5, {{29, kA}}, Writing(&Api::SetFlickerPedestal, kA)),
      Write("SetRegister", 7, {{40, kA}, {29, kB}}, Writing(&Api::SetRegister, kA, kB)),
      Write("SetTorchLightState", 10, {{57, 1}}, Writing(&Api::SetTorchLightState, true)),
      Write("SetSpectralAutoGainEnabled", 11, {{58, 1}},
            Writing(&Api::SetSpectralAutoGainEnabled, true)),
      Write("SetFlickerAutoGainEnabled", 12, {{59, 1}},
            Writing(&Api::SetFlickerAutoGainEnabled, true)),
      Write("SetSpectralApplyFacCalEnabled", 14, {{56, 1}},
            Writing(&Api::SetSpectralApplyFacCalEnabled, true)),
      Write("SetSpectralApplyOtpCalEnabled", 15, {{56, 1}},
            Writing(&Api::SetSpectralApplyOtpCalEnabled, true)),
  };
}

std::vector<SettingCase> AllOperations() {
  std::vector<SettingCase> all = OperationsThatWait();
  for (const SettingCase& operation : OperationsThatDoNotWait()) {
    all.push_back(operation);
  }
  return all;
}

/// A reply with a value of its own in every field; all switches are `on`.
SettingReply FullReply(uint8_t on = 2) {
  SettingReply reply({}, {});
  reply.metric0 = 0x00011A1B;
  reply.metric1 = 0x00022A2B;
  reply.param_a = 200;
  reply.gain = 6.25F;
  reply.metric_byte = 0x3A;
  reply.value8 = 0x4A;
  reply.saturation = 0x00012345;
  reply.value32 = 0x6A6B6C6D;
  reply.reg_addr = 0x7A;
  reply.device_uid = 0x8A8B8C8D8E8F9091;
  reply.param_b = 0x9A;
  reply.cal_enabled = reply.torch_on = reply.spectral_auto_gain = reply.flicker_auto_gain = on;
  return reply;
}

Messages One(const SettingReply& reply) {
  Messages messages;
  messages.push_back(std::make_unique<SettingReply>(reply));
  return messages;
}

/// The reply, made out to this request.
SettingReply Answering(const FrameworkCall& call, SettingReply reply) {
  reply.access = call.As<RlsMsgAccessReq>()->access;
  reply.command = call.As<RlsMsgAccessReq>()->command;
  return reply;
}

Messages AnswerInFull(const FrameworkCall& call) {
  return One(Answering(call, FullReply()));
}

/// One operation, on a framework of its own.
struct Bench {
  HylErr Call(Api& api, Outs& outs, const char* sensor = nullptr) const {
    return operation.call(api, sensor, &outs, &outs);
  }

  std::vector<uint8_t> ExpectedRequest() const {
    std::vector<uint8_t> bytes(sizeof(RlsMsgAccessReq) - sizeof(Request));
    bytes[0] = 1;
    for (const auto& [offset, value] : operation.request) {
      bytes[offset - sizeof(Request)] = static_cast<uint8_t>(value);
    }
    return bytes;
  }

  Outs Expected(const Reply& reply, Outs outs) const {
    operation.expect(outs, reply);
    return outs;
  }

  const SettingCase& operation;
  ScriptedFramework framework = {};
};

void ForAllOperations(const std::function<void(Bench& bench)>& test) {
  for (const SettingCase& operation : AllOperations()) {
    SCOPED_TRACE(operation.name);
    Bench bench{operation};
    test(bench);
  }
}

TEST(ConfigAccessTest, CoversEverySetting) {
  std::set<std::pair<std::string, bool>> covered;
  for (const SettingCase& operation : AllOperations()) {
    covered.insert({operation.name, operation.out_count != 0});
  }
  std::set<std::pair<std::string, bool>> settings;  // names, and whether they wait
  for (const Operation& operation : kOperations) {
    if (operation.kind != Operation::Kind::kOther) {
      settings.insert({operation.name, operation.kind == Operation::Kind::kSettingThatWaits});
    }
  }
  EXPECT_EQ(settings, covered);
}

TEST(ConfigAccessTest, SendsOneRequestAndHandsBackTheReply) {
  ForAllOperations([](Bench& bench) {
    LogCapture log;
    const Instance api(nullptr);
    for (const char* sensor : {static_cast<const char*>(nullptr), "", "no such sensor"}) {
      for (const bool flag : {true, false}) {
        SettingReply reply(RlsAccess::kRead, RlsCommand::kDeviceUid);
        bench.framework.AnswerWith([&](const FrameworkCall& call) {
          reply = Answering(call, FullReply(flag ? 0 : 2));
          if (bench.operation.flag != nullptr) {
            reply.*bench.operation.flag = flag ? 2 : 0;
          }
          return One(reply);
        });
        (void)bench.framework.Take();
        const Outs before{.flag = !flag};
        Outs outs = before;
        ASSERT_EQ(HylErr::kOk, bench.Call(*api.get(), outs, sensor));
        EXPECT_EQ(bench.Expected(reply, before), outs);
        const std::vector<FrameworkCall> calls = bench.framework.Take();
        ASSERT_EQ(1U, calls.size());
        EXPECT_EQ(0x04F40000U, calls[0].handle);
        EXPECT_EQ(64U, calls[0].type);
        EXPECT_EQ(bench.ExpectedRequest(), BytesOf(calls[0]));
        bench.framework.AwaitAnswers();
      }
    }
    EXPECT_THAT(log.Take(), testing::IsEmpty());
  });
}

TEST(ConfigAccessTest, RefusesNullPointersBeforeItSends) {
  ForAllOperations([](Bench& bench) {
    const Instance api(nullptr);
    bench.framework.FailCreate(ScriptedFramework::kEvery);
    const Instance unconnected(nullptr);
    LogCapture log;
    (void)bench.framework.Take();
    for (Api* const each : {api.get(), unconnected.get()}) {
      Outs outs;
      if (bench.operation.out_count >= 1) {
        EXPECT_EQ(HylErr::kNullPointer, bench.operation.call(*each, "x", nullptr, nullptr));
        EXPECT_EQ(HylErr::kNullPointer, bench.operation.call(*each, "x", nullptr, &outs));
      }
      if (bench.operation.out_count == 2) {
        EXPECT_EQ(HylErr::kNullPointer, bench.operation.call(*each, "x", &outs, nullptr));
      }
      EXPECT_EQ(Outs(), outs);
    }
    EXPECT_THAT(bench.framework.Take(), testing::IsEmpty());
    EXPECT_THAT(log.Take(), testing::IsEmpty());
  });
}

TEST(ConfigAccessTest, TakesAReplyBeforeTheSendReturns) {
  ForAllOperations([](Bench& bench) {
    const Instance api(nullptr);
    bench.framework.AnswerWith(AnswerInFull);
    uint64_t uid = 0;
    ASSERT_EQ(HylErr::kOk, api->GetDeviceUid(nullptr, &uid));  // the framework knows the object now
    bench.framework.AnswerWith({});

    SettingReply reply(RlsAccess::kRead, RlsCommand::kDeviceUid);
    bench.framework.SetHook([&](const FrameworkCall& call) {
      if (call.kind == FrameworkCall::Kind::kInvoke) {
        reply = Answering(call, FullReply());
        std::thread([&] { bench.framework.Deliver(kRearContinuous, reply); }).join();
      }
    });
    const Outs before{.flag = false};
    Outs outs = before;
    EXPECT_EQ(HylErr::kOk, bench.Call(*api.get(), outs));
    EXPECT_EQ(bench.Expected(reply, before), outs);
    bench.framework.SetHook({});
  });
}

/// Also one that fills no slot of the operation, which hands back the former value then.
TEST(ConfigAccessTest, AnyReplyEndsTheWait) {
  ForAllOperations([](Bench& bench) {
    const Instance api(nullptr);
    const auto expect_from_strangers = [&](const Reply& former, bool flag) {
      for (const auto& [access, command] : {std::pair(7, 8), {0, 9}, {1, 12}, {1, 200}}) {
        SettingReply stranger = FullReply();
        stranger.access = static_cast<RlsAccess>(access);
        stranger.command = static_cast<RlsCommand>(command);
        bench.framework.AnswerWith([&](const FrameworkCall&) { return One(stranger); });
        const Outs before{.flag = !flag};
        Outs outs = before;
        EXPECT_EQ(HylErr::kOk, bench.Call(*api.get(), outs));
        EXPECT_EQ(bench.Expected(former, before), outs)
            << "access " << access << " command " << command;
        bench.framework.AwaitAnswers();
      }
    };

    expect_from_strangers(SettingReply({}, {}), false);  // zero before the first reply
    bench.framework.AnswerWith(AnswerInFull);
    Outs outs;
    ASSERT_EQ(HylErr::kOk, bench.Call(*api.get(), outs));
    bench.framework.AwaitAnswers();
    expect_from_strangers(FullReply(), true);
  });
}

TEST(ConfigSlotsTest, SaturationAndGainAreShared) {
  ScriptedFramework framework;
  const Instance api(nullptr);
  const auto answer_as_stranger = [](const FrameworkCall&) {
    return One(SettingReply(RlsAccess::kWrite, RlsCommand::kFlickerAutoGain));
  };
  const auto answer_with_gain = [](float gain) {
    return [gain](const FrameworkCall& call) {
      SettingReply reply = Answering(call, FullReply());
      reply.gain = gain;
      return One(reply);
    };
  };
  FlickerFrequencyMetrics metrics{};
  uint16_t saturation = 0;
  uint32_t config = 0;
  float gain = 0;

  framework.AnswerWith(answer_with_gain(2.5F));
  ASSERT_EQ(HylErr::kOk, api->GetFlickerFrequencyMetrics(nullptr, &metrics));
  EXPECT_EQ(0x2345, metrics.saturation);
  ASSERT_EQ(HylErr::kOk, api->GetFlickerConfig(nullptr, &config, &gain));
  EXPECT_EQ(200U, config);
  EXPECT_EQ(2.5F, gain);

  framework.AnswerWith(answer_as_stranger);
  ASSERT_EQ(HylErr::kOk, api->GetFlickerSaturation(nullptr, &saturation));
  EXPECT_EQ(0x2345, saturation);
  gain = 0;
  ASSERT_EQ(HylErr::kOk, api->SetGain(nullptr, 0, 1.0F, &gain));
  EXPECT_EQ(2.5F, gain) << "the gain of the flicker configuration";

  framework.AnswerWith(answer_with_gain(8.0F));
  ASSERT_EQ(HylErr::kOk, api->SetGain(nullptr, 0, 1.0F, &gain));
  framework.AnswerWith(answer_as_stranger);
  ASSERT_EQ(HylErr::kOk, api->GetFlickerConfig(nullptr, &config, &gain));
  EXPECT_EQ(8.0F, gain) << "the gain that was set";
}

TEST(ConfigWaitTest, WritesPassAnOperationThatWaits) {
  ScriptedFramework framework;
  RecordingClient client;
  const Instance api(&client);
  uint32_t session = 0;
  ASSERT_EQ(HylErr::kOk,
            api->EnableAmbientLightSensor(nullptr, session, SensorReportingMode::kContinuous));
  framework.AnswerWith(AnswerInFull);
  framework.HoldAnswers();
  Gate sent;
  framework.SetHook([&](const FrameworkCall&) { sent.Open(); });
  uint64_t uid = 0;
  auto waiting = std::async(std::launch::async, [&] { return api->GetDeviceUid(nullptr, &uid); });
  ASSERT_TRUE(sent.Pass());

  size_t accepted = 0;
  client.SetHook([&] {
    for (const SettingCase& write : OperationsThatDoNotWait()) {
      EXPECT_EQ(HylErr::kOk, write.call(*api.get(), nullptr, nullptr, nullptr)) << write.name;
      ++accepted;
    }
  });
  framework.Deliver(kRearContinuous, SpectralMessage({1.0F}));
  EXPECT_EQ(OperationsThatDoNotWait().size(), accepted);
  EXPECT_EQ(std::future_status::timeout, waiting.wait_for(std::chrono::seconds(0)));
  framework.ReleaseAnswers();
  EXPECT_EQ(HylErr::kOk, waiting.get());
  EXPECT_EQ(0x8A8B8C8D8E8F9091U, uid);
  framework.AwaitAnswers();
}

}  // namespace
}  // namespace hyl::v2::test
