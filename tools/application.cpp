#include "application.h"

#include <fcntl.h>
#include <unistd.h>

#include <exception>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include <android-base/logging.h>
#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

#include "command.h"
#include "completion.h"
#include "context.h"
#include "failure.h"
#include "options.h"
#include "simulation.h"

namespace hyl::v2::tool {
namespace {

/// Keeps a file that is opened later from taking the place of a closed standard stream. Writing to
/// the stand-in fails as writing to a closed stream does.
void FillStandardStreams() {
  for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
    if (fcntl(fd, F_GETFD) < 0) {
      open("/dev/null", O_RDONLY);
    }
  }
}

/// The command line.
struct Arguments {
  CLI::App app{"Shows and sets the optical sensors of this device.", "hyl-spectral"};
  bool verbose = false;
  Format format = Format::kText;
  std::vector<Command> commands;

  Arguments() {
    app.set_version_flag("--version", "hyl-spectral " HYL_TOOL_VERSION);
    app.add_flag("-v,--verbose", verbose, "show the library's log on standard error");
    AddFormatOption(app, format);
    AddSceneOptions(app);
    app.require_subcommand(1);
    app.fallthrough();
    commands = {AddListCommand(app), AddStreamCommand(app), AddFlickerCommand(app),
                AddGetCommand(app), AddSetCommand(app)};
    app.footer("Example: hyl-spectral list\n\n" + ExitCodesHelp());
  }
};

/// What --help and --version print.
void PrintAnswer(const Arguments& arguments, const CLI::Success& request, Output& out) {
  std::ostringstream text;
  arguments.app.exit(request, text, text);
  out.Add(text.str());
  out.Flush();
}

Failure UsageFailure(const Arguments& arguments, const CLI::ParseError& error) {
  std::string command = "hyl-spectral";
  for (const CLI::App* const chosen : arguments.app.get_subcommands()) {
    command += " " + chosen->get_name();
  }
  const std::vector<std::string> unknown = arguments.app.remaining();
  const std::string fault = command == "hyl-spectral" && !unknown.empty()
                                ? "there is no command '" + unknown.front() + "'"
                                : error.what();
  return Failure(ExitCode::kUsage, fault + "; '" + command + " --help' shows how it is used");
}

void SetLogLevel(bool verbose) {
  using android::base::LogSeverity;
  // Unless asked for, the log is silent: an error is one line, and that line is the tool's.
  android::base::SetMinimumLogSeverity(verbose ? LogSeverity::INFO
                                               : LogSeverity::FATAL_WITHOUT_ABORT);
}

void RunCommand(const Arguments& arguments, const Context& context) {
  for (const Command& command : arguments.commands) {
    if (command.app->parsed()) {
      command.run(context);
    }
  }
}

/// Whether the command line is that of the shell's completion: --complete, and the words so far.
bool IsCompletion(int argc, char** argv) {
  return argc > 2 && std::string_view(argv[1]) == "--complete";
}

void PrintCompletions(Arguments& arguments, const std::vector<std::string>& words, Output& out) {
  SetLogLevel(false);
  for (const std::string& word : Completions(arguments.app, words)) {
    out.Add(word + "\n");
  }
  out.Flush();
}

void RunArguments(int argc, char** argv) {
  FillStandardStreams();
  const Interrupt interrupt;
  Output out(STDOUT_FILENO, interrupt);
  Arguments arguments;
  if (IsCompletion(argc, argv)) {
    PrintCompletions(arguments, {argv + 2, argv + argc}, out);
    return;
  }
  try {
    arguments.app.parse(argc, argv);
  } catch (const CLI::Success& request) {
    PrintAnswer(arguments, request, out);
    return;
  } catch (const CLI::ParseError& error) {
    throw UsageFailure(arguments, error);
  }
  SetLogLevel(arguments.verbose);
  RunCommand(arguments, {out, interrupt, arguments.format, arguments.verbose});
}

int Report(const std::string& line, ExitCode code) {
  PrintNotice(line);
  return static_cast<int>(code);
}

}  // namespace

int RunTool(int argc, char** argv) noexcept {
  try {
    RunArguments(argc, argv);
    return static_cast<int>(ExitCode::kOk);
  } catch (const QuietEnd&) {
    return static_cast<int>(ExitCode::kOk);
  } catch (const Failure& failure) {
    return Report(failure.what(), failure.code());
  } catch (const std::exception& error) {
    return Report(std::string(error.what()) + "; free some memory, then try again",
                  ExitCode::kInternal);
  }
}

}  // namespace hyl::v2::tool
