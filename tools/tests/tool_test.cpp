// SPDX-License-Identifier: Apache-2.0
// What the commands print, and how they end.
#include <algorithm>
#include <csignal>
#include <string>
#include <tuple>
#include <utility>

#include "errors.h"
#include "operations.h"
#include "settings.h"
#include "tool_run.h"

namespace hyl::v2::tool {
namespace {

using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

TEST_F(ToolTest, FailsWithACodeAndALine) {
  const std::tuple<const char*, int, const char*> cases[] = {
      {"", 2, "--help"},
      {"lits", 2, "'lits'"},
      {"list \033[31mX\n\302\233", 2, "?[31mX???"},
      {"list --format csv", 2, "text or json"},
      {"--scene moon list", 2, "fluorescent"},
      {"stream  --count 1", 2, "must not be empty"},
      {"stream rear --colour", 2, "--colour"},
      {"stream rear --format xml", 2, "text,json,csv"},
      {"stream rear --count 0", 2, "--count"},
      {"stream rear --seconds nan", 2, "--seconds"},
      {"stream rear --seconds inf", 2, "--seconds"},
      {"stream rear --set gain", 2, "NAME=VALUE"},
      {"flicker --set torch=1", 2, "on or off"},
      {"flicker --bits 33", 2, "--bits"},
      {"flicker --buffer 99999999999", 2, "--buffer"},
      {"flicker --plot flicker.gif", 2, ".svg or .png"},
      {"flicker --plot a\nb.svg", 2, "control characters"},
      {"get", 2, "--all"},
      {"get register 1 --all", 2, "--all"},
      {"get register", 2, "give 1 value\n"},
      {"get torch", 2, "use set"},
      {"set device-uid 1", 2, "use get"},
      {"set gain 1", 2, "gain A GAIN"},
      {"set register 1 256", 2, "0 to 255"},
      {"stream moon", 3, "'rear ambient light', 'front ambient light'"},
      {"stream flicker", 3, "'front ambient light'"},
      {"flicker moon", 3, "'flicker'"},
      {"set gain 77 1", 5, "(kInvalidArgument): a value is invalid"},
      {"flicker --plot /nowhere/a.png", 6, "/nowhere/a.png"},
      {"record /nowhere/a", 6, "No such file"},
      {"record a moon", 3, "'rear ambient light', 'front ambient light', 'flicker'"},
      {"--replay nosuch list", 8, "nosuch"},
      {"--speed 0 list", 2, "0.001"},
  };
  for (const auto& [arguments, code, says] : cases) {
    SCOPED_TRACE(arguments);
    const RunResult result = RunCaptured(arguments);
    EXPECT_THAT(result, EndsWithLine(code, says));
    EXPECT_THAT(result.out, IsEmpty());
    EXPECT_THAT(result.err, AllOf(StartsWith("hyl-spectral: "), HasSubstr("; ")));
  }
  EXPECT_THAT(RunCaptured("-v list").err, HasSubstr("HYL I ")) << "the log, where it is asked for";
}

TEST_F(ToolTest, FailsAsTheFrameworkDoes) {
  const std::tuple<HylErr, int, const char*> cases[] = {
      {HylErr::kAlreadyRunning, 4, "(kAlreadyRunning): the sensor"},
      {HylErr::kNoSession, 4, "(kNoSession): all"},
      {HylErr::kFailed, 5, "(kFailed): no connection"},
      {HylErr{77}, 5, "(77): the framework refused"}};
  for (const auto& [answer, code, says] : cases) {
    UseSilentFramework(answer);
    for (const char* const arguments : {"stream", "flicker", "set torch on"}) {
      EXPECT_THAT(RunCaptured(arguments), EndsWithLine(code, says)) << arguments;
    }
  }
  framework_->FailCreate(host::ScriptedFramework::kEvery);
  EXPECT_THAT(RunCaptured("stream"), EndsWithLine(5, "check that its service runs"));
  UseSilentFramework(HylErr::kOk);
  framework_->RefuseInvoke(2, HylErr::kFailed);  // the stop
  EXPECT_THAT(RunCaptured("stream --seconds 0.01"), EndsWithLine(5, "cannot stop 'rear'"));
  framework_.emplace();
}

TEST_F(ToolTest, FailsWhenTheSensorFallsSilent) {
  UseSilentFramework(HylErr::kOk);
  for (const char* const arguments : {"stream --timeout 0.05", "flicker --timeout 0.05"}) {
    EXPECT_THAT(RunCaptured(arguments), EndsWithLine(7, "has sent nothing"));
  }
  EXPECT_EQ(framework_->CallbacksOf(host::kRearOnChange), nullptr);
  EXPECT_THAT(RunCaptured("stream --mode on-change --timeout 0.05 --seconds 0.2"),
              SucceedsQuietly());
  EXPECT_NE(framework_->CallbacksOf(host::kRearOnChange), nullptr);
}

constexpr const char* kRuns[] = {"stream rear", "stream front --format json", "flicker",
                                 "flicker --samples --format csv"};

TEST_F(ToolTest, EndsQuietlyWhenTheReaderHasGone) {
  Channel pipe;
  pipe.reader.Close();
  for (const char* const arguments :
       {"list", "get --all", "--help", "--version", kRuns[0], kRuns[1], kRuns[2], kRuns[3]}) {
    EXPECT_THAT(RunInto(pipe.writer.get(), arguments), SucceedsQuietly()) << arguments;
  }
  UseSilentFramework(HylErr::kOk);  // so that nothing is ever written
  EXPECT_THAT(RunInto(pipe.writer.get(), "stream rear --mode on-change"), SucceedsQuietly());
}

TEST_F(ToolTest, FailsOnAFullDiskAndAClosedOutput) {
  const FileDescriptor full(open("/dev/full", O_WRONLY | O_CLOEXEC));
  for (const char* const arguments : kRuns) {
    EXPECT_THAT(RunInto(full.get(), arguments), EndsWithLine(6, "No space left")) << arguments;
    EXPECT_THAT(RunInto(-1, arguments), EndsWithLine(6, "Bad file descriptor")) << arguments;
  }
}

TEST_F(ToolTest, EndsWithAWholeLineOnASignal) {
  for (const char* const arguments : kRuns) {
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
      const auto interrupt = [main = pthread_self(), signal] { pthread_kill(main, signal); };
      const RunResult result = RunWatched(0, arguments, interrupt);
      EXPECT_EQ(result.code, 0) << arguments << result.err;
      EXPECT_THAT(result.out, EndsWith("\n"));
    }
  }
}

TEST_F(ToolTest, EndsOnASignalWhileNobodyReads) {
  Channel pipe;
  fcntl(pipe.writer.get(), F_SETFL, O_NONBLOCK);
  const std::string fill(4096, ' ');
  while (write(pipe.writer.get(), fill.data(), fill.size()) > 0) {
  }
  fcntl(pipe.writer.get(), F_SETFL, 0);
  RunCaptured("--version");  // blocks the signals
  for (const char* const arguments : {"list", "stream rear"}) {
    pthread_kill(pthread_self(), SIGINT);
    // Would never come back if it waited for room alone.
    EXPECT_THAT(RunInto(pipe.writer.get(), arguments), SucceedsQuietly());
  }
}

TEST_F(ToolTest, IgnoresWhatItWasStartedToIgnore) {
  static_cast<void>(std::signal(SIGHUP, SIG_IGN));
  const auto interrupt = [main = pthread_self()] { pthread_kill(main, SIGHUP); };
  EXPECT_EQ(Lines(RunWatched(0, "stream --count 3", interrupt).out), 3U);
}

TEST_F(ToolTest, PrintsWhatIsAskedFor) {
  struct {
    const char* arguments;
    const char* out;          // a regular expression, but for the last line's end
    const char* notice = "";  // on standard error
  } const cases[] = {
      {"list",
       "TYPE           INDEX  SUPPORTED  NAME\n"
       "ambient-light  0      yes        rear ambient light\n"
       "ambient-light  1      yes        front ambient light\n"
       "flicker        0      yes        flicker"},
      {"--format json list",
       R"(\{"sensors":\[\{"type":"ambient-light","index":0,"name":"rear ambient light",)"
       R"("supported":true\},.*"index":1,.*\]\})"},
      {"stream --count 3", "     0\\.000 s( +[0-9.]+){12}(\n +0\\.[0-9]{3} s( +[0-9.]+){12}){2}"},
      {"stream --count 3 --format csv",
       "timestamp_ns(,channel_[0-9]+){12}(\n[0-9]+(,[0-9.]+){12}){3}"},
      {"stream fr --count 1 --format json",
       R"(\{"line":"header","format":1,"tool":"hyl-spectral .*"mode":"continuous".*)"
       R"("sensor":"front ambient light",.*"values":\[([0-9.]+,){11}[0-9.]+\]\})"},
      {"flicker --seconds 0.5 --bits 12 --scene fluorescent --mains 60",
       " +0\\.[0-9]+ s  24000 Hz  level [2-9][0-9.]+ % .* frequency 1(19|20)\\.[0-9]+ Hz  gaps "
       "0\n.*"},
      {"flicker --seconds 0.5 --scene daylight --format json",  // in row, though there are restarts
       R"(\{"sensor":"flicker",.*"samples":(1[0-9]|[5-9])[0-9]{3},.*"frequency_hz":null,.*)"
       R"("svm":null,.*"absent":"less than a second in a row".*)"},
      {"flicker --samples --seconds 0.1 --format csv", "seq_num,sample\n0,[0-9]+\n1,[0-9]+\n2,.*"},
      {"flicker --seconds 0.3 --buffer 100", ".*", "--buffer"},
      {"get --all", ".*spectral-auto-gain +on\n.*device-uid +0x48594C0000C0FFEE"},
      {"get spectral-auto-gain --format json", R"(\{"spectral-auto-gain":true\})"},
      {"set register 0x21 0x7F", ".* 0x21\n.* 0x7F", "lose this setting"},
      {"get register 0x21", "register +0x7F"},
      {"get register 33", "register +127"},
      {"set torch on --format json", R"(\{"setting":"torch","sent":true\})", "lose this setting"},
      {"set gain 0 3.9 --format json", R"(\{"setting":"gain","applied":4\.0\})", "lose this"},
      {"stream --count 1 --set sampling-period=1", ".*", "sampling-period is 5000, not 1"},
      {"stream --count 1 --set gain=0,4", ".*", "--set spectral-auto-gain=off"},
      {"stream --count 1 --set spectral-auto-gain=off --set gain=0,4", ".*"},
      {"--complete fl", "flicker"},
      {"--complete stream --format c", "csv"},
      {"--complete set torch o", "on\noff"},
      {"--complete stream f", "front ambient light"},
  };
  for (const auto& [arguments, out, notice] : cases) {
    SCOPED_TRACE(arguments);
    const RunResult result = RunCaptured(arguments);
    EXPECT_THAT(result.out, testing::MatchesRegex(std::string(out) + "\n"));
    if (*notice == '\0') {
      EXPECT_THAT(result, SucceedsQuietly());
    } else {
      EXPECT_THAT(result, EndsWithLine(0, notice));
    }
  }
}

std::string ShownOnTerminal(const char* arguments, uint16_t rows = 24) {
  const RunResult result = RunWatched(rows, arguments, [] {});
  EXPECT_THAT(result, SucceedsQuietly());
  return result.out;
}

TEST_F(ToolTest, DrawsBarsInColourUnlessToldOtherwise) {
  const std::tuple<const char*, const char*, const char*, const char*> cases[] = {
      {"xterm", "C.UTF-8", "", ".*\033\\[36m(█)+[^ ]* +\033\\[0m\033\\[K.*"},
      {"xterm", "C", "", ".*\033\\[36m#+ +\033\\[0m\033\\[K.*"},
      {"xterm", "C", "1", ".*[%0-9] +#+ +\033\\[K.*"},
      {"dumb", "C", "", "[^\033]*"}};
  for (const auto& [kind, locale, no_color, shown] : cases) {
    SetVariable("TERM", kind);
    SetVariable("LC_ALL", locale);
    SetVariable("NO_COLOR", no_color);
    for (const char* const arguments : {"stream --count 2", "flicker --seconds 0.3"}) {
      EXPECT_THAT(ShownOnTerminal(arguments), testing::MatchesRegex(shown)) << arguments;
    }
  }
}

TEST_F(ToolTest, DrawsNoMoreThanThereIsRoomFor) {
  SetVariable("TERM", "xterm");
  const std::pair<const char*, uint16_t> cases[] = {
      {"stream --count 2", 6}, {"stream --count 2", 10}, {"flicker --seconds 0.6", 6}};
  for (const auto& [arguments, rows] : cases) {
    std::string shown = ShownOnTerminal(arguments, rows);
    EXPECT_THAT(shown, HasSubstr("more lines need a taller window"));
    for (size_t end = 0; (end = shown.find("\033[J")) != shown.npos; shown.erase(0, end + 3)) {
      EXPECT_LT(Lines(shown.substr(0, end)), rows) << arguments;
    }
  }
}

TEST(SettingsTest, AreReadExactlyOrRefused) {
  const std::pair<const char*, Values> cases[] = {{"torch=on", {true}},
                                                  {"torch=off", {false}},
                                                  {"flicker-pedestal=0", {0U}},
                                                  {"flicker-pedestal=255", {255U}},
                                                  {"flicker-pedestal=0xfF", {255U}},
                                                  {"flicker-pedestal=010", {10U}},
                                                  {"exposure-time=4294967295", {4294967295U}},
                                                  {"gain=0,2.5", {0U, 2.5F}}};
  for (const auto& [text, values] : cases) {
    EXPECT_EQ(ParseAssignments({text})[0].values, values) << text;
  }
  for (const char* const wrong :
       {"torch=ON", "torch=", "flicker-pedestal=256", "flicker-pedestal=-1", "flicker-pedestal=+1",
        "flicker-pedestal= 1", "flicker-pedestal=1.0", "flicker-pedestal=0x",
        "exposure-time=4294967296", "exposure-time=99999999999999999999999", "gain=0,nan",
        "gain=0,inf", "gain=0", "gain=0,1,2", "gain=0,1,", "gain", "=1", "", "device-uid=1"}) {
    EXPECT_THROW(ParseAssignments({wrong}), Failure) << wrong;
  }
}

TEST(SettingsTest, CoverAllOperations) {
  const auto operations = static_cast<size_t>(std::ranges::count_if(
      test::kOperations, [](const test::Operation& operation) { return operation.IsSetting(); }));
  EXPECT_EQ(SettingsTo(&Setting::read).size() + SettingsTo(&Setting::write).size(), operations);
}

}  // namespace
}  // namespace hyl::v2::tool
