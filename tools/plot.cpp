// SPDX-License-Identifier: Apache-2.0
#include "plot.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <map>
#include <system_error>

#include <fmt/format.h>

#include "errors.h"
#include "terminal.h"
#include "text.h"

namespace hyl::v2::tool {
namespace {

constexpr double kWaveSeconds = 0.05;
constexpr double kPlacesPerDecade = 300;

Failure DrawFailure(const std::string& reason) {
  return Failure(ExitCode::kOutput, "cannot draw the picture: " + reason);
}

Failure PlaceFailure(const std::string& path, int error) {
  return DrawFailure(fmt::format("'{}': {}; choose another name or place", path,
                                 std::generic_category().message(error)));
}

/// A file beside the picture's place, for as long as the picture is not complete.
struct Draft {
  /// Throws Failure where the picture cannot be at `picture` later.
  explicit Draft(const std::string& picture)
      : path(fmt::format("{}.hyl-spectral.{}", picture.substr(0, picture.rfind('/') + 1),
                         getpid())) {
    struct stat status = {};
    const int found = stat(picture.c_str(), &status);
    if (found == 0 && S_ISDIR(status.st_mode)) {
      throw PlaceFailure(picture, EISDIR);
    }
    // Its name may be too long.
    const bool possible = found == 0 || errno == ENOENT;
    // gnuplot inherits it.
    file = FileDescriptor(possible ? open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL, 0666) : -1);
    if (file.get() < 0) {
      throw PlaceFailure(picture, errno);
    }
  }
  /// Where it has become the picture, there is nothing to remove.
  ~Draft() { unlink(path.c_str()); }

  const std::string path;
  FileDescriptor file;
};

/// The newest samples: milliseconds and percent of full scale.
std::string WaveData(const FlickerReport& report) {
  const auto wave = report.Newest(kWaveSeconds);
  std::string data = "$wave << EOD\n";
  for (size_t i = 0; i < wave.size(); ++i) {
    data += fmt::format("{:.4f} {:.6g}\n", 1e3 * static_cast<double>(i) / report.sample_rate_hz,
                        report.Percent(wave[i]));
  }
  return data + "EOD\n";
}

/// Hertz and percent of full scale. Where entries are closer than the picture shows, the highest of
/// them stays.
std::string SpectrumData(const FlickerReport& report, const FlickerSpectrum& spectrum) {
  std::map<double, SpectrumPeak> highest;  // by their place on the picture
  for (size_t i = 1; i < spectrum.amplitudes.size(); ++i) {
    const double hz = static_cast<double>(i) * spectrum.bin_hz;
    SpectrumPeak& entry = highest[std::floor(kPlacesPerDecade * std::log10(hz))];
    if (spectrum.amplitudes[i] >= entry.amplitude) {
      entry = {hz, spectrum.amplitudes[i]};
    }
  }
  std::string data = "$spectrum << EOD\n";
  for (const auto& [place, entry] : highest) {
    data += fmt::format("{:.6g} {:.6g}\n", entry.hz, report.Percent(entry.amplitude));
  }
  return data + "EOD\n";
}

std::string PeakMark(const FlickerReport& report, const FlickerSpectrum& spectrum) {
  const auto peak = DominantPeak(spectrum);
  if (!peak) {
    return {};
  }
  const double height = report.Percent(peak->amplitude);
  return fmt::format(
      "set label 1 '{0:.2f} Hz' at {0:.6g},{1:.6g} point pt 6 ps 1.5 offset 1,0.5\n"
      "set yrange [*:{2:.6g}]\n",
      peak->hz, height, 3 * height);
}

/// `text` as a string of gnuplot's, which cannot be read as anything else.
std::string GnuplotString(const std::string& text) {
  // Within double quotes, where only what is escaped has no meaning. After a 0 come three digits.
  std::string quoted = "\"";
  for (const char character : Printable(text)) {
    const auto byte = static_cast<unsigned char>(character);
    quoted += std::isalnum(byte) != 0 ? std::string(1, character) : fmt::format("\\{:04o}", byte);
  }
  return quoted + "\"";
}

std::string Script(const FlickerReport& report, const std::string& sensor, bool svg) {
  const FlickerSpectrum spectrum = SpectrumOf(report.samples, report.sample_rate_hz);
  const std::string title = fmt::format(
      "{}: modulation {}, flicker index {}, level {:.1f} % of full scale", sensor,
      FixedText(report.levels.modulation_percent, 1, " %"),
      FixedText(report.levels.flicker_index, 3, ""), report.Percent(report.levels.mean));
  return WaveData(report) + SpectrumData(report, spectrum) + "set terminal " +
         (svg ? "svg size 1000,750 dynamic background 'white'" : "pngcairo size 1000,750") +
         " noenhanced\nset multiplot layout 2,1 title " + GnuplotString(title) + ".\"\\n\"." +
         GnuplotString(MeasuresText(report) + "; " + ExposureAdvice(report)) +
         "\nset grid\nunset key\nset lmargin 12\n"
         "set xlabel 'time / ms'\nset ylabel 'level / % of full scale'\n"
         "set yrange [*<0:*]\nplot $wave with lines lc rgb '#1f5fa8'\n"
         "set xlabel 'frequency / Hz'\nset ylabel 'amplitude / % of full scale'\n"
         "set logscale xy\nset format y '%g'\nset autoscale y\n" +
         fmt::format("set xrange [*:{}]\n", report.sample_rate_hz / 2) +
         PeakMark(report, spectrum) +
         "plot $spectrum with lines lc rgb '#a83a1f'\nunset multiplot\n";
}

/// Has gnuplot carry the script out; what it draws goes to `output`, so that it is told no path. It
/// inherits the blocked signals: Ctrl-C does not tear a picture that is being drawn.
void RunGnuplot(const std::string& script, int output) {
  const std::string command = fmt::format("gnuplot >/dev/fd/{} 2>/dev/null", output);
  FILE* const gnuplot = popen(command.c_str(), "w");  // NOLINT(cert-env33-c): nothing of the user's
  if (gnuplot == nullptr) {
    throw DrawFailure("gnuplot does not start; close some programs, then try again");
  }
  std::fwrite(script.data(), 1, script.size(), gnuplot);
  // Where it ends early, writing fails and so does it.
  if (pclose(gnuplot) != 0) {
    throw DrawFailure("gnuplot reports an error; check that it works, then try again");
  }
}

bool IsWhole(const std::string& path, bool svg) {
  std::ifstream file(path, std::ios::binary);
  std::string content{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  content.erase(content.find_last_not_of('\n') + 1);
  return content.ends_with(svg ? "</svg>" : "IEND\xAE\x42\x60\x82");
}

}  // namespace

void RequirePlot(const std::string& path) {
  // NOLINTNEXTLINE(cert-env33-c,concurrency-mt-unsafe): nothing of the user's, and no other thread
  if (std::system("command -v gnuplot >/dev/null") != 0) {
    throw DrawFailure("there is no gnuplot; install it, or leave --plot out");
  }
  const Draft draft(path);
}

void DrawPlot(const std::string& path, const FlickerReport& report, const std::string& sensor) {
  const Draft draft(path);
  const bool svg = path.ends_with(".svg");
  RunGnuplot(Script(report, sensor, svg), draft.file.get());
  if (!IsWhole(draft.path, svg)) {
    throw DrawFailure(
        fmt::format("gnuplot left it incomplete; make room for '{}', then try again", path));
  }
  if (std::rename(draft.path.c_str(), path.c_str()) != 0) {
    throw PlaceFailure(path, errno);
  }
}

std::string PictureFault(const std::string& path) {
  if (Printable(path) != path) {
    return "'" + path + "' has control characters";
  }
  const bool picture = path.size() > 4 && (path.ends_with(".svg") || path.ends_with(".png"));
  return picture ? "" : "'" + path + "' does not end in .svg or .png";
}

}  // namespace hyl::v2::tool
