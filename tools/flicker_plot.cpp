#include "flicker_plot.h"

#include <algorithm>
#include <cmath>

#include <android-base/stringprintf.h>

#include "text.h"

namespace hyl::v2::tool {
namespace {

using android::base::StringAppendF;
using android::base::StringPrintf;

constexpr double kWaveSeconds = 0.05;
constexpr double kBucketsPerDecade = 300;

/// The newest samples: milliseconds and percent of full scale.
std::string WaveData(const FlickerReport& report) {
  const auto wanted = static_cast<size_t>(kWaveSeconds * report.sample_rate_hz);
  const auto wave = report.samples.last(std::min(wanted, report.samples.size()));
  std::string data = "$wave << EOD\n";
  for (size_t i = 0; i < wave.size(); ++i) {
    StringAppendF(&data, "%.4f %.6g\n", 1e3 * static_cast<double>(i) / report.sample_rate_hz,
                  100 * wave[i] / report.full_scale);
  }
  return data + "EOD\n";
}

/// Hertz and percent of full scale. Where entries are closer than the picture shows, the highest of
/// them stands for all.
std::string SpectrumData(const FlickerReport& report, const FlickerSpectrum& spectrum) {
  std::string data = "$spectrum << EOD\n";
  SpectrumPeak highest = {0, -1};
  double bucket = 0;
  for (size_t i = 1; i < spectrum.amplitudes.size(); ++i) {
    const double hz = static_cast<double>(i) * spectrum.bin_hz;
    const double next = std::floor(kBucketsPerDecade * std::log10(hz));
    if (next != bucket && highest.amplitude >= 0) {
      StringAppendF(&data, "%.6g %.6g\n", highest.hz, 100 * highest.amplitude / report.full_scale);
      highest.amplitude = -1;
    }
    bucket = next;
    if (spectrum.amplitudes[i] > highest.amplitude) {
      highest = {hz, spectrum.amplitudes[i]};
    }
  }
  return data + "EOD\n";
}

std::string PeakMark(const FlickerReport& report, const FlickerSpectrum& spectrum) {
  const auto peak = DominantPeak(spectrum);
  if (!peak) {
    return {};
  }
  const double height = 100 * peak->amplitude / report.full_scale;
  return StringPrintf(
      "set label 1 '%.2f Hz' at %.6g,%.6g point pt 6 ps 1.5 offset 1,0.5\n"
      "set yrange [*:%.6g]\n",
      peak->hz, peak->hz, height, 3 * height);
}

std::string Title(const FlickerReport& report, const std::string& sensor) {
  return sensor + ": modulation " + FixedText(report.levels.modulation_percent, 1, " %") +
         ", flicker index " + FixedText(report.levels.flicker_index, 3, "") + ", level " +
         FixedText(LevelPercent(report), 1, " % of full scale");
}

std::string Layout(const PictureFile& file, const std::string& title) {
  const char* const terminal =
      file.is_svg() ? "svg size 1000,750 dynamic background 'white'" : "pngcairo size 1000,750";
  return StringPrintf("set terminal %s noenhanced\n", terminal) +
         "set multiplot layout 2,1 title " + GnuplotString(title) + "\n" +
         "set grid\nunset key\nset lmargin 12\n";
}

}  // namespace

void FlickerPlot::Draw(const FlickerReport& report, const std::string& sensor) {
  const FlickerSpectrum spectrum = SpectrumOf(report.samples, report.sample_rate_hz);
  std::string script = WaveData(report) + SpectrumData(report, spectrum);
  script += Layout(file_, Title(report, sensor));
  script +=
      "set xlabel 'time / ms'\nset ylabel 'level / % of full scale'\n"
      "set yrange [*<0:*]\nplot $wave with lines lc rgb '#1f5fa8'\n";
  script +=
      "set xlabel 'frequency / Hz'\nset ylabel 'amplitude / % of full scale'\n"
      "set logscale xy\nset format y '%g'\nset autoscale y\n";
  script += StringPrintf("set xrange [*:%u]\n", report.sample_rate_hz / 2);
  script += PeakMark(report, spectrum) + "plot $spectrum with lines lc rgb '#a83a1f'\n";
  gnuplot_.Run(script + "unset multiplot\n");
  file_.Publish();
}

}  // namespace hyl::v2::tool
