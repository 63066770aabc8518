// SPDX-License-Identifier: Apache-2.0
// An instance on random sequences of calls, messages and faults, against the model.

#include <set>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "instance_twin.h"

namespace hyl::v2::test {
namespace {

TEST(InstanceModelTest, TheLibraryDoesAsTheModel) {
  constexpr uint64_t kRuns = 1000;
  constexpr size_t kInputSize = 4000;
  constexpr size_t kPatience = 2;  // a failing attempt takes a tenth of a second
  std::set<HylErr> results;
  for (uint64_t seed = 0; seed < kRuns && !HasFailure(); ++seed) {
    SCOPED_TRACE(seed);
    const std::vector<uint8_t> input = RandomBytes(seed, kInputSize);
    InstanceTwin twin(Input(input), kPatience);
    twin.Run();
    results.insert(twin.results().begin(), twin.results().end());
  }
  EXPECT_THAT(results, ::testing::IsSupersetOf({HylErr::kOk, HylErr::kFailed, HylErr::kNotFound,
                                                HylErr::kInvalidArgument, HylErr::kNoSession,
                                                HylErr::kAlreadyRunning}))
      << "the sequences are too poor to show anything";
}

}  // namespace
}  // namespace hyl::v2::test
