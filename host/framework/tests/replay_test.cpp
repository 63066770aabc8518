// SPDX-License-Identifier: Apache-2.0
// Recordings in the sensors' place, and what is wrong with those that cannot be replayed.
#include <bit>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <tuple>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <hyl/host/replay.h>
#include <hyl/spectral_client.h>

namespace hyl::v2::host {
namespace {

using std::chrono::nanoseconds;
using testing::ElementsAre;
using testing::HasSubstr;

std::string Line(const std::string& json) {
  return json + "\n";
}

constexpr char kHeader[] =
    R"({"line":"header","format":1,"sensors":[{"name":"rear","type":"ambient-light"},)"
    R"({"name":"tube","type":"flicker","bits":12}]})"
    "\n";

std::string Spectral(const std::string& values, int64_t time_ns = 0) {
  return R"({"line":"spectral","time_ns":)" + std::to_string(time_ns) +
         R"(,"sensor":"rear","kind":0,"timestamp_ns":7,"values":[)" + values + "]}\n";
}

std::string Flicker(uint32_t seq_num, const std::string& samples) {
  return R"({"line":"flicker","time_ns":0,"sensor":"tube","seq_num":)" + std::to_string(seq_num) +
         R"(,"restart":3,"format_param":8000,"aux8_0":1,"aux8_1":2,"aux16_0":3,"aux16_1":4,)"
         R"("aux16_2":5,"aux32_0":6,"aux32_1":4294967295,"auxf_0":-0.0,"auxf_1":"0xff800001",)"
         R"("samples":[)" +
         samples + "]}\n";
}

/// A recording in a file, which goes with it.
class RecordingFile {
 public:
  explicit RecordingFile(const std::string& text) { std::ofstream(path_) << text; }
  ~RecordingFile() { std::filesystem::remove(path_); }
  RecordingFile(const RecordingFile&) = delete;
  RecordingFile& operator=(const RecordingFile&) = delete;
  const std::string& path() const { return path_; }

 private:
  const std::string path_ = testing::TempDir() + "recording-" +
                            testing::UnitTest::GetInstance()->current_test_info()->name();
};

/// Runs both sensors on a recording.
struct ReplayedClient {
  explicit ReplayedClient(const std::string& recording) : file(recording), replay(file.path()) {
    EXPECT_EQ(client.EnableAmbientLight("rear", SensorReportingMode::kOnChange, light),
              HylErr::kOk);
    EXPECT_EQ(client.EnableFlicker("tube", 8, 16, flicker), HylErr::kOk);
  }

  RecordingFile file;
  Replay replay;
  std::vector<uint32_t> value_bits;
  std::vector<int32_t> samples;
  FlickerSampleBlock block = {};
  SpectralClient client{{.ambient_light =
                             [this](std::span<const float> values, nanoseconds) {
                               for (const float value : values) {
                                 value_bits.push_back(std::bit_cast<uint32_t>(value));
                               }
                             },
                         .flicker =
                             [this](std::span<const int32_t> read, const FlickerSampleBlock& b) {
                               samples.assign(read.begin(), read.end());
                               block = b;
                             }}};
  std::unique_ptr<AmbientLightSession> light;
  std::unique_ptr<FlickerSession> flicker;
};

TEST(ReplayTest, KeepsEveryBitAndScalesSamples) {
  ReplayedClient client(kHeader +
                        Spectral(R"(-0.0,1e-45,3.4028235e+38,0.1,"0x7f800000","0x7fc00001")") +
                        Flicker(UINT32_MAX / 2, "-2048,2047,-1"));
  client.replay.Advance(nanoseconds(0));
  EXPECT_THAT(client.value_bits,
              ElementsAre(0x80000000U, 1U, 0x7F7FFFFFU, 0x3DCCCCCDU, 0x7F800000U, 0x7FC00001U));
  EXPECT_THAT(client.samples, ElementsAre(-32768, 32752, -16));
  const FlickerSampleBlock& block = client.block;
  EXPECT_EQ(std::tuple(block.seq_num, block.restart, block.format_param, block.aux8_0, block.aux8_1,
                       block.aux16_0, block.aux16_1, block.aux16_2, block.aux32_0, block.aux32_1),
            std::tuple(UINT32_MAX / 2, 3, 8000, 1, 2, 3, 4, 5, 6, UINT32_MAX));
  EXPECT_EQ(std::bit_cast<uint32_t>(block.auxf_0), 0x80000000U);
  EXPECT_EQ(std::bit_cast<uint32_t>(block.auxf_1), 0xFF800001U);
}

TEST(ReplayTest, DeliversWhatFallsDue) {
  ReplayedClient client(kHeader + Spectral("1", 10) + Spectral("2", 20) + Spectral("3", 20) +
                        Line(R"({"line":"drop","time_ns":25,"count":3})") +
                        Line(R"({"line":"drop","time_ns":25,"count":1})") + R"({"line":"spectr)");
  const auto count_after = [&](int64_t step) {
    client.replay.Advance(nanoseconds(step));
    return client.value_bits.size();
  };
  EXPECT_EQ(count_after(9), 0U);
  EXPECT_EQ(count_after(1), 1U);
  client.replay.Step();
  EXPECT_EQ(client.replay.Now(), 20);
  EXPECT_EQ(count_after(0), 3U);
  EXPECT_FALSE(client.replay.CutOff());
  EXPECT_EQ(count_after(100), 3U);
  EXPECT_EQ(client.replay.TakeDrops(), 4U);
  EXPECT_TRUE(client.replay.CutOff());
  EXPECT_EQ(client.replay.NextDue(), Replay::kNever);
}

TEST(ReplayTest, NamesTheLineAndItsFault) {
  const std::tuple<std::string, const char*> cases[] = {
      {"", "line 0: there is no whole line"},
      {std::string(kHeader, 20), "there is no whole line"},
      {Spectral("1"), "line 1: the first line is not a header"},
      {Line("[]"), "line 1: 'line' is missing"},
      {Line(R"({"line":"header","format":2,"sensors":[]})"),
       "does not know the recording's format"},
      {Line(R"({"line":"header","format":1,"sensors":[{"name":"a","type":"sound"}]})"),
       "no such type"},
      {kHeader + Line("{"), "line 2: the line is not JSON"},
      {kHeader + Line(std::string(size_t{5} << 20U, ' ')), "line 2: the line is too long"},
      {kHeader + Spectral("1", 5) + Spectral("1", 4), "line 3: the time runs backwards"},
      {kHeader + Spectral("\"bright\""), "'values' is missing, no list"},
      {kHeader + Spectral("\"0x3f800000\""), "'values' is missing, no list"},
      {kHeader + Flicker(0, ""), "a block without samples"},
      {kHeader + Flicker(0, "2048"), "wider than 'bits'"},
      {kHeader + Flicker(UINT32_MAX / 2 + 1, "1"), "'seq_num' is beyond what can be replayed"},
      {kHeader + Line(R"({"line":"spectral","time_ns":0,"sensor":"front"})"),
       "line 2: the header has no such sensor"},
      {kHeader + Line(R"({"line":"sound","time_ns":0})"), "no such kind of line"}};
  for (const auto& [text, fault] : cases) {
    const RecordingFile file(text);
    const auto replay_all = [&file] { Replay(file.path()).Advance(nanoseconds::max()); };
    EXPECT_THAT(replay_all, testing::ThrowsMessage<std::runtime_error>(HasSubstr(fault)));
  }
  EXPECT_THAT([] { Replay("/nowhere"); }, testing::ThrowsMessage<std::runtime_error>(
                                              HasSubstr("/nowhere, line 0: the file cannot be")));
}

}  // namespace
}  // namespace hyl::v2::host
