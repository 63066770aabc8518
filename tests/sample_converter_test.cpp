// SPDX-License-Identifier: Apache-2.0
// The converter against its model: on random streams, and on the worked examples of
// docs/flicker-formats.md, which show that the model is right.

#include <cstddef>
#include <cstdint>
#include <fstream>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "sample_converter_twin.h"

namespace hyl::v2::test {
namespace {

constexpr size_t kRoom = 9;  // for samples

std::vector<uint8_t> FromHex(std::string_view hex) {
  std::vector<uint8_t> bytes;
  std::istringstream words{std::string(hex)};
  for (unsigned byte = 0; words >> std::hex >> byte;) {
    bytes.push_back(static_cast<uint8_t>(byte));
  }
  return bytes;
}

/// Announces a packing such as "uncompressed-3 little msb 4".
void Configure(ConverterTwin& twin, std::string_view packing) {
  std::istringstream words{std::string(packing)};
  std::string word;
  words >> word;
  const int32_t kind = word == "compressed-1"   ? SampleConverterModel::kCompressed1
                       : word == "16-bits-in-2" ? SampleConverterModel::k16BitsIn2
                                                : word.back() - '0';
  bool little_endian = true;
  unsigned msb = 0;
  unsigned lsb = 0;
  while (words >> word) {
    if (word == "big") {
      little_endian = false;
    } else if (word == "msb") {
      words >> msb;
    } else if (word == "lsb") {
      words >> lsb;
    }
  }
  twin.Configure(kind, little_endian, static_cast<uint8_t>(msb), static_cast<uint8_t>(lsb));
}

/// The cells of a line of a table, without blanks and backticks around them.
std::vector<std::string> Cells(const std::string& line) {
  std::vector<std::string> cells;
  std::istringstream rest(line);
  for (std::string cell; std::getline(rest, cell, '|');) {
    const size_t first = cell.find_first_not_of(" `");
    const size_t last = cell.find_last_not_of(" `");
    cells.push_back(first == std::string::npos ? "" : cell.substr(first, last - first + 1));
  }
  return cells;
}

/// What comes of a chunk: its samples, or "unreadable". The first of a stream resets the decoder.
std::string Convert(ConverterTwin& twin, std::string_view chunk, bool first) {
  if (!twin.Convert(FromHex(chunk), first ? 1 : 0)) {
    return "unreadable";
  }
  std::ostringstream text;
  for (const int32_t sample : twin.Samples()) {
    text << (text.tellp() > 0 ? " " : "") << sample;
  }
  return text.str();
}

/// Announces the format for every row, which must not disturb a stream.
TEST(SampleConverterTest, ExamplesOfTheDocument) {
  std::ifstream document(HYL_FLICKER_FORMATS);
  std::optional<ConverterTwin> twin;
  for (std::string line; std::getline(document, line);) {
    const std::vector<std::string> cells = Cells(line);
    if (cells.size() != 5 || !line.starts_with("| `")) {
      continue;
    }
    const std::string& packing = cells[1];
    const bool first = !packing.ends_with(" next");
    if (first) {
      twin.emplace();
    }
    twin->SetOutput(kRoom, static_cast<uint8_t>(std::stoi(cells[2])));
    Configure(*twin, packing);
    EXPECT_EQ(cells[4], Convert(*twin, cells[3], first)) << line;
  }
  EXPECT_TRUE(twin) << "no table of packing, out_bits, chunk and samples";
}

TEST(SampleConverterTest, DoesAsTheModelOnRandomStreams) {
  constexpr size_t kInputSize = 6000;
  size_t samples = 0;
  for (uint64_t seed = 0; seed < 1000 && !HasFailure(); ++seed) {
    SCOPED_TRACE(seed);
    const std::vector<uint8_t> input = RandomBytes(seed, kInputSize);
    ConverterTwin twin{Input(input)};
    twin.Run();
    samples += twin.sample_count();
  }
  EXPECT_GT(samples, 100000U) << "the streams are too poor to show anything";
}

}  // namespace
}  // namespace hyl::v2::test
