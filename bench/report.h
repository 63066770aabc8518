#pragma once

#include <ostream>
#include <vector>

#include "comparison.h"

namespace hyl::v2::bench {

/// The processor's model as the system names it.
std::string ProcessorModel();

void PrintTable(std::ostream& out, const std::vector<ComparisonResult>& results);
void PrintJson(std::ostream& out, const std::vector<ComparisonResult>& results);

}  // namespace hyl::v2::bench
