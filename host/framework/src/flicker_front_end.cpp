#include "flicker_front_end.h"

#include <algorithm>
#include <cmath>

namespace hyl::v2::host {
namespace {

constexpr double kFullScaleLux = 2000;
constexpr double kMinAutoGain = 1.0 / 1024;
constexpr double kMaxAutoGain = 1024;
constexpr double kTooBright = 0.9;  // of full scale
constexpr double kTooDim = 0.3;

double SoundGain(float gain) {
  return std::isfinite(gain) && gain > 0 ? double{gain} : 1.0;
}

}  // namespace

FlickerAdc::FlickerAdc(int bits) : full_scale_(std::exp2(bits - 1)) {}

void FlickerAdc::BeginChunk(const FlickerFrontEnd& settings) {
  if (settings.auto_gain && automatic_) {
    FollowLight();
  } else {
    gain_ = SoundGain(settings.gain);
  }
  automatic_ = settings.auto_gain;
  pedestal_ = settings.pedestal / 256.0;
  peak_ = -1;
  saturated_ = 0;
}

void FlickerAdc::FollowLight() {
  if (peak_ > kTooBright && gain_ > kMinAutoGain) gain_ /= 2;
  if (peak_ < kTooDim && gain_ < kMaxAutoGain) gain_ *= 2;
}

int32_t FlickerAdc::Convert(double lux) {
  const double level = lux / kFullScaleLux * gain_ - pedestal_;
  const double value = std::floor(level * full_scale_);
  const double limited = std::clamp(value, -full_scale_, full_scale_ - 1);
  if (value != limited) ++saturated_;
  peak_ = std::max(peak_, level);
  return static_cast<int32_t>(limited);
}

}  // namespace hyl::v2::host
