// Settings operations whose replies come late, twice, out of order, or never.

#include <chrono>
#include <cstdint>
#include <functional>
#include <semaphore>
#include <thread>
#include <vector>

#include <hyl/host/sensors.h>
#include <hyl/host/simulated_hub.h>

#include "library_test.h"

namespace hyl::v2::test {
namespace {

class ReplyFaultsTest : public testing::Test {
 protected:
  ReplyFaultsTest() {
    hub_.Reset();
    hub_.SetReplyFaults({.max_delay = std::chrono::microseconds(200), .reorder = true});
  }
  ~ReplyFaultsTest() override {
    api_.Destroy();
    hub_.Reset();
  }

  /// Writes that nobody waits for, each time other values, and a read of what one of them wrote.
  /// Only one thread may use each `reg`, which four registers follow.
  void WriteAndRead(uint8_t reg, uint32_t round) {
    const auto value = static_cast<uint8_t>(round % 251);
    for (uint8_t i = 0; i < 5; ++i) {
      EXPECT_EQ(HylErr::kOk, api_->SetRegister(nullptr, static_cast<uint8_t>(reg + i),
                                               static_cast<uint8_t>(value + i)));
    }
    uint8_t read = 0;
    EXPECT_EQ(HylErr::kOk, api_->GetRegister(nullptr, static_cast<uint8_t>(reg + 2), &read));
    EXPECT_EQ(static_cast<uint8_t>(value + 2), read) << "round " << round;
  }
  void ChangeExposure(uint32_t round) {
    uint32_t applied = 0;
    EXPECT_EQ(HylErr::kOk, api_->SetExposureTime(nullptr, 100 * (round + 1), &applied));
    EXPECT_EQ(100 * (round + 1), applied);
  }
  void ToggleAutoGain(uint32_t round) {
    const bool enable = round % 2 != 0;
    bool enabled = !enable;
    EXPECT_EQ(HylErr::kOk, api_->SetFlickerAutoGainEnabled(nullptr, enable));
    EXPECT_EQ(HylErr::kOk, api_->SetTorchLightState(nullptr, enable));
    EXPECT_EQ(HylErr::kOk, api_->GetFlickerAutoGainEnabled(nullptr, &enabled));
    EXPECT_EQ(enable, enabled) << "round " << round;
  }
  void ReadUid() {
    uint64_t uid = 0;
    EXPECT_EQ(HylErr::kOk, api_->GetDeviceUid(nullptr, &uid));
    EXPECT_EQ(host::kDeviceUid, uid);
  }

  host::SimulatedHub& hub_ = host::SimulatedHub::Instance();
  Instance api_{nullptr};
};

TEST_F(ReplyFaultsTest, AReadAfterAWriteIsNeverStale) {
  ASSERT_EQ(HylErr::kOk, api_->SetFlickerAutoGainEnabled(nullptr, true));
  ReadUid();  // a stale one would be zero
  for (uint32_t round = 0; round < 1000 && !HasFailure(); ++round) {
    WriteAndRead(0x40, round);
    ToggleAutoGain(round);
    ChangeExposure(round);
  }
}

/// One thread only writes, the other only waits. Each call that waits sets off the writes that fall
/// into its wait, and takes them in before the next: the hub has no room for more.
TEST_F(ReplyFaultsTest, AReadIsNotStaleWhileAnotherThreadWrites) {
  constexpr uint32_t kRounds = 500;
  constexpr uint32_t kWrites = 8;
  std::counting_semaphore<> to_write(0);
  std::counting_semaphore<> written(0);
  std::thread writer([&] {
    for (uint32_t i = 0; i < kRounds * kWrites; ++i) {
      to_write.acquire();
      EXPECT_EQ(HylErr::kOk, api_->SetRegister(nullptr, 0x60, static_cast<uint8_t>(i)));
      written.release();
    }
  });
  for (uint32_t round = 0; round < kRounds; ++round) {
    uint8_t value = 0;
    to_write.release(kWrites);
    if (round % 3 == 0) {
      ChangeExposure(round);
    } else {  // a stale value would be the other register's
      const bool id = round % 3 == 1;
      EXPECT_EQ(
          HylErr::kOk,
          api_->GetRegister(nullptr, id ? host::kIdRegister : host::kRevisionRegister, &value));
      EXPECT_EQ(id ? host::kIdRegisterValue : host::kRevisionRegisterValue, value);
    }
    for (uint32_t i = 0; i < kWrites; ++i) {
      written.acquire();
    }
  }
  writer.join();
}

TEST_F(ReplyFaultsTest, ConcurrentCallsGetTheirOwnValues) {
  const std::function<void(uint32_t)> work[] = {[&](uint32_t round) { WriteAndRead(0x40, round); },
                                                [&](uint32_t round) { WriteAndRead(0x50, round); },
                                                [&](uint32_t round) { ChangeExposure(round); },
                                                [&](uint32_t round) { ToggleAutoGain(round); },
                                                [&](uint32_t) { ReadUid(); }};
  std::vector<std::thread> threads;
  for (const auto& each : work) {
    threads.emplace_back([&each] {
      for (uint32_t round = 0; round < 100; ++round) {
        each(round);
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
}

/// Unanswered writes hold the next read up for a moment only.
TEST_F(ReplyFaultsTest, WritesThatAreNeverAnsweredDoNotHangReads) {
  hub_.SetReplyFaults({.ignore_writes = true});
  ReturnsInTime("reads after unanswered writes", [&] {
    for (uint32_t round = 0; round < 5; ++round) {
      WriteAndRead(0x40, round);
      ToggleAutoGain(round);
    }
    for (int i = 0; i < 400; ++i) {
      ReadUid();  // what has once been waited for in vain holds up no more
    }
  });
}

/// Replies that a read has not asked for.
class StrayReplyTest : public LibraryTest {
 protected:
  /// From now on the framework answers every request as the read of a register of that value.
  void AnswerWith(uint8_t value) {
    framework.AnswerWith([value](const FrameworkCall&) {
      std::vector<std::unique_ptr<Message>> replies;
      replies.push_back(std::make_unique<SettingReply>(ReadReply(value)));
      return replies;
    });
  }
  static SettingReply ReadReply(uint8_t value) {
    SettingReply reply(RlsAccess::kRead, RlsCommand::kRegister);
    reply.value8 = value;
    return reply;
  }
  /// What a read hands back while `reply` comes right after its request, and its own does not come.
  uint8_t ReadWith(const SettingReply& reply) {
    framework.SetHook([&](const FrameworkCall&) {
      std::thread([&] { framework.Deliver(kRearContinuous, reply); }).join();
    });
    uint8_t value = 0;
    EXPECT_EQ(HylErr::kOk, instance->GetRegister(nullptr, 2, &value));
    framework.SetHook({});
    return value;
  }
};

TEST_F(StrayReplyTest, AfterTheTimeLimitEndsTheNextWait) {
  uint8_t value = 0;
  ReturnsInTime(
      "a read", [&] { EXPECT_EQ(HylErr::kFailed, instance->GetRegister(nullptr, 1, &value)); },
      2 * kReplyTimeLimit);
  EXPECT_EQ(77, ReadWith(ReadReply(77))) << "the value of the register that was given up";
}

TEST_F(StrayReplyTest, DoubledEndsTheNextWait) {
  uint8_t value = 0;
  AnswerWith(11);
  ASSERT_EQ(HylErr::kOk, instance->GetRegister(nullptr, 1, &value));
  framework.AwaitAnswers();
  framework.HoldAnswers();
  AnswerWith(77);
  EXPECT_EQ(11, ReadWith({RlsAccess::kWrite, RlsCommand::kTorchLight})) << "what is stored";
  framework.ReleaseAnswers();
  framework.AwaitAnswers();
}

}  // namespace
}  // namespace hyl::v2::test
