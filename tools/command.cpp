// SPDX-License-Identifier: Apache-2.0
#include "command.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <exception>
#include <sstream>
#include <string_view>

#include <android-base/logging.h>
#include <fmt/format.h>
#include <hyl/hyl_spectral_api.h>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

#include "errors.h"

namespace hyl::v2::tool {
namespace {

/// Keeps a file that is opened later from taking the place of a closed standard stream. Writing to
/// the stand-in fails as writing to a closed stream does.
void FillStandardStreams() {
  int fd = STDIN_FILENO;
  while (fd >= 0 && fd <= STDERR_FILENO) {
    fd = open("/dev/null", O_RDONLY);  // the lowest that is free
  }
  close(fd);
}

/// Unless asked for, the log is silent: an error is one line, and that line is the tool's.
void SetLogLevel(bool verbose) {
  android::base::SetMinimumLogSeverity(verbose ? android::base::INFO
                                               : android::base::FATAL_WITHOUT_ABORT);
}

/// Makes `app` the whole command line, whose commands work with `context`.
void AddCommandLine(CLI::App& app, Context& context) {
  app.set_version_flag("--version", "hyl-spectral " HYL_TOOL_VERSION);
  app.add_flag("-v,--verbose", context.verbose, "show the library's log on standard error");
  TakeOneOf(app.add_option("--format", context.format,
                           "how to print; text unless given; csv for samples alone"),
            "text|json|csv");
  AddSceneOptions(app);
  AddReplayOptions(app, context);
  app.require_subcommand(1);
  app.fallthrough();
  app.parse_complete_callback([&] {
    SetLogLevel(context.verbose);
    if (context.format == "csv" && !app.got_subcommand("stream") &&
        !app.got_subcommand("flicker")) {
      throw Failure(ExitCode::kUsage, "csv is for stream and flicker; choose text or json");
    }
    if (!context.clock->header().empty() &&
        (app.got_subcommand("get") || app.got_subcommand("set"))) {
      throw Failure(ExitCode::kUsage, "a recording has no settings but those in its first line");
    }
  });
  AddListCommand(app, context);
  AddStreamCommand(app, context);
  AddFlickerCommand(app, context);
  AddRecordCommand(app, context);
  AddGetCommand(app, context);
  AddSetCommand(app, context);
  for (CLI::App* const command : app.get_subcommands({})) {
    command->footer(command->get_footer() + "\nOptions of all commands: hyl-spectral --help");
  }
  // What may keep Ctrl-C waiting: the library's look for sensors, or for a reply.
  const std::chrono::seconds most =
      std::chrono::ceil<std::chrono::seconds>(std::max(kDiscoveryTimeLimit, kReplyTimeLimit));
  app.footer(
      fmt::format("Ctrl-C ends a run; where the sensor framework does not answer, that takes up to "
                  "{} s.\nNO_COLOR in the environment turns colours off, TERM=dumb all drawing.\n"
                  "\nExample: hyl-spectral list\n\n{}",
                  most.count(), ExitCodesHelp()));
}

/// What --help and --version print.
void PrintAnswer(const CLI::App& app, const CLI::Success& request, Output& out) {
  std::ostringstream text;
  app.exit(request, text, text);
  out.Add(text.str());
  out.Flush();
}

Failure UsageFailure(const CLI::App& app, const CLI::ParseError& error) {
  std::string command = "hyl-spectral";
  for (const CLI::App* const chosen : app.get_subcommands()) {
    command += " " + chosen->get_name();
  }
  const std::vector<std::string> unknown = app.remaining();
  const std::string fault = app.get_subcommands().empty() && !unknown.empty()
                                ? fmt::format("there is no command '{}'", unknown.front())
                                : error.what();
  return Failure(ExitCode::kUsage,
                 fmt::format("{}; '{} --help' shows how it is used", fault, command));
}

void RunCommandLine(int argc, char** argv) {
  FillStandardStreams();
  Output out(STDOUT_FILENO);
  Context context = {out};
  CLI::App app{"Shows and sets the optical sensors of this device.", "hyl-spectral"};
  AddCommandLine(app, context);
  if (argc > 2 && std::string_view(argv[1]) == "--complete") {
    SetLogLevel(false);
    for (const std::string& word : Completions(app, {argv + 2, argv + argc})) {
      out.Add(word + "\n");
    }
    out.Flush();
    return;
  }
  try {
    app.parse(argc, argv);
  } catch (const CLI::Success& request) {
    PrintAnswer(app, request, out);
  } catch (const CLI::ParseError& error) {
    throw UsageFailure(app, error);
  }
}

}  // namespace

int RunTool(int argc, char** argv) noexcept {
  ExitCode code = ExitCode::kOk;
  try {
    RunCommandLine(argc, argv);
  } catch (const QuietEnd&) {
    // The reader has gone, or the user has had enough.
  } catch (const Failure& failure) {
    PrintNotice(failure.what());
    code = failure.code;
  } catch (const std::exception& error) {
    PrintNotice(fmt::format("{}; free some memory, then try again", error.what()));
    code = ExitCode::kInternal;
  }
  return static_cast<int>(code);
}

CLI::Option* TakeNumber(CLI::Option* option, const char* name, double least, double most) {
  const auto check = [=](const std::string& text) {
    double value = 0;
    // Written so that "nan" fails.
    const bool fits = CLI::detail::lexical_cast(text, value) && value >= least && value <= most;
    return fits ? ""
                : fmt::format("'{}' is not a number from {:.10g} to {:.10g}", text, least, most);
  };
  return option->type_name(name)->check(check);
}

CLI::Option* TakeOneOf(CLI::Option* option, const std::string& words) {
  return option->type_name(words)->check(
      CLI::IsMember(CLI::detail::split(words, '|')).description(""));
}

}  // namespace hyl::v2::tool
