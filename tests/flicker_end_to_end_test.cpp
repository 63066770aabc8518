// The simulated flicker sensor's waveform, through packing, messages and conversion, into the
// client's buffer.

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <ostream>
#include <set>
#include <span>
#include <string>
#include <vector>

#include <hyl/host/simulated_hub.h>

#include "library_test.h"

namespace hyl::v2 {

namespace host {
void PrintTo(const FlickerPacking& packing, std::ostream* out) {
  *out << "width " << static_cast<int>(packing.width) << " little-endian " << packing.little_endian
       << " msb " << int{packing.msb} << " lsb " << int{packing.lsb};
}
}  // namespace host

namespace test {
namespace {

using std::chrono::seconds;
using testing::IsEmpty;
using Width = FlickerFormatSampleWidth;

constexpr size_t kChunkSamples = 240;
constexpr size_t kRate = 24000;
constexpr int kBits = 24;

class FlickerEndToEndTest : public testing::TestWithParam<host::FlickerPacking> {
 protected:
  FlickerEndToEndTest() {
    hub_.Reset();
    hub_.UseVirtualClock();
    hub_.SetScene({.kind = host::LightKind::kFluorescent, .illuminance_lux = 700});
    hub_.SetFlickerPacking(GetParam());
  }
  ~FlickerEndToEndTest() override {
    EXPECT_EQ(HylErr::kOk, api_->DisableFlickerSensor(session_));
    api_.Destroy();
    hub_.Reset();
  }

  /// Runs the sensor on the virtual clock; then measured_ holds what it saw, blocks_ what came.
  void Run(seconds time, const host::FlickerFaults& faults = {}) {
    hub_.SetFlickerFaults(faults);
    ASSERT_EQ(HylErr::kOk,
              api_->EnableFlickerSensor(nullptr, buffer_.data(), buffer_.size(), kBits, session_));
    hub_.Advance(time);
    measured_ = hub_.FlickerHistory(kBits);
    blocks_ = client_.TakeFlicker();
    ASSERT_GT(std::set<int32_t>(measured_.begin(), measured_.end()).size(), 100U)
        << "too few levels to tell samples apart";
    for (const FlickerCall& block : blocks_) {
      ASSERT_EQ(session_, block.session_id);
      ASSERT_EQ(buffer_.data(), block.block.samples);
      ASSERT_EQ(kRate, block.block.format_param);
    }
  }

  /// Whether the block's samples, each minus `shift`, are those measured from number `first` on.
  bool IsMeasuredFrom(size_t first, const FlickerCall& block, int32_t shift = 0) const {
    return first + block.samples.size() <= measured_.size() &&
           std::ranges::equal(block.samples,
                              std::span(measured_).subspan(first, block.samples.size()), {},
                              [=](int32_t sample) { return sample - shift; });
  }
  /// Likewise, off by a constant: what is left of differences after some have been lost.
  bool HasShapeFrom(size_t first, const FlickerCall& block) const {
    return !block.samples.empty() && first < measured_.size() &&
           IsMeasuredFrom(first, block, block.samples[0] - measured_[first]);
  }
  /// Exact in the packings of a fixed width; an estimate in compressed-1.
  void ExpectNumbered(size_t first, const FlickerCall& block) const {
    const auto error = static_cast<double>(block.block.seq_num) - static_cast<double>(first);
    ASSERT_LE(std::abs(error), IsCompressed() ? 0.05 * static_cast<double>(first) + 10 : 0)
        << "sample " << first << " numbered " << block.block.seq_num;
  }

  static bool IsCompressed() { return GetParam().width == Width::kCompressed1; }

  host::SimulatedHub& hub_ = host::SimulatedHub::Instance();
  LogCapture log_;
  RecordingClient client_;
  Instance api_{&client_};
  std::vector<int32_t> buffer_ = std::vector<int32_t>(2 * kChunkSamples);
  uint32_t session_ = 0;
  std::vector<int32_t> measured_;
  std::vector<FlickerCall> blocks_;
};

TEST_P(FlickerEndToEndTest, TheWaveformArrivesSampleForSample) {
  ASSERT_NO_FATAL_FAILURE(Run(seconds(10)));
  size_t next = 0;
  size_t number = 0;
  for (const FlickerCall& block : blocks_) {
    ASSERT_EQ(number++ % 10 == 0 ? 1 : 0, block.block.restart);
    ASSERT_EQ(next, block.block.seq_num);
    ASSERT_TRUE(IsMeasuredFrom(next, block)) << "from sample " << next;
    next += block.samples.size();
  }
  // At the end of compressed-1 a sample may have arrived in part only.
  EXPECT_EQ(10 * kRate, measured_.size());
  EXPECT_GE(next + (IsCompressed() ? 1 : 0), measured_.size());
  EXPECT_THAT(log_.TakeProblems(), IsEmpty());
}

TEST_P(FlickerEndToEndTest, ASecondRunStartsAfresh) {
  ASSERT_NO_FATAL_FAILURE(Run(seconds(1)));
  ASSERT_EQ(HylErr::kOk, api_->DisableFlickerSensor(session_));
  hub_.Advance(seconds(1));
  EXPECT_THAT(client_.TakeFlicker(), IsEmpty());
  ASSERT_NO_FATAL_FAILURE(Run(seconds(1)));
  ASSERT_FALSE(blocks_.empty());
  EXPECT_EQ(0U, blocks_[0].block.seq_num);
  EXPECT_TRUE(IsMeasuredFrom(0, blocks_[0]));
}

TEST_P(FlickerEndToEndTest, LostChunksShowAsGaps) {
  constexpr size_t kLoseEvery = 7;
  ASSERT_NO_FATAL_FAILURE(Run(seconds(10), {.lose_every = kLoseEvery}));
  ASSERT_EQ(1000U - 1000U / kLoseEvery, blocks_.size());
  size_t next = 0;
  for (size_t i = 0; i < blocks_.size(); ++i) {
    next += i > 0 && i % (kLoseEvery - 1) == 0 ? kChunkSamples : 0;
    ASSERT_NO_FATAL_FAILURE(ExpectNumbered(next, blocks_[i]));
    ASSERT_TRUE(IsCompressed() ? HasShapeFrom(next, blocks_[i]) : IsMeasuredFrom(next, blocks_[i]))
        << "from sample " << next;
    next += blocks_[i].samples.size();
  }
  EXPECT_THAT(log_.TakeProblems(), IsEmpty());
}

TEST_P(FlickerEndToEndTest, ARepeatedChunkKeepsItsNumber) {
  constexpr size_t kChunk = 5;
  ASSERT_NO_FATAL_FAILURE(Run(seconds(1), {.repeat_chunk = kChunk}));
  ASSERT_EQ(100U, blocks_.size());
  size_t next = 0;
  for (size_t i = 0; i < blocks_.size(); ++i) {
    const FlickerCall& block = blocks_[i];
    if (i == kChunk + 1) {
      ASSERT_EQ(blocks_[kChunk].samples.size(), block.samples.size());
      next -= block.samples.size();
    }
    // Compressed-1 counts the repeated bytes, so that all later ones seem to lie behind.
    ASSERT_EQ(IsCompressed() && i > kChunk ? 0 : next, block.block.seq_num);
    ASSERT_TRUE(IsCompressed() ? HasShapeFrom(next, block) : IsMeasuredFrom(next, block));
    next += block.samples.size();
  }
  const size_t unnumbered = IsCompressed() ? blocks_.size() - kChunk - 1 : 0;
  EXPECT_EQ(unnumbered, log_.TakeProblems().size());
}

TEST_P(FlickerEndToEndTest, AnUnreadableChunkIsSkippedAlone) {
  constexpr size_t kChunk = 5;
  ASSERT_NO_FATAL_FAILURE(Run(seconds(1), {.unreadable_chunk = kChunk}));
  ASSERT_EQ(99U, blocks_.size());
  EXPECT_EQ(1U, log_.TakeProblems().size());
  size_t next = 0;
  for (size_t i = 0; i < blocks_.size(); ++i) {
    next += i == kChunk ? kChunkSamples : 0;
    ASSERT_NO_FATAL_FAILURE(ExpectNumbered(next, blocks_[i]));
    ASSERT_TRUE(IsMeasuredFrom(next, blocks_[i])) << "from sample " << next;
    next += blocks_[i].samples.size();
  }
}

INSTANTIATE_TEST_SUITE_P(, FlickerEndToEndTest,
                         testing::Values(host::FlickerPacking{Width::kCompressed1},
                                         host::FlickerPacking{Width::k16BitsIn2, true},
                                         host::FlickerPacking{Width::k16BitsIn2, false},
                                         host::FlickerPacking{Width::kUncompressed2, true, 3, 1},
                                         host::FlickerPacking{Width::kUncompressed2, false},
                                         host::FlickerPacking{Width::kUncompressed3, true, 4, 2},
                                         host::FlickerPacking{Width::kUncompressed3, false, 0, 5},
                                         host::FlickerPacking{Width::kUncompressed4, true, 8, 8},
                                         host::FlickerPacking{Width::kUncompressed4, false, 2, 0}));

}  // namespace
}  // namespace test
}  // namespace hyl::v2
