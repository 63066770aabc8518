// SPDX-License-Identifier: Apache-2.0
// An instance on any sequence of calls, messages and faults, against the model.

#include <algorithm>

#include "instance_twin.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  constexpr size_t kMaxInput = 4000;  // bytes; a longer sequence shows little more
  constexpr size_t kPatience = 51;    // one more than there are attempts
  const hyl::v2::test::Input input({data, std::min(size, kMaxInput)});
  hyl::v2::test::InstanceTwin(input, kPatience).Run();
  return 0;
}
