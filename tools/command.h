#pragma once

#include <functional>

#include <CLI/App.hpp>

#include "context.h"

namespace hyl::v2::tool {

/// A subcommand of the tool: `run` is called when the command line names `app`.
struct Command {
  CLI::App* app;
  std::function<void(const Context&)> run;
};

// Each adds its command with its options to `app`.
Command AddListCommand(CLI::App& app);
Command AddStreamCommand(CLI::App& app);
Command AddFlickerCommand(CLI::App& app);
Command AddGetCommand(CLI::App& app);
Command AddSetCommand(CLI::App& app);

}  // namespace hyl::v2::tool
