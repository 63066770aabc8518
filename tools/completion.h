#pragma once

#include <string>
#include <vector>

#include <CLI/App.hpp>

namespace hyl::v2::tool {

/// What the last of `words`, those of a command line behind the program's name, can be completed
/// to. Asks the framework for the names of sensors.
std::vector<std::string> Completions(CLI::App& app, const std::vector<std::string>& words);

}  // namespace hyl::v2::tool
