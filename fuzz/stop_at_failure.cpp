// SPDX-License-Identifier: Apache-2.0
// A failed expectation, of the fuzzer or of the tests' support code, is a finding.

#include <gtest/gtest.h>

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  GTEST_FLAG_SET(throw_on_failure, true);  // uncaught, it ends the process as the fuzzer expects
  return 0;
}
