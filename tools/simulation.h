#pragma once

#include <string>

#include <CLI/App.hpp>

namespace hyl::v2::tool {

// What the tool knows of the simulated sensors that stand in for a device's.
#ifdef HYL_HOST_FRAMEWORK

/// Adds the options that choose the light in front of the simulated sensors. They take effect while
/// the command line is read.
void AddSceneOptions(CLI::App& app);

/// The units and ranges that the simulated sensors give to the settings.
std::string SimulatedRangesHelp();

#else

inline void AddSceneOptions(CLI::App&) {}
inline std::string SimulatedRangesHelp() {
  return {};
}

#endif

}  // namespace hyl::v2::tool
