// The whole tool in the test's process, on the simulated sensors or a scripted framework.
#include <fcntl.h>
#include <pty.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <hyl/host/messages.h>
#include <hyl/host/scripted_framework.h>
#include <hyl/host/sensors.h>
#include <hyl/host/simulated_hub.h>

#include "command.h"
#include "terminal.h"
#include "text.h"

namespace hyl::v2::tool {
namespace {

using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

size_t Lines(const std::string& text) {
  return static_cast<size_t>(std::count(text.begin(), text.end(), '\n'));
}

std::string ReadAll(int fd) {
  lseek(fd, 0, SEEK_SET);  // of a file
  std::string text;
  char buffer[4096];
  // A terminal's reading end reports an error, not an end, when the other end has been closed.
  for (ssize_t count = 0; (count = read(fd, buffer, sizeof buffer)) > 0;) {
    text.append(buffer, static_cast<size_t>(count));
  }
  return text;
}

/// How a run of the tool ended, and what it wrote.
struct RunResult {
  int code;
  std::string out;
  std::string err;
};

/// Ends with that code and one line on standard error, which says so.
MATCHER_P2(EndsWithLine, code, says, "") {
  const auto is_control = [](unsigned char byte) { return byte < 0x20 || byte == 0x7F; };
  const bool one_line =
      arg.err.ends_with('\n') && std::count_if(arg.err.begin(), arg.err.end(), is_control) == 1;
  *result_listener << arg.code << ": " << arg.err;
  return arg.code == code && one_line && arg.err.find(says) != std::string::npos;
}

MATCHER(SucceedsQuietly, "") {
  *result_listener << arg.code << ": " << arg.err;
  return arg.code == 0 && arg.err.empty();
}

/// Runs the tool in this process, with `out` for standard output, or without any. `arguments` is
/// the command line without the program's name, its words parted by single blanks.
RunResult RunInto(int out, const std::string& arguments) {
  std::vector<std::string> words = CLI::detail::split("hyl-spectral " + arguments, ' ');
  std::vector<char*> argv;
  for (std::string& word : words) {
    argv.push_back(word.data());
  }
  const FileDescriptor usual_out(dup(STDOUT_FILENO));
  const FileDescriptor usual_err(dup(STDERR_FILENO));
  const FileDescriptor err(memfd_create("err", MFD_CLOEXEC));
  if (out < 0) {
    close(STDOUT_FILENO);
  }
  dup2(out, STDOUT_FILENO);
  dup2(err.get(), STDERR_FILENO);
  RunResult result = {RunTool(static_cast<int>(argv.size()), argv.data()), "", ""};
  dup2(usual_out.get(), STDOUT_FILENO);
  dup2(usual_err.get(), STDERR_FILENO);
  // Takes what interrupted the run, lest it interrupt the next one too.
  sigset_t all;
  sigfillset(&all);
  const timespec at_once = {};
  while (sigtimedwait(&all, nullptr, &at_once) > 0) {
  }
  result.err = ReadAll(err.get());
  return result;
}

RunResult RunCaptured(const std::string& arguments) {
  const FileDescriptor out(memfd_create("out", MFD_CLOEXEC));
  RunResult result = RunInto(out.get(), arguments);
  result.out = ReadAll(out.get());
  return result;
}

/// The ends of a pipe or, where it has rows, of a terminal.
struct Channel {
  explicit Channel(uint16_t rows = 0) {
    int ends[2] = {-1, -1};
    const winsize size = {rows, 80, 0, 0};
    const int result =
        rows > 0 ? openpty(&ends[0], &ends[1], nullptr, nullptr, &size) : pipe2(ends, O_CLOEXEC);
    EXPECT_EQ(result, 0);
    reader = FileDescriptor(ends[0]);
    writer = FileDescriptor(ends[1]);
  }
  FileDescriptor reader;
  FileDescriptor writer;
};

/// Runs the tool while another thread reads what it writes to a pipe, or to a terminal of so many
/// rows, and calls `on_first` when the first bytes have come.
RunResult RunWatched(uint16_t rows, const std::string& arguments,
                     const std::function<void()>& on_first) {
  Channel channel(rows);
  std::string shown;
  std::thread reader([&] {
    char first = 0;
    if (read(channel.reader.get(), &first, 1) == 1) {
      on_first();
      shown = first + ReadAll(channel.reader.get());
    }
  });
  RunResult result = RunInto(channel.writer.get(), arguments);
  channel.writer.Close();
  reader.join();
  result.out = shown;
  return result;
}

/// Sets an environment variable. No other thread reads them at that time.
void SetVariable(const char* name, const char* value) {
  setenv(name, value, 1);  // NOLINT(concurrency-mt-unsafe)
}

/// Every test begins on the simulated sensors as they are at first, and ends with none running.
class ToolTest : public testing::Test {
 protected:
  ToolTest() {
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
      static_cast<void>(std::signal(signal, SIG_DFL));  // whoever started the tests may ignore it
    }
    host::SimulatedHub::Instance().Reset();
    framework_->UseSimulatedHub();
  }
  void TearDown() override { EXPECT_THAT(framework_->Running(), IsEmpty()); }

  /// Puts a framework in the hub's place that gives this answer to all requests, and sends no data.
  void UseSilentFramework(HylErr answer) {
    framework_.emplace();
    framework_->SetSensorList({host::MakeEntry(host::kRearOnChange, "rear"),
                               host::MakeEntry(host::kRearContinuous, "rear"),
                               host::MakeEntry(host::kFlicker, "flicker"),
                               host::MakeEntry(host::kListMarker, "")});
    framework_->RefuseInvoke(host::ScriptedFramework::kEvery, answer);
  }

  std::optional<host::ScriptedFramework> framework_{std::in_place};
};

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
      {HylErr::kFailed, 5, "(kFailed): the framework"},
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
  const std::string cut_off = "{\"line\":\"spec";
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
  std::string text = JsonLine(Json{{"line", "header"},
                                   {"format", 1},
                                   {"sensors", {{{"name", "rear"}, {"type", "ambient-light"}}}}});
  for (const int64_t day : {1, 2, 3}) {
    text += JsonLine(Json{{"line", "spectral"},
                          {"time_ns", day * 86'400'000'000'000},
                          {"sensor", "rear"},
                          {"kind", 0},
                          {"timestamp_ns", 0},
                          {"values", {1.5}}});
  }
  Write(text);
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
