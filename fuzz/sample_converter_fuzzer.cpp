// SPDX-License-Identifier: Apache-2.0
// The flicker sample converter against the model of it, on any configuration and any chunks.
//
// An input is a sequence of calls: one byte that names the call, then its arguments.
//   0  new output: bits, capacity (255: a null buffer)
//   1  format message: kind, byte order, msb, lsb
//   2  sequence number of an offset: 4 bytes
//   3  sequence number of an offset from the end of the data so far: 1 byte, signed
//   4  counters back to 0
//   5  and above: chunk: restart, length, that many bytes
// Arguments that the input no longer holds are 0.

#include <cstddef>
#include <cstdint>
#include <optional>

#include "input.h"
#include "sample_converter_twin.h"

namespace {

using hyl::v2::test::ConverterTwin;
using hyl::v2::test::Input;

void SetOutput(Input& input, ConverterTwin& twin) {
  constexpr uint8_t kNullBuffer = 255;
  const uint8_t bits = input.Byte();
  const uint8_t capacity = input.Byte();
  twin.SetOutput(capacity == kNullBuffer ? std::nullopt : std::optional<size_t>(capacity), bits);
}

void Configure(Input& input, ConverterTwin& twin) {
  const int kind = input.SignedByte();
  const bool little_endian = input.Byte() % 2 != 0;
  const uint8_t msb = input.Byte();
  twin.Configure(kind, little_endian, msb, input.Byte());
}

void Convert(Input& input, ConverterTwin& twin) {
  const uint8_t restart = input.Byte();
  const size_t length = input.Byte();
  twin.Convert(input.Bytes(length), restart);
}

void Call(Input& input, ConverterTwin& twin) {
  switch (input.Byte()) {
    case 0:
      return SetOutput(input, twin);
    case 1:
      return Configure(input, twin);
    case 2:
      return twin.AskSeqNum(input.Value<uint32_t>());
    case 3:
      return twin.AskSeqNum(twin.TotalBytes() + static_cast<uint32_t>(input.SignedByte()));
    case 4:
      return twin.ResetCounters();
    default:
      return Convert(input, twin);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input input({data, size});
  ConverterTwin twin;
  while (!input.Empty()) {
    Call(input, twin);
  }
  return 0;
}
