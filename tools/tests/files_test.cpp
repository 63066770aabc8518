// SPDX-License-Identifier: Apache-2.0
// What the tool writes into files: pictures and recordings.
#include <climits>
#include <cmath>
#include <filesystem>
#include <fstream>

#include <hyl/host/messages.h>

#include "text.h"
#include "tool_run.h"

namespace hyl::v2::tool {
namespace {

using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

/// In an empty folder.
class FileTest : public ToolTest {
 protected:
  void SetUp() override {
    std::string name = (std::filesystem::temp_directory_path() / "hyl-tool-XXXXXX").string();
    ASSERT_NE(mkdtemp(name.data()), nullptr);
    std::filesystem::current_path(name);
  }
  void TearDown() override {
    const std::filesystem::path folder = std::filesystem::current_path();
    std::filesystem::current_path("/");
    std::filesystem::remove_all(folder);
    ToolTest::TearDown();
  }

  static size_t Files() {
    return static_cast<size_t>(std::distance(std::filesystem::directory_iterator("."), {}));
  }
};

class PictureTest : public FileTest {};

TEST_F(PictureTest, IsDrawnInBothFormats) {
  for (const std::string& file :
       {std::string("a.svg"), std::string("a.png"), std::string(NAME_MAX - 4, 'a') + ".svg"}) {
    EXPECT_THAT(RunCaptured("flicker --seconds 0.3 --plot " + file), SucceedsQuietly());
    EXPECT_GT(std::filesystem::file_size(file), 5000U);
  }
  EXPECT_EQ(Files(), 3U);
  EXPECT_THAT(ReadAll(FileDescriptor(open("a.svg", O_RDONLY)).get()),
              HasSubstr("flicker: modulation 1."));
}

TEST_F(PictureTest, TakesNoNameForACommand) {
  for (const char* const name :
       {"';system'touch PWNED';'", "`touch PWNED`", "'\nsystem'touch PWNED'\n'",
        "\"\nsystem\"touch PWNED\"\n", "\\'\nsystem'touch PWNED'\n", "@x"}) {
    framework_->SetSensorList(
        {host::MakeEntry(host::kFlicker, name), host::MakeEntry(host::kListMarker, "")});
    EXPECT_EQ(RunCaptured("flicker --seconds 0.5 --plot a.svg").code, 0) << name;
    EXPECT_EQ(Files(), 1U) << name;
  }
  std::filesystem::create_directory("|touch${IFS}PWNED;");
  EXPECT_EQ(RunCaptured("flicker --seconds 0.2 --plot |touch${IFS}PWNED;/a.svg").code, 0);
  EXPECT_EQ(Files(), 2U);
}

TEST_F(PictureTest, LeavesNothingBehindWhenItCannotBeDrawn) {
  UseSilentFramework(HylErr::kOk);
  EXPECT_THAT(RunCaptured("flicker --timeout 0.05 --plot a.png"), EndsWithLine(7, "nothing"));
  const std::string path = std::getenv("PATH");  // NOLINT(concurrency-mt-unsafe)
  SetVariable("PATH", "/nowhere");
  EXPECT_THAT(RunCaptured("flicker --plot a.png"), EndsWithLine(6, "install it"));
  SetVariable("PATH", path.c_str());
  EXPECT_EQ(Files(), 0U);
}

class RecordingTest : public FileTest {
 protected:
  static std::string Text(const std::string& file) {
    return ReadAll(FileDescriptor(open(file.c_str(), O_RDONLY)).get());
  }
  static std::string WithoutHeader(const std::string& text) { return text.substr(text.find('\n')); }
  static void Write(const std::string& text) { std::ofstream("recording") << text; }
};

TEST_F(RecordingTest, IsWhatItsReplayGives) {
  for (const std::string sensors : {"", " front --mode on-change", " flicker --bits 24", " fl r"}) {
    SCOPED_TRACE(sensors);
    host::SimulatedHub::Instance().SetFlickerFaults({.lose_every = 3, .repeat_chunk = 4});
    EXPECT_THAT(RunCaptured("record device --seconds 0.5 --lux 90" + sensors), SucceedsQuietly());
    const std::string recorded = Text("device");
    EXPECT_GT(Lines(recorded), 1U);
    for (const char* const speed : {"inf", "20"}) {
      EXPECT_THAT(RunCaptured("record replay --replay device --speed " + (speed + sensors)),
                  SucceedsQuietly());
      EXPECT_EQ(WithoutHeader(Text("replay")), WithoutHeader(recorded));
    }
    Json header = Json::parse(recorded.substr(0, recorded.find('\n')));
    const std::string replay = Text("replay");
    header["time"] = Json::parse(replay.substr(0, replay.find('\n')))["time"];
    EXPECT_THAT(replay, StartsWith(JsonLine(header)));
  }
}

TEST_F(RecordingTest, IsWhatJsonFormatPrints) {
  for (const std::string run : {"stream rear", "flicker --samples --buffer 100"}) {
    const std::string printed = RunCaptured(run + " --seconds 0.3 --format json").out;
    Write(printed);
    const RunResult replayed = RunCaptured(run + " --format json --replay recording --speed inf");
    EXPECT_EQ(WithoutHeader(replayed.out), WithoutHeader(printed));
  }
}

TEST_F(RecordingTest, KeepsWhatWasDropped) {
  constexpr size_t kRoom = 256;
  UseSilentFramework(HylErr::kOk);
  framework_->RefuseIf([](const host::FrameworkCall& call) {
    return call.As<RlsMsgAccessReq>() != nullptr ? HylErr::kInvalidArgument : HylErr::kOk;
  });
  framework_->AnswerWith([](const host::FrameworkCall& call) {
    const bool starts = call.As<StartContinuousSamplingReq>() != nullptr;
    host::ScriptedFramework::Messages messages;
    for (size_t i = 0; starts && call.handle == host::kRearContinuous && i < kRoom + 7; ++i) {
      const std::vector<float> values(i % 2 == 1 ? 2 : 1, NAN);
      messages.push_back(std::make_unique<host::SpectralMessage>(values));
    }
    return messages;
  });
  framework_->SetHook([this](const host::FrameworkCall& call) {
    if (call.handle == host::kFlicker) {
      framework_->ReleaseAnswers();
      framework_->AwaitAnswers();  // all of which come before the tool reads one
    }
  });
  framework_->HoldAnswers();
  EXPECT_THAT(RunCaptured("record device --seconds 0.001"), EndsWithLine(0, "dropped 7"));
  const std::string recorded = Text("device");
  EXPECT_EQ(Lines(recorded), 1 + 1 + kRoom);
  const std::string cut_off = "{\"line\":\"spectr";
  Write(recorded + cut_off);
  const RunResult result = RunCaptured("record replay --replay recording --speed inf");
  EXPECT_THAT(result.err, AllOf(HasSubstr("in the middle of a line"), HasSubstr("dropped 7")));
  EXPECT_THAT(result.out, HasSubstr("258 lines"));
  EXPECT_EQ(WithoutHeader(Text("replay")), WithoutHeader(recorded));
  const std::string stream = "stream --replay recording --speed inf";
  EXPECT_EQ(Lines(RunCaptured(stream + " --count 256 --format json").out), 1 + 1 + kRoom);
  EXPECT_THAT(RunCaptured(stream + " --count 2 --format csv").out, EndsWith("0,nan,nan\n0,nan,\n"));
}

TEST_F(RecordingTest, RunsOnItsTime) {
  std::string text =
      R"({"line":"header","format":1,"sensors":[{"name":"rear","type":"ambient-light"}]})";
  for (const char* const day : {"86400", "172800", "259200"}) {
    text += "\n{\"line\":\"spectral\",\"time_ns\":" + std::string(day) +
            R"(000000000,"sensor":"rear","kind":0,"timestamp_ns":0,"values":[1.5]})";
  }
  Write(text + "\n");
  for (const auto& [timeout, code] : {std::pair("90000", 0), std::pair("80000", 7)}) {
    const std::string arguments = "stream --replay recording --speed inf --timeout ";
    EXPECT_EQ(RunCaptured(arguments + timeout).code, code);
  }
}

TEST_F(RecordingTest, FailsWithACodeAndALine) {
  Write("{\"line\":\"header\",\"format\":1,\"sensors\":[]}\n[]\n");
  EXPECT_THAT(RunCaptured("--replay recording list"),
              EndsWithLine(8, "recording, line 2: 'time_ns' is missing"));
  EXPECT_THAT(RunCaptured("record /dev/full"), EndsWithLine(6, "No space left"));
  RunCaptured("record recording --seconds 0.1");
  EXPECT_THAT(RunCaptured("--replay recording get --all"), EndsWithLine(2, "no settings"));
  EXPECT_THAT(RunCaptured("--replay recording stream --set gain=0,1"), EndsWithLine(5, "gain"));
}

}  // namespace
}  // namespace hyl::v2::tool
