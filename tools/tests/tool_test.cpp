#include <fcntl.h>
#include <pthread.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <csignal>
#include <filesystem>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <hyl/host/scripted_framework.h>
#include <hyl/host/sensors.h>
#include <hyl/host/simulated_hub.h>

#include "captured_run.h"

namespace hyl::v2::tool {
namespace {

using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::Not;
using testing::StartsWith;

size_t Lines(const std::string& text) {
  return static_cast<size_t>(std::count(text.begin(), text.end(), '\n'));
}

MATCHER(IsOneLine, "is one whole line that can be shown") {
  const auto is_control = [](unsigned char byte) { return byte < 0x20 || byte == 0x7F; };
  return arg.ends_with('\n') && std::count_if(arg.begin(), arg.end(), is_control) == 1;
}

/// Every test begins on the simulated sensors as they are at first.
class ToolTest : public testing::Test {
 protected:
  ToolTest() {
    host::SimulatedHub::Instance().Reset();
    framework_->UseSimulatedHub();
  }

  /// Puts a framework in the hub's place that gives this answer to all requests, and sends no data.
  void UseSilentFramework(HylErr answer) {
    framework_.emplace();
    framework_->SetSensorList({host::MakeEntry(host::kRearOnChange, "rear"),
                               host::MakeEntry(host::kRearContinuous, "rear"),
                               host::MakeEntry(host::kFlicker, "flicker"),
                               host::MakeEntry(host::kListMarker, "")});
    framework_->RefuseInvoke(host::ScriptedFramework::kEvery, answer);
  }

  /// Sensors that the tool has not stopped.
  size_t Unstopped() { return framework_->Running().size(); }

  std::optional<host::ScriptedFramework> framework_{std::in_place};
};

// Ends with an error.

struct FaultCase {
  const char* name;
  const char* arguments;
  int code;
  const char* says;
};

class FaultTest : public ToolTest, public testing::WithParamInterface<FaultCase> {};

TEST_P(FaultTest, EndsInALine) {
  const RunResult result = RunCaptured(GetParam().arguments);
  EXPECT_EQ(result.code, GetParam().code);
  EXPECT_THAT(result.out, IsEmpty());
  EXPECT_THAT(result.err, AllOf(IsOneLine(), StartsWith("hyl-spectral: "), HasSubstr("; "),
                                HasSubstr(GetParam().says)));
  EXPECT_EQ(Unstopped(), 0U);
}

INSTANTIATE_TEST_SUITE_P(
    Usage, FaultTest,
    testing::Values(FaultCase{"NoCommand", "", 2, "--help"},
                    FaultCase{"UnknownCommand", "lits", 2, "'lits'"},
                    FaultCase{"ControlCharacters", "list \033[31mX\n\302\233", 2, "?[31mX???"},
                    FaultCase{"EmptySensor", "stream  --count 1", 2, "must not be empty"},
                    FaultCase{"TwoSensors", "stream rear front", 2, "front"},
                    FaultCase{"UnknownOption", "stream rear --colour", 2, "--colour"},
                    FaultCase{"UnknownFormat", "stream rear --format xml", 2, "text,json,csv"},
                    FaultCase{"UnknownMode", "stream rear --mode off", 2, "continuous,on-change"},
                    FaultCase{"NoSamples", "stream rear --count 0", 2, "--count"},
                    FaultCase{"HalfASample", "stream rear --count 1.5", 2, "--count"},
                    FaultCase{"NegativeTime", "stream rear --seconds -1", 2, "--seconds"},
                    FaultCase{"NoNumber", "stream rear --seconds nan", 2, "--seconds"},
                    FaultCase{"EndlessTime", "stream rear --seconds inf", 2, "--seconds"},
                    FaultCase{"NoCsv", "list --format csv", 2, "text or json"},
                    FaultCase{"NoBits", "flicker flicker --bits 0", 2, "--bits"},
                    FaultCase{"TooManyBits", "flicker flicker --bits 33", 2, "--bits"},
                    FaultCase{"HugeBuffer", "flicker flicker --buffer 99999999999", 2, "--buffer"},
                    FaultCase{"UnknownPicture", "flicker flicker --plot flicker.gif", 2,
                              ".svg or .png"},
                    FaultCase{"PictureWithALineFeed", "flicker --plot a\nb.svg", 2, "control"},
                    FaultCase{"UnknownScene", "--scene moon list", 2, "fluorescent"},
                    FaultCase{"UnknownSetting", "get colour", 2, "'colour'"},
                    FaultCase{"NoSetting", "get", 2, "--all"},
                    FaultCase{"SettingAndAll", "get register 1 --all", 2, "--all"},
                    FaultCase{"UnreadableSetting", "get torch", 2, "use set"},
                    FaultCase{"UnwritableSetting", "set device-uid 1", 2, "use get"},
                    FaultCase{"NoValue", "get register", 2, "give 1 value\n"},
                    FaultCase{"TooFewValues", "set gain 1", 2, "gain A GAIN"},
                    FaultCase{"ValueTooLarge", "set register 1 256", 2, "0 to 255"},
                    FaultCase{"BadAssignment", "stream rear --set gain", 2, "NAME=VALUE"},
                    FaultCase{"BadAssignedValue", "flicker flicker --set torch=1", 2, "on or off"}),
    [](const auto& test) { return std::string(test.param.name); });

INSTANTIATE_TEST_SUITE_P(
    Others, FaultTest,
    testing::Values(
        FaultCase{"UnknownLightSensor", "stream moon", 3, "'rear ambient light'"},
        FaultCase{"FlickerIsNoLightSensor", "stream flicker", 3, "'front ambient light'"},
        FaultCase{"UnknownFlickerSensor", "flicker moon", 3, "'flicker'"},
        FaultCase{"RefusedValue", "set gain 77 1", 5, "(kInvalidArgument, 9); 'hyl-spectral set"},
        FaultCase{"NoPlaceForPicture", "flicker flicker --plot /nowhere/a.png", 6,
                  "/nowhere/a.png"}),
    [](const auto& test) { return std::string(test.param.name); });

struct RefusalCase {
  const char* name;
  HylErr answer;
  int code;
  const char* says;
};

class RefusalTest : public ToolTest, public testing::WithParamInterface<RefusalCase> {
 protected:
  void SetUp() override { UseSilentFramework(GetParam().answer); }
};

TEST_P(RefusalTest, EndsInALine) {
  for (const char* const arguments : {"stream rear", "flicker flicker", "set torch on"}) {
    SCOPED_TRACE(arguments);
    const RunResult result = RunCaptured(arguments);
    EXPECT_EQ(result.code, GetParam().code);
    EXPECT_THAT(result.err, AllOf(IsOneLine(), HasSubstr(GetParam().says)));
  }
}

INSTANTIATE_TEST_SUITE_P(
    Answers, RefusalTest,
    testing::Values(RefusalCase{"AlreadyRunning", HylErr::kAlreadyRunning, 4,
                                "kAlreadyRunning, 19"},
                    RefusalCase{"NoSession", HylErr::kNoSession, 4, "kNoSession, 17"},
                    RefusalCase{"Failed", HylErr::kFailed, 5, "kFailed, 2"},
                    RefusalCase{"CodeOfItsOwn", HylErr{77}, 5, "framework code, 77"}),
    [](const auto& test) { return std::string(test.param.name); });

class LostFrameworkTest : public ToolTest {};

TEST_F(LostFrameworkTest, EndsARunThatGetsNoData) {
  UseSilentFramework(HylErr::kOk);
  for (const char* const arguments :
       {"stream rear --timeout 0.05", "flicker flicker --timeout 0.05"}) {
    const RunResult result = RunCaptured(arguments);
    EXPECT_EQ(result.code, 7);
    EXPECT_THAT(result.err, AllOf(IsOneLine(), HasSubstr("has sent nothing")));
  }
}

TEST_F(LostFrameworkTest, LetsOnChangeWaitForAChange) {
  UseSilentFramework(HylErr::kOk);
  const RunResult result = RunCaptured("stream rear --mode on-change --timeout 0.05 --seconds 0.2");
  EXPECT_EQ(result.code, 0);
  EXPECT_THAT(result.err, IsEmpty());
}

TEST_F(LostFrameworkTest, SaysThatThereIsNoFramework) {
  framework_->FailCreate(host::ScriptedFramework::kEvery);
  const RunResult result = RunCaptured("stream rear");
  EXPECT_EQ(result.code, 5);
  EXPECT_THAT(result.err, AllOf(IsOneLine(), HasSubstr("check that its service runs")));
}

// Ends in the middle, with the sensor disabled.

class EndOfRunTest : public ToolTest, public testing::WithParamInterface<const char*> {
 protected:
  void TearDown() override { EXPECT_EQ(Unstopped(), 0U); }
};

TEST_P(EndOfRunTest, OfAReaderThatHasGone) {
  Pipe pipe;
  pipe.reader.Close();
  const RunResult result = RunInto(pipe.writer.get(), GetParam());
  EXPECT_EQ(result.code, 0);
  EXPECT_THAT(result.err, IsEmpty());
}

TEST_P(EndOfRunTest, OnAFullDisk) {
  const FileDescriptor full(open("/dev/full", O_WRONLY | O_CLOEXEC));
  const RunResult result = RunInto(full.get(), GetParam());
  EXPECT_EQ(result.code, 6);
  EXPECT_THAT(result.err, AllOf(IsOneLine(), HasSubstr("No space left")));
}

TEST_P(EndOfRunTest, OnASignalAfterOutput) {
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    Pipe pipe;
    Reader reader(pipe.reader.get(),
                  [main = pthread_self(), signal] { pthread_kill(main, signal); });
    const RunResult result = RunInto(pipe.writer.get(), GetParam());
    pipe.writer.Close();
    EXPECT_EQ(result.code, 0);
    EXPECT_THAT(result.err, IsEmpty());
    EXPECT_THAT(reader.Text(), EndsWith("\n"));
    EXPECT_EQ(Unstopped(), 0U);
  }
}

INSTANTIATE_TEST_SUITE_P(Commands, EndOfRunTest,
                         testing::Values("stream rear", "stream front --format json",
                                         "flicker flicker",
                                         "flicker flicker --samples --format csv"));

class HeldUpOutputTest : public ToolTest {};

TEST_F(HeldUpOutputTest, CanBeInterrupted) {
  Pipe pipe;
  fcntl(pipe.writer.get(), F_SETFL, O_NONBLOCK);
  const std::string fill(4096, ' ');
  while (write(pipe.writer.get(), fill.data(), fill.size()) > 0) {
  }
  fcntl(pipe.writer.get(), F_SETFL, 0);
  BlockSignals();
  pthread_kill(pthread_self(), SIGINT);
  // Would never come back if it waited for room alone.
  EXPECT_EQ(RunInto(pipe.writer.get(), "list").code, 0);
}

class ClosedOutputTest : public ToolTest {};

TEST_F(ClosedOutputTest, EndsQuietly) {
  Pipe pipe;
  pipe.reader.Close();
  for (const char* const arguments : {"list", "get --all", "--help", "--version"}) {
    const RunResult result = RunInto(pipe.writer.get(), arguments);
    EXPECT_EQ(result.code, 0) << arguments;
    EXPECT_THAT(result.err, IsEmpty());
  }
}

TEST_F(ClosedOutputTest, EndsARunThatHasNothingToPrint) {
  UseSilentFramework(HylErr::kOk);
  Pipe pipe;
  pipe.reader.Close();
  EXPECT_EQ(RunInto(pipe.writer.get(), "stream rear --mode on-change").code, 0);
}

// What is printed.

class ListTest : public ToolTest {};

TEST_F(ListTest, ShowsTheSensors) {
  EXPECT_EQ(RunCaptured("list").out,
            "TYPE           INDEX  SUPPORTED  NAME\n"
            "ambient-light  0      yes        rear ambient light\n"
            "ambient-light  1      yes        front ambient light\n"
            "flicker        0      yes        flicker\n");
  EXPECT_EQ(RunCaptured("--format json list").out, RunCaptured("list --format json").out);
  EXPECT_THAT(RunCaptured("list --format json").out,
              StartsWith("{\"sensors\":[{\"type\":\"ambient-light\",\"index\":0,"
                         "\"name\":\"rear ambient light\",\"supported\":true},"));
}

class StreamTest : public ToolTest {};

TEST_F(StreamTest, PrintsALineASample) {
  const std::string text = RunCaptured("stream rear --count 3").out;
  EXPECT_EQ(Lines(text), 3U);
  EXPECT_THAT(text, StartsWith("     0.000 s "));
  const std::string csv = RunCaptured("stream rear --count 3 --format csv").out;
  EXPECT_EQ(Lines(csv), 4U);
  EXPECT_THAT(csv, StartsWith("timestamp_ns,channel_0,"));
  EXPECT_EQ(std::count(csv.begin(), csv.end(), ','), 4 * 12);
  EXPECT_THAT(RunCaptured("stream rear --count 1 --format json").out,
              MatchesRegex("\\{\"sensor\":\"rear ambient light\",\"timestamp_ns\":[0-9]+,"
                           "\"values\":\\[[-0-9.e,]+\\]\\}\n"));
}

TEST_F(StreamTest, TakesTheFirstSensorUnlessToldOtherwise) {
  EXPECT_THAT(RunCaptured("stream --count 1 --format json").out, HasSubstr("rear ambient light"));
  EXPECT_THAT(RunCaptured("flicker --seconds 0.2 --format json").out, HasSubstr("\"flicker\""));
}

TEST_F(StreamTest, TellsWhatBecameOfASetting) {
  EXPECT_THAT(RunCaptured("stream --count 1 --set sampling-period=1").err,
              AllOf(IsOneLine(), HasSubstr("sampling-period is 5000, not 1")));
  EXPECT_THAT(RunCaptured("stream --count 1 --set gain=0,4").err,
              AllOf(IsOneLine(), HasSubstr("--set spectral-auto-gain=off")));
  EXPECT_THAT(RunCaptured("stream --count 1 --set spectral-auto-gain=off --set gain=0,4").err,
              IsEmpty());
}

TEST_F(StreamTest, WritesSettingsBeforeTheStart) {
  const std::string fixed = "stream rear --count 1 --format csv --set spectral-auto-gain=off ";
  const auto clear_channel = [](const RunResult& result) {
    const size_t comma = result.out.rfind(',', result.out.rfind(',') - 1);
    return std::stod(result.out.substr(comma + 1));
  };
  const double low = clear_channel(RunCaptured(fixed + "--set gain=0,1"));
  const double high = clear_channel(RunCaptured(fixed + "--set gain=0,8"));
  EXPECT_NEAR(high / low, 8, 1);
}

double NumberAfter(const std::string& label, const std::string& text) {
  return std::stod(text.substr(text.find(label) + label.size()));
}

class FlickerTest : public ToolTest {};

TEST_F(FlickerTest, MeasuresTheLight) {
  const RunResult mains =
      RunCaptured("flicker flicker --seconds 0.5 --scene fluorescent --mains 60");
  EXPECT_THAT(mains.out,
              AllOf(HasSubstr("24000 Hz"), HasSubstr("frequency 120.0"), HasSubstr("gaps 0")));
  EXPECT_GT(NumberAfter("\"samples\":", RunCaptured("flicker --seconds 0.5 --format json").out),
            4800);  // 0.2 s in a row, though the sensor's stream restarts every 0.1 s
  const RunResult steady = RunCaptured("flicker flicker --seconds 0.5 --scene daylight");
  EXPECT_THAT(steady.out, HasSubstr("frequency none"));
}

TEST_F(FlickerTest, SaysThatTheBufferIsTooSmall) {
  const RunResult result = RunCaptured("flicker flicker --seconds 0.3 --buffer 100");
  EXPECT_EQ(result.code, 0);
  EXPECT_THAT(result.err, AllOf(IsOneLine(), HasSubstr("--buffer")));
}

class GetAndSetTest : public ToolTest {};

TEST_F(GetAndSetTest, AreReadAndWritten) {
  EXPECT_THAT(RunCaptured("get --all").out,
              AllOf(HasSubstr("spectral-auto-gain             on\n"), HasSubstr("device-uid")));
  EXPECT_EQ(RunCaptured("set torch on --format json").out,
            "{\"setting\":\"torch\",\"sent\":true}\n");
  EXPECT_EQ(RunCaptured("set gain 0 3.9 --format json").out,
            "{\"setting\":\"gain\",\"applied\":4.0}\n");
  EXPECT_EQ(RunCaptured("set spectral-auto-gain off").code, 0);
  EXPECT_EQ(RunCaptured("get spectral-auto-gain --format json").out,
            "{\"spectral-auto-gain\":false}\n");
  EXPECT_EQ(RunCaptured("set register 0x21 0x7F").code, 0);
  EXPECT_EQ(RunCaptured("get register 33").out, "register                       127\n");
  EXPECT_EQ(RunCaptured("get register 0x21").out, "register                       0x7F\n");
}

TEST_F(GetAndSetTest, AreSaidToEndWithTheCommand) {
  EXPECT_THAT(RunCaptured("set torch on").err, AllOf(IsOneLine(), HasSubstr("lose this setting")));
}

class LogTest : public ToolTest {};

TEST_F(LogTest, IsSilentUnlessAskedFor) {
  EXPECT_THAT(RunCaptured("stream moon").err, Not(HasSubstr("HYL_SpAPI")));
  EXPECT_THAT(RunCaptured("-v stream moon").err, HasSubstr("HYL_SpAPI"));
}

/// Sets an environment variable. No other thread reads them at that time.
void SetVariable(const char* name, const char* value) {
  setenv(name, value, 1);  // NOLINT(concurrency-mt-unsafe)
}

// On a terminal.

std::string ShownOnTerminal(const char* arguments, unsigned short rows = 24) {
  TestTerminal terminal(rows);
  Reader reader(terminal.reader.get(), [] {});
  const RunResult result = RunInto(terminal.screen.get(), arguments);
  EXPECT_EQ(result.code, 0);
  terminal.screen.Close();
  return reader.Text();
}

constexpr const char* kColour = "\033[36m";
constexpr const char* kEraseLine = "\033[K";
constexpr const char* kEndOfFrame = "\033[J";

class TerminalTest : public ToolTest {};

TEST_F(TerminalTest, DrawsBarsInColour) {
  SetVariable("TERM", "xterm");
  SetVariable("NO_COLOR", "");
  for (const char* const arguments : {"stream rear --count 2", "flicker flicker --seconds 0.3"}) {
    EXPECT_THAT(ShownOnTerminal(arguments), AllOf(HasSubstr(kColour), HasSubstr(kEraseLine)));
  }
}

TEST_F(TerminalTest, DrawsNoMoreLinesThanThereIsRoomFor) {
  SetVariable("TERM", "xterm");
  const std::pair<const char*, uint16_t> cases[] = {
      {"stream --count 2", 6}, {"stream --count 2", 10}, {"flicker --seconds 0.6", 6}};
  for (const auto& [arguments, rows] : cases) {
    std::string shown = ShownOnTerminal(arguments, rows);
    EXPECT_THAT(shown, HasSubstr("more lines need a taller window"));
    for (size_t end = 0; (end = shown.find(kEndOfFrame)) != shown.npos; shown.erase(0, end + 3)) {
      EXPECT_LT(Lines(shown.substr(0, end)), rows) << arguments;
    }
  }
}

TEST_F(TerminalTest, DrawsWithoutColourWhenAskedTo) {
  SetVariable("TERM", "xterm");
  SetVariable("NO_COLOR", "1");
  EXPECT_THAT(ShownOnTerminal("stream rear --count 2"),
              AllOf(Not(HasSubstr(kColour)), HasSubstr(kEraseLine)));
}

TEST_F(TerminalTest, PrintsLinesWhereNothingCanBeDrawnAnew) {
  SetVariable("TERM", "dumb");
  EXPECT_THAT(ShownOnTerminal("stream rear --count 2"), Not(HasSubstr("\033")));
  EXPECT_THAT(RunCaptured("stream rear --count 2").out, Not(HasSubstr("\033")));
}

// Pictures.

class PictureTest : public ToolTest {
 protected:
  void SetUp() override {
    std::string name = (std::filesystem::temp_directory_path() / "hyl-tool-XXXXXX").string();
    ASSERT_NE(mkdtemp(name.data()), nullptr);
    folder_ = name;
  }
  void TearDown() override {
    std::filesystem::current_path("/");
    std::filesystem::remove_all(folder_);
  }

  std::string PlotOption(const char* file) const { return " --plot " + (folder_ / file).string(); }
  size_t Files() const {
    return static_cast<size_t>(std::distance(std::filesystem::directory_iterator(folder_), {}));
  }

  std::filesystem::path folder_;
};

TEST_F(PictureTest, IsDrawnInBothFormats) {
  const std::string longest = std::string(NAME_MAX - 4, 'a') + ".svg";
  for (const char* const file : {"flicker.svg", "flicker.png", longest.c_str()}) {
    const RunResult result = RunCaptured("flicker flicker --seconds 0.3" + PlotOption(file));
    EXPECT_EQ(result.code, 0) << result.err;
    EXPECT_GT(std::filesystem::file_size(folder_ / file), 5000U);
  }
  EXPECT_EQ(Files(), 3U);
}

TEST_F(PictureTest, TakesNoSensorNameForACommand) {
  std::filesystem::current_path(folder_);
  for (const char* const name :
       {"';system'touch PWNED';'", "`touch PWNED`", "'\nsystem'touch PWNED'\n'",
        "\"\nsystem\"touch PWNED\"\n", "\\'\nsystem'touch PWNED'\n", "@x"}) {
    framework_->SetSensorList(
        {host::MakeEntry(host::kFlicker, name), host::MakeEntry(host::kListMarker, "")});
    EXPECT_EQ(RunCaptured("flicker --seconds 0.2 --plot a.svg").code, 0) << name;
    EXPECT_EQ(Files(), 1U) << name;
  }
}

TEST_F(PictureTest, TakesNoFolderForACommand) {
  std::filesystem::current_path(folder_);
  std::filesystem::create_directory("|touch${IFS}PWNED;");
  EXPECT_EQ(RunCaptured("flicker flick --seconds 0.2 --plot |touch${IFS}PWNED;/a.svg").code, 0);
  EXPECT_EQ(Files(), 1U);
}

TEST_F(PictureTest, LeavesNothingBehindWhenTheRunFails) {
  UseSilentFramework(HylErr::kOk);
  EXPECT_EQ(RunCaptured("flicker flicker --timeout 0.05" + PlotOption("a.png")).code, 7);
  EXPECT_EQ(Files(), 0U);
}

TEST_F(PictureTest, IsMissingWithoutGnuplot) {
  SetVariable("PATH", folder_.c_str());
  const RunResult result = RunCaptured("flicker flicker --seconds 9" + PlotOption("a.png"));
  EXPECT_EQ(result.code, 6);
  EXPECT_THAT(result.err, AllOf(IsOneLine(), HasSubstr("install it")));
  EXPECT_EQ(Files(), 0U);
}

}  // namespace
}  // namespace hyl::v2::tool
