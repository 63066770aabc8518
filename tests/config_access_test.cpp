// SPDX-License-Identifier: Apache-2.0
// The settings operations: their requests, what they hand back, and how they wait for replies that
// come early, late, out of order, unasked for, or never.

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <future>
#include <iterator>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

#include <hyl/rls_msg_access.h>

#include "library_test.h"
#include "operations.h"

namespace hyl::v2::test {
namespace {

using ::testing::Each;
using ::testing::IsEmpty;
using Reply = RlsMsgAccessResp;

/// What one of kOperations sends, and what it hands back of FullReply().
struct Setting {
  const char* operation;
  uint8_t access;
  uint8_t command;
  std::vector<Field> arguments = {};
  Outs out = {};
  uint8_t Reply::*flag = nullptr;  ///< the reply's switch that it hands back, if any
};

/// In the order of kOperations.
const Setting kSettings[] = {
    {"GetFlickerAutoGainEnabled", 0, 12, {}, {}, &Reply::flicker_auto_gain},
    {"GetFlickerConfig", 0, 13, {}, {.word = 200, .gain = 6.25F}},
    {"GetFlickerFrequencyMetrics", 0, 1, {}, {.metrics = {0x1A1B, 0x2A2B, 0x2345, 0x3A}}},
    {"GetFlickerSaturation", 0, 2, {}, {.half = 0x2345}},
    {"GetRegister", 0, 7, {{40, 1, 0x21}}, {.byte = 0x4A}},
    {"GetSpectralAutoGainEnabled", 0, 11, {}, {}, &Reply::spectral_auto_gain},
    {"GetSpectralApplyFacCal", 0, 14, {}, {}, &Reply::cal_enabled},
    {"GetSpectralApplyOtpCal", 0, 15, {}, {}, &Reply::cal_enabled},
    {"GetDeviceUid", 0, 8, {}, {.uid = 0x8A8B8C8D8E8F9091}},
    {"SetExposureTime", 1, 0, {{36, 4, 0x01020304}}, {.word = 0x6A6B6C6D}},
    {"SetFlickerAutoGainEnabled", 1, 12, {{59, 1, 1}}},
    {"SetFlickerChannel", 1, 3, {{20, 1, 0x12}, {60, 1, 0x34}}},
    {"SetFlickerPedestal", 1, 5, {{29, 1, 0x12}}},
    {"SetGain", 1, 4, {{20, 1, 3}, {24, 4, 0x40200000}}, {.gain = 6.25F}},
    {"SetRegister", 1, 7, {{40, 1, 0x12}, {29, 1, 0x34}}},
    {"SetSamplingPeriod", 1, 6, {{36, 4, 0xA1A2A3A4}}, {.word = 0x6A6B6C6D}},
    {"SetSpectralAutoGainEnabled", 1, 11, {{58, 1, 1}}},
    {"SetSpectralApplyFacCalEnabled", 1, 14, {{56, 1, 1}}},
    {"SetSpectralApplyOtpCalEnabled", 1, 15, {{56, 1, 1}}},
    {"SetTorchLightState", 1, 10, {{57, 1, 1}}},
};

/// A reply whose fields all have different values; all switches are `on`.
std::unique_ptr<SettingReply> FullReply(RlsAccess access, RlsCommand command, uint8_t on = 2) {
  auto reply = std::make_unique<SettingReply>(access, command);
  reply->metric0 = 0x00011A1B;
  reply->metric1 = 0x00022A2B;
  reply->param_a = 200;
  reply->gain = 6.25F;
  reply->metric_byte = 0x3A;
  reply->value8 = 0x4A;
  reply->saturation = 0x00012345;
  reply->value32 = 0x6A6B6C6D;
  reply->reg_addr = 0x7A;
  reply->device_uid = 0x8A8B8C8D8E8F9091;
  reply->param_b = 0x9A;
  reply->cal_enabled = on;
  reply->torch_on = on;
  reply->spectral_auto_gain = on;
  reply->flicker_auto_gain = on;
  return reply;
}

class ConfigAccessTest : public LibraryTest {
 protected:
  ConfigAccessTest() {
    Enable("Rear");  // so that the framework knows the object
    framework.Take();
    log.Take();
  }

  using MakeReply = std::function<std::unique_ptr<SettingReply>(const RlsMsgAccessReq&)>;
  /// From now on answers every setting's request so; not where there is no reply.
  void AnswerWith(MakeReply make) {
    framework.AnswerWith([make = std::move(make)](const FrameworkCall& call) {
      ScriptedFramework::Messages replies;
      if (auto reply = make(*call.As<RlsMsgAccessReq>())) {
        replies.push_back(std::move(reply));
      }
      return replies;
    });
  }
  void AnswerInFull() {
    AnswerWith([](const auto& request) { return FullReply(request.access, request.command); });
  }
};

/// Or, when the request is refused, the code alone.
TEST_F(ConfigAccessTest, SendsOneRequestAndHandsBackTheReply) {
  auto setting = std::begin(kSettings);
  for (const Operation& operation : kOperations) {
    if (!operation.IsSetting()) {
      continue;
    }
    SCOPED_TRACE(operation.name);
    ASSERT_NE(std::end(kSettings), setting);
    ASSERT_STREQ(setting->operation, operation.name);
    std::vector<Field> fields = setting->arguments;
    fields.insert(fields.end(), {{9, 1, setting->access}, {10, 1, setting->command}});
    for (const bool on : {true, false}) {
      Outs out;
      Outs expected = setting->out;
      AnswerWith([&](const RlsMsgAccessReq& request) {
        auto reply = FullReply(request.access, request.command, on ? 0 : 2);
        if (setting->flag != nullptr) {
          (*reply).*(setting->flag) = on ? 2 : 0;
        }
        return reply;
      });
      if (setting->flag != nullptr) {
        out.flag = !on;
        expected.flag = on;
      }
      framework.RefuseInvoke(1, HylErr{77});
      EXPECT_EQ(HylErr{77}, operation.Call(*instance.get(), 0));
      framework.Take();
      EXPECT_EQ(HylErr::kOk, operation.call_with(*instance.get(), 0, out));
      EXPECT_TRUE(expected == out);
      framework.AwaitAnswers();
      const std::vector<FrameworkCall> calls = framework.Take();
      ASSERT_EQ(1U, calls.size());
      EXPECT_EQ(0x04F40000U, calls[0].handle);
      EXPECT_EQ(64U, calls[0].type);
      EXPECT_EQ(RequestBytes(64, fields), BytesOf(calls[0]));
    }
    ++setting;
  }
  EXPECT_EQ(std::end(kSettings), setting);
  EXPECT_THAT(log.Take(), IsEmpty());
}

/// Even without a connection. There, every other call fails.
TEST_F(ConfigAccessTest, RefusesNullPointersBeforeItSends) {
  framework.FailCreate(1);
  const SpectralInstance unconnected = MakeInstance(nullptr);
  framework.Take();
  log.Take();
  for (HylSpectralApi* const api : {instance.get(), unconnected.get()}) {
    uint32_t value = 7;
    float gain = 7;
    const HylErr results[] = {
        api->GetFlickerAutoGainEnabled(nullptr, nullptr),
        api->GetFlickerConfig(nullptr, nullptr, nullptr),
        api->GetFlickerConfig(nullptr, &value, nullptr),
        api->GetFlickerConfig(nullptr, nullptr, &gain),
        api->GetFlickerFrequencyMetrics(nullptr, nullptr),
        api->GetFlickerSaturation(nullptr, nullptr),
        api->GetRegister(nullptr, 1, nullptr),
        api->GetSpectralAutoGainEnabled(nullptr, nullptr),
        api->GetSpectralApplyFacCal(nullptr, nullptr),
        api->GetSpectralApplyOtpCal(nullptr, nullptr),
        api->GetDeviceUid(nullptr, nullptr),
        api->SetExposureTime(nullptr, 1, nullptr),
        api->SetGain(nullptr, 1, 1, nullptr),
        api->SetSamplingPeriod(nullptr, 1, nullptr),
    };
    EXPECT_THAT(results, Each(HylErr::kNullPointer));
    EXPECT_EQ(7U, value);
    EXPECT_EQ(7.0F, gain);
  }
  for (const Operation& operation : kOperations) {
    if (operation.IsSetting()) {
      EXPECT_EQ(HylErr::kFailed, operation.Call(*unconnected.get(), 0)) << operation.name;
    }
  }
  EXPECT_THAT(framework.Take(), IsEmpty());
  EXPECT_THAT(log.Take(), IsEmpty());
}

TEST_F(ConfigAccessTest, WritesPassAnOperationThatWaits) {
  AnswerInFull();
  framework.HoldAnswers();
  Gate sent;
  framework.SetHook([&](const FrameworkCall&) { sent.Open(); });
  uint64_t uid = 0;
  auto waiting =
      std::async(std::launch::async, [&] { return instance->GetDeviceUid(nullptr, &uid); });
  ASSERT_TRUE(sent.Pass());
  bool called = false;
  client.SetHook([&] {
    called = true;
    for (const Operation& operation : kOperations) {
      if (operation.kind == kSet) {
        EXPECT_EQ(HylErr::kOk, operation.Call(*instance.get(), 0)) << operation.name;
      }
    }
  });
  framework.Deliver(kRearContinuous, SpectralMessage({1}));
  EXPECT_TRUE(called);
  EXPECT_EQ(std::future_status::timeout, waiting.wait_for(std::chrono::seconds(0)));
  framework.ReleaseAnswers();
  EXPECT_EQ(HylErr::kOk, waiting.get());
  EXPECT_EQ(0x8A8B8C8D8E8F9091U, uid);
  framework.AwaitAnswers();
  framework.SetHook({});
}

/// That many reads take too long if each waits for a reply that does not come.
TEST_F(ConfigAccessTest, RequestsWithoutAReplyDoNotHoldReadsUp) {
  constexpr int kReads = 2 * kPatience / kOwedReplyTimeLimit;
  AnswerWith([](const RlsMsgAccessReq& request) {
    return request.access == RlsAccess::kRead ? FullReply(request.access, request.command)
                                              : nullptr;
  });
  uint8_t value = 0;
  ReturnsInTime("reads after refused writes", [&] {
    for (int i = 0; i < kReads; ++i) {
      framework.RefuseInvoke(1, HylErr{3});
      EXPECT_EQ(HylErr{3}, instance->SetRegister(nullptr, 1, 2));
      EXPECT_EQ(HylErr::kOk, instance->GetRegister(nullptr, 1, &value));
    }
  });
  ReturnsInTime("reads after a write without a reply", [&] {
    EXPECT_EQ(HylErr::kOk, instance->SetRegister(nullptr, 1, 2));
    for (int i = 0; i < kReads; ++i) {
      EXPECT_EQ(HylErr::kOk, instance->GetRegister(nullptr, 1, &value));
    }
  });
}

/// Each read begins while a write is in the framework, which then refuses it.
TEST_F(ConfigAccessTest, ARefusalEndsTheWaitForItsReply) {
  constexpr int kReads = 2 * kPatience / kOwedReplyTimeLimit;
  AnswerInFull();
  std::atomic<bool> writing{false};
  std::atomic<bool> reading{false};
  std::atomic<bool> end{false};
  framework.RefuseIf([&](const FrameworkCall& call) {
    if (call.As<RlsMsgAccessReq>()->access == RlsAccess::kRead) {
      return HylErr::kOk;
    }
    writing = true;
    while (!reading && !end) {
      std::this_thread::yield();
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1));  // then the read waits
    writing = false;
    return HylErr{3};
  });
  std::thread writes([&] {
    while (!end) {
      EXPECT_EQ(HylErr{3}, instance->SetRegister(nullptr, 1, 2));
    }
  });
  ReturnsInTime("reads beside refused writes", [&] {
    for (int i = 0; i < kReads; ++i) {
      while (!writing) {
        std::this_thread::yield();
      }
      reading = true;
      uint8_t value = 0;
      EXPECT_EQ(HylErr::kOk, instance->GetRegister(nullptr, 1, &value));
      reading = false;
    }
  });
  end = true;
  writes.join();
}

/// Replies that come as soon as a request is sent, before the framework call has returned.
class StrayReplyTest : public ConfigAccessTest {
 protected:
  /// What a read of a register hands back then.
  uint8_t ReadWith(const SettingReply& reply) {
    framework.SetHook([&](const FrameworkCall&) {
      std::thread([&] { framework.Deliver(kRearContinuous, reply); }).join();
    });
    uint8_t value = 0xEE;
    EXPECT_EQ(HylErr::kOk, instance->GetRegister(nullptr, 2, &value));
    framework.SetHook({});
    return value;
  }
  static SettingReply ReadReply(uint8_t value) {
    SettingReply reply(RlsAccess::kRead, RlsCommand::kRegister);
    reply.value8 = value;
    return reply;
  }
};

/// Also one that fills no slot of the operation, which hands back the former value then.
TEST_F(StrayReplyTest, AnyReplyEndsTheWait) {
  for (const int former : {0, 77}) {
    for (const auto& [access, command] : {std::pair(7, 8), {0, 9}, {1, 7}, {1, 12}, {1, 200}}) {
      EXPECT_EQ(former, ReadWith(*FullReply(RlsAccess{static_cast<uint8_t>(access)},
                                            RlsCommand{static_cast<uint8_t>(command)})));
    }
    EXPECT_EQ(77, ReadWith(ReadReply(77))) << "its own";
  }
  constexpr int kReads = 2 * kPatience / kOwedReplyTimeLimit;
  ReturnsInTime("reads that wait for no other reply", [&] {
    for (int i = 0; i < kReads; ++i) {
      ReadWith(ReadReply(77));
    }
  });
}

/// Neither a reply from before the request nor a message that is none ends a wait.
TEST_F(StrayReplyTest, AfterTheTimeLimitEndsTheNextWait) {
  constexpr std::chrono::milliseconds kLimit{5000};
  framework.Deliver(kRearContinuous, *FullReply(RlsAccess::kWrite, RlsCommand::kRegister));
  framework.SetHook([&](const FrameworkCall&) {
    std::thread([&] {
      for (const uint32_t type : {2U, 3U, 4U, 99U}) {
        framework.Deliver(kRearContinuous, StatusReply(type));
      }
    }).join();
  });
  const auto begin = std::chrono::steady_clock::now();
  uint8_t value = 0;
  ReturnsInTime(
      "a read", [&] { EXPECT_EQ(HylErr::kFailed, instance->GetRegister(nullptr, 1, &value)); },
      kLimit + kLimit / 2);
  EXPECT_LE(kLimit, std::chrono::steady_clock::now() - begin);
  EXPECT_EQ(77, ReadWith(ReadReply(77))) << "the value of the register that was given up";
}

/// First the replies to writes from another thread come before those to reads, then the late
/// replies to a write that was given up. At the end, its own does not come. What nobody has asked
/// for at the beginning changes nothing.
TEST_F(StrayReplyTest, AReadWaitsForItsOwnReply) {
  uint8_t wanted = 0;
  AnswerWith([&](const RlsMsgAccessReq& request) {
    return request.access == RlsAccess::kRead ? std::make_unique<SettingReply>(ReadReply(wanted))
                                              : nullptr;
  });
  const auto read = [&] {
    uint8_t value = 0;
    ++wanted;
    CheckInTime([&] { EXPECT_EQ(HylErr::kOk, instance->GetRegister(nullptr, 1, &value)); },
                [&] { EXPECT_EQ(wanted, value); });
    framework.AwaitAnswers();
  };
  const auto write = [&] { EXPECT_EQ(HylErr::kOk, instance->SetRegister(nullptr, 1, 2)); };
  const auto answer_others_first = [&](bool write_too) {
    framework.SetHook([&, write_too](const FrameworkCall& call) {
      if (call.As<RlsMsgAccessReq>()->access == RlsAccess::kRead) {
        std::thread([&] {
          if (write_too) {
            write();
          }
          framework.Deliver(kRearContinuous,
                            SettingReply(RlsAccess::kWrite, RlsCommand::kRegister));
        }).join();
      }
    });
  };
  framework.Deliver(kRearContinuous, SettingReply(RlsAccess::kWrite, RlsCommand::kRegister));
  for (const bool given_up : {false, true}) {
    if (given_up) {
      write();
      read();
    }
    answer_others_first(!given_up);
    for (int i = 0; i < 50; ++i) {
      read();
    }
    framework.SetHook({});
  }
  AnswerWith([](const auto&) { return nullptr; });
  answer_others_first(true);
  ReturnsInTime(
      "a read without a reply",
      [&] {
        uint8_t value = 0;
        EXPECT_EQ(HylErr::kOk, instance->GetRegister(nullptr, 1, &value));
      },
      kReplyTimeLimit - kReplyTimeLimit / 5);
  framework.SetHook({});
}

/// What operations hand back when their own replies have not come.
class SlotsTest : public ConfigAccessTest {
 protected:
  SlotsTest() {
    AnswerWith([](const auto&) {
      return std::make_unique<SettingReply>(RlsAccess::kWrite, RlsCommand::kTorchLight);
    });
  }
  void Store(RlsAccess access, RlsCommand command) {
    framework.Deliver(kRearContinuous, *FullReply(access, command));
  }
  static bool HandsSomethingBack(const Setting& setting) {
    return setting.flag != nullptr || !(setting.out == Outs());
  }
};

TEST_F(SlotsTest, SaturationAndGainAreShared) {
  uint16_t saturation = 0;
  float gain = 0;
  Store(RlsAccess::kRead, RlsCommand::kFlickerFrequencyMetrics);
  EXPECT_EQ(HylErr::kOk, instance->GetFlickerSaturation(nullptr, &saturation));
  EXPECT_EQ(0x2345, saturation);
  Store(RlsAccess::kRead, RlsCommand::kFlickerConfig);
  EXPECT_EQ(HylErr::kOk, instance->SetGain(nullptr, 0, 1, &gain));
  EXPECT_EQ(6.25F, gain) << "the gain of the flicker configuration";
  framework.AwaitAnswers();
}

TEST_F(SlotsTest, OtherRepliesFillNone) {
  for (uint8_t access = 0; access < 3; ++access) {
    for (uint8_t command = 0; command < 20; ++command) {
      if (std::ranges::none_of(kSettings, [&](const Setting& setting) {
            return setting.access == access && setting.command == command &&
                   HandsSomethingBack(setting);
          })) {
        Store(RlsAccess{access}, RlsCommand{command});
      }
    }
  }
  constexpr Outs kZeros{false, 0, 0, 0, 0, 0, {}};
  for (const Operation& operation : kOperations) {
    if (operation.kind == kAsk) {
      Outs out = kZeros;
      EXPECT_EQ(HylErr::kOk, operation.call_with(*instance.get(), 0, out));
      EXPECT_TRUE(out == kZeros) << operation.name;
    }
  }
  framework.AwaitAnswers();
}

}  // namespace
}  // namespace hyl::v2::test
