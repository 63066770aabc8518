#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace hyl::v2::bench {

/// What the library's time is set in relation to another's, and which way round.
enum class Measure {
  kTimesFaster,  ///< the other's time over ours: higher is better
  kTimesCost,    ///< ours over the other's: lower is better
};

/// One of the ways to do a piece of work.
struct Contender {
  std::string name;
  std::function<void()> pass;  ///< does the work once
  double units = 0;            ///< samples, messages, ... of one pass
  Measure measure = Measure::kTimesFaster;
  double target = 0;  ///< for the library's time in relation to this one's; 0: none
};

enum class Clock {
  kThreadCpu,   ///< of the calling thread: what other programs take does not count
  kProcessCpu,  ///< of all threads
  kWall,        ///< for work that waits for other threads
};

/// A piece of work, and the ways to do it that are compared. The first is the library's; where all
/// are the library's, the first is the one that the others are the reference for.
struct Comparison {
  std::string work;
  std::string unit;
  std::vector<Contender> contenders;
  Clock clock = Clock::kThreadCpu;
};

/// Medians over the rounds.
struct ContenderResult {
  std::string name;
  double ns_per_unit = 0;
  double ratio = 0;  ///< as `measure` says; of the times of one round
  Measure measure = Measure::kTimesFaster;
  double target = 0;

  bool HasTarget() const { return target > 0; }
  bool MetTarget() const {
    return measure == Measure::kTimesFaster ? ratio >= target : ratio <= target;
  }
};

struct ComparisonResult {
  std::string work;
  std::string unit;
  std::vector<ContenderResult> contenders;
};

/// Sets up a comparison when its turn comes.
struct ComparisonMaker {
  std::string name;
  std::function<Comparison()> make;
};

std::vector<ComparisonMaker> Compressed1Comparisons();
std::vector<ComparisonMaker> FixedComparisons();
std::vector<ComparisonMaker> DeliveryComparisons();
std::vector<ComparisonMaker> ThreadComparisons();
std::vector<ComparisonMaker> OperationComparisons();
std::vector<ComparisonMaker> GrowthComparisons();

}  // namespace hyl::v2::bench
