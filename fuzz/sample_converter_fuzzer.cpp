// SPDX-License-Identifier: Apache-2.0
// The flicker sample converter on any formats and any chunks, against its model.

#include "sample_converter_twin.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  hyl::v2::test::ConverterTwin(hyl::v2::test::Input({data, size})).Run();
  return 0;
}
