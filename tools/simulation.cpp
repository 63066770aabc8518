#include "simulation.h"

#include <memory>
#include <string>
#include <vector>

#include <android-base/stringprintf.h>
#include <hyl/host/sensors.h>
#include <hyl/host/simulated_hub.h>

#include "context.h"
#include "options.h"

namespace hyl::v2::tool {
namespace {

using host::LightKind;
using host::LightScene;

constexpr Choice kScenes[] = {{"daylight", static_cast<int>(LightKind::kDaylight)},
                              {"warm-led", static_cast<int>(LightKind::kWarmLed)},
                              {"fluorescent", static_cast<int>(LightKind::kFluorescent)},
                              {"dark", static_cast<int>(LightKind::kDark)}};

constexpr Choice kMains[] = {{"50", 50}, {"60", 60}};

/// Adds an option that changes one field of the hub's scene.
template <typename T>
CLI::Option* AddSceneOption(CLI::App& app, const char* name, T LightScene::*field,
                            const char* help) {
  const auto change = [field](const T& value) {
    host::SimulatedHub& hub = host::SimulatedHub::Instance();
    LightScene scene = hub.Scene();
    scene.*field = value;
    hub.SetScene(scene);
  };
  return app.add_option_function<T>(name, change, help)->group("Simulated sensors");
}

}  // namespace

void AddSceneOptions(CLI::App& app) {
  AddSceneOption(app, "--scene", &LightScene::kind,
                 "the light that they see; daylight unless given")
      ->type_name(JoinNames(kScenes, "|"))
      ->transform(OneOf(kScenes));
  AddSceneOption(app, "--lux", &LightScene::illuminance_lux, "its level in lux; 500 unless given")
      ->type_name("LUX")
      ->check(NumberWithin(0, 200000));
  AddSceneOption(app, "--mains", &LightScene::mains_hz, "mains frequency in Hz; 50 unless given")
      ->type_name("50|60")
      ->transform(OneOf(kMains));
}

std::string SimulatedRangesHelp() {
  using android::base::StringPrintf;
  return StringPrintf(
             "The simulated sensors take, and move other values to the nearest of these:\n"
             "  exposure-time    %u to %u us in steps of %u; %u at first\n"
             "  sampling-period  %u to %u us in steps of %u\n",
             host::kMinExposureUs, host::kMaxExposureUs, host::kExposureStepUs,
             host::kDefaultExposureUs, host::kMinSamplingPeriodUs, host::kMaxSamplingPeriodUs,
             host::kSamplingPeriodStepUs) +
         StringPrintf(
             "  gain             A %u ambient light, %u flicker; GAIN a power of two, %g to %g\n"
             "  flicker-channel  A 0 to %u, the channel as stream numbers it; B has no effect\n"
             "  flicker-pedestal in 1/256 of full scale\n",
             host::kGainOfSpectral, host::kGainOfFlicker, host::kMinGain, host::kMaxGain,
             host::kMaxFlickerChannel);
}

void NoteSimulatedLifetime() {
  PrintNotice(
      "the simulated sensors lose this setting now, as the command ends; --set of stream and "
      "flicker sets it for a run");
}

}  // namespace hyl::v2::tool
