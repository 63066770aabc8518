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

/// Tells the user that the simulated sensors' settings end with the process.
void NoteSimulatedLifetime();

#else

inline void AddSceneOptions(CLI::App&) {}
inline std::string SimulatedRangesHelp() {
  return {};
}
inline void NoteSimulatedLifetime() {}

#endif

}  // namespace hyl::v2::tool
