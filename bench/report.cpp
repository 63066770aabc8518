#include "report.h"

#include <fstream>
#include <iomanip>
#include <sstream>
#include <string>

#include "run.h"

namespace hyl::v2::bench {
namespace {

std::string Fixed(double value, int digits) {
  std::ostringstream text;
  text << std::fixed << std::setprecision(digits) << value;
  return text.str();
}

std::string Significant(double value) {
  return Fixed(value, value < 10 ? 3 : value < 1000 ? 1 : 0);
}

/// Whether a ratio reads best as a share: "at least 40 % of memcpy".
bool IsShare(const ContenderResult& result) {
  return result.measure == Measure::kTimesFaster && result.HasTarget() && result.target < 1;
}

std::string RatioText(const ContenderResult& result, double ratio) {
  return IsShare(result) ? Fixed(100 * ratio, 0) + " %" : Fixed(ratio, 2) + " x";
}

std::string TargetText(const ContenderResult& result) {
  if (!result.HasTarget()) {
    return "";
  }
  return (result.measure == Measure::kTimesFaster ? ">= " : "<= ") +
         RatioText(result, result.target);
}

std::string Verdict(const ContenderResult& result) {
  return result.HasTarget() ? (result.MetTarget() ? "met" : "MISSED") : "";
}

void PrintRow(std::ostream& out, const std::string& work, const std::string& against,
              const std::string& time, const std::string& ratio, const std::string& target,
              const std::string& verdict) {
  out << std::left << std::setw(46) << work << std::setw(30) << against << std::right
      << std::setw(16) << time << std::setw(11) << ratio << std::setw(11) << target << "  "
      << verdict << '\n';
}

std::string Quoted(const std::string& text) {
  return '"' + text + '"';  // names hold nothing that needs escaping
}

void PrintContenderJson(std::ostream& out, const ContenderResult& result, bool is_ours) {
  out << "    {\"name\": " << Quoted(result.name)
      << ", \"ns\": " << Significant(result.ns_per_unit);
  if (!is_ours) {
    out << ", \"ratio\": " << Fixed(result.ratio, 4) << ", \"measure\": "
        << Quoted(result.measure == Measure::kTimesFaster ? "its time / ours" : "ours / its time");
  }
  if (result.HasTarget()) {
    out << ", \"target\": " << result.target
        << ", \"met\": " << (result.MetTarget() ? "true" : "false");
  }
  out << '}';
}

}  // namespace

std::string ProcessorModel() {
  std::ifstream info("/proc/cpuinfo");
  for (std::string line; std::getline(info, line);) {
    const size_t colon = line.find(": ");
    if (line.starts_with("model name") && colon != std::string::npos) {
      return line.substr(colon + 2);
    }
  }
  return "unknown processor";
}

void PrintTable(std::ostream& out, const std::vector<ComparisonResult>& results) {
  out << ProcessorModel() << "; medians of " << kRounds << " interleaved rounds\n";
  PrintRow(out, "work", "against", "time", "ratio", "target", "");
  for (const ComparisonResult& result : results) {
    for (const ContenderResult& contender : result.contenders) {
      const bool is_ours = &contender == result.contenders.data();
      PrintRow(out, is_ours ? result.work : "",
               is_ours ? '[' + contender.name + ']' : contender.name,
               Significant(contender.ns_per_unit) + " ns/" + result.unit,
               is_ours ? "" : RatioText(contender, contender.ratio), TargetText(contender),
               Verdict(contender));
    }
  }
}

void PrintJson(std::ostream& out, const std::vector<ComparisonResult>& results) {
  out << "{\"processor\": " << Quoted(ProcessorModel()) << ", \"rounds\": " << kRounds
      << ", \"comparisons\": [";
  for (const ComparisonResult& result : results) {
    out << (&result == results.data() ? "\n" : ",\n") << "  {\"work\": " << Quoted(result.work)
        << ", \"unit\": " << Quoted(result.unit) << ", \"contenders\": [";
    for (const ContenderResult& contender : result.contenders) {
      const bool is_ours = &contender == result.contenders.data();
      out << (is_ours ? "\n" : ",\n");
      PrintContenderJson(out, contender, is_ours);
    }
    out << "]}";
  }
  out << "\n]}\n";
}

}  // namespace hyl::v2::bench
