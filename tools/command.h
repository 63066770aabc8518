#pragma once

#include <string>
#include <vector>

#include <CLI/App.hpp>

#include "terminal.h"

namespace hyl::v2::tool {

/// The whole tool; returns its exit code.
int RunTool(int argc, char** argv) noexcept;

/// What a command works with. Complete when the command line has been read.
struct Context {
  Output& out;
  std::string format = "text";  ///< or "json" or "csv"
  bool verbose = false;         ///< the library's log goes to standard error
};

// Each adds its command to `app`. The command runs when the command line that names it has been
// read.
void AddListCommand(CLI::App& app, const Context& context);
void AddStreamCommand(CLI::App& app, const Context& context);
void AddFlickerCommand(CLI::App& app, const Context& context);
void AddGetCommand(CLI::App& app, const Context& context);
void AddSetCommand(CLI::App& app, const Context& context);

/// What the last of `words`, those behind the program's name, can be completed to.
std::vector<std::string> Completions(const CLI::App& app, const std::vector<std::string>& words);

/// Lets the option take a number from `least` to `most`, which its help calls `name`.
CLI::Option* TakeNumber(CLI::Option* option, const char* name, double least, double most);

/// Lets the option take one of the words, which are parted by '|'.
CLI::Option* TakeOneOf(CLI::Option* option, const std::string& words);

/// Adds options that choose the light in front of the simulated sensors; none on a device.
void AddSceneOptions(CLI::App& app);

/// The units and ranges that the simulated sensors give to the settings; empty on a device.
std::string SimulatedRangesHelp();

/// Tells the user that the simulated sensors' settings end with the process.
void NoteSimulatedLifetime();

}  // namespace hyl::v2::tool
