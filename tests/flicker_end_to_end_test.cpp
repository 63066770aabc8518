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
    api_.Destroy();
    hub_.Reset();
  }

  /// Runs the sensor on the virtual clock; then measured_ holds what it saw, blocks_ what came.
  void Run(seconds time, const host::FlickerFaults& faults) {
    hub_.SetFlickerFaults(faults);
    uint32_t session = 0;
    ASSERT_EQ(HylErr::kOk,
              api_->EnableFlickerSensor(nullptr, buffer_.data(), buffer_.size(), kBits, session));
    hub_.Advance(time);
    measured_ = hub_.FlickerHistory(kBits);
    blocks_ = client_.TakeFlicker();
    EXPECT_EQ(HylErr::kOk, api_->DisableFlickerSensor(session));
    hub_.Advance(time);
    EXPECT_THAT(client_.TakeFlicker(), IsEmpty());
    ASSERT_GT(std::set<int32_t>(measured_.begin(), measured_.end()).size(), 100U)
        << "too few levels to tell samples apart";
    for (const FlickerCall& block : blocks_) {
      ASSERT_EQ(session, block.session_id);
      ASSERT_EQ(buffer_.data(), block.block.samples);
      ASSERT_EQ(kRate, block.block.format_param);
    }
  }

  /// Whether the block's samples are those measured from number `first` on; in compressed-1, where
  /// differences may have been lost, off by a constant.
  bool IsMeasuredFrom(size_t first, const FlickerCall& block, bool exact) const {
    if (block.samples.empty() || first + block.samples.size() > measured_.size()) {
      return false;
    }
    const int32_t shift = exact ? 0 : block.samples[0] - measured_[first];
    const auto measured = std::span(measured_).subspan(first, block.samples.size());
    return std::ranges::equal(block.samples, measured, {},
                              [=](int32_t sample) { return sample - shift; });
  }

  const bool compressed_ = GetParam().width == Width::kCompressed1;
  host::SimulatedHub& hub_ = host::SimulatedHub::Instance();
  LogCapture log_;
  RecordingClient client_;
  Instance api_{&client_};
  std::vector<int32_t> buffer_ = std::vector<int32_t>(2 * kChunkSamples);
  std::vector<int32_t> measured_;
  std::vector<FlickerCall> blocks_;
};

TEST_P(FlickerEndToEndTest, TheWaveformArrivesSampleForSample) {
  for (const seconds time : {seconds(10), seconds(1)}) {  // from 0 in the second run, too
    ASSERT_NO_FATAL_FAILURE(Run(time, {}));
    size_t next = 0;
    for (size_t i = 0; i < blocks_.size(); ++i) {
      ASSERT_EQ(i % 10 == 0 ? 1 : 0, blocks_[i].block.restart);
      ASSERT_EQ(next, blocks_[i].block.seq_num);
      ASSERT_TRUE(IsMeasuredFrom(next, blocks_[i], true)) << "from sample " << next;
      next += blocks_[i].samples.size();
    }
    // At the end of compressed-1 a sample may have arrived in part only.
    EXPECT_EQ(kRate * static_cast<size_t>(time.count()), measured_.size());
    EXPECT_GE(next + (compressed_ ? 1 : 0), measured_.size());
  }
  EXPECT_THAT(log_.TakeProblems(), IsEmpty());
}

/// Behind a gap, compressed-1 estimates the numbers.
TEST_P(FlickerEndToEndTest, LostAndUnreadableChunksShowAsGaps) {
  constexpr size_t kLoseEvery = 7;
  constexpr size_t kUnreadable = 5;
  ASSERT_NO_FATAL_FAILURE(
      Run(seconds(10), {.lose_every = kLoseEvery, .unreadable_chunk = kUnreadable}));
  ASSERT_EQ(1000U - 1000U / kLoseEvery - 1, blocks_.size());
  auto block = blocks_.begin();
  for (size_t chunk = 0, next = 0; chunk < 1000; ++chunk) {
    if (chunk == kUnreadable || chunk % kLoseEvery == kLoseEvery - 1) {
      next += kChunkSamples;
      continue;
    }
    const auto error = static_cast<double>(block->block.seq_num) - static_cast<double>(next);
    ASSERT_LE(std::abs(error), compressed_ ? 0.05 * static_cast<double>(next) + 10 : 0);
    ASSERT_TRUE(IsMeasuredFrom(next, *block, !compressed_)) << "from sample " << next;
    next += block->samples.size();
    ++block;
  }
  EXPECT_EQ(1U, log_.TakeProblems().size()) << "the unreadable chunk";
}

/// Compressed-1 counts the repeated bytes, so that all later ones seem to lie behind.
TEST_P(FlickerEndToEndTest, ARepeatedChunkKeepsItsNumber) {
  constexpr size_t kChunk = 5;
  ASSERT_NO_FATAL_FAILURE(Run(seconds(1), {.repeat_chunk = kChunk}));
  ASSERT_EQ(100U, blocks_.size());
  const FlickerCall& repeated = blocks_[kChunk + 1];
  EXPECT_TRUE(IsMeasuredFrom(kChunk * kChunkSamples, repeated, !compressed_));
  EXPECT_EQ(compressed_ ? 0 : kChunk * kChunkSamples, repeated.block.seq_num);
  EXPECT_EQ(compressed_ ? blocks_.size() - kChunk - 1 : 0, log_.TakeProblems().size());
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
