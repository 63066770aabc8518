// SPDX-License-Identifier: Apache-2.0
// The converter and its model on chunks whose samples are known: the worked examples here and those
// of docs/flicker-formats.md. They show that the model is right, so that other tests can rely on
// it.

#include <cstddef>
#include <cstdint>
#include <fstream>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>
#include <hyl/internal/sample_converter.h>

#include "log_capture.h"
#include "sample_converter_twin.h"

namespace hyl::v2::test {
namespace {

using hyl::v2::spectral::SampleConverter;

/// A chunk and what comes of it, in the notation of docs/flicker-formats.md.
struct Row {
  std::string_view packing;  // "next": the chunk follows that of the row before
  int bits;
  std::string_view chunk;
  std::string_view samples;  // or "unreadable"
  size_t capacity = 9;
};

std::ostream& operator<<(std::ostream& out, const Row& row) {
  return out << row.packing << " | " << row.bits << " | " << row.chunk;
}

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

/// Feeds rows to a converter and its model. Sets the output and announces the format again for
/// every row, which must not disturb a stream.
class Stream {
 public:
  void Check(const Row& row) {
    const testing::ScopedTrace trace(__FILE__, __LINE__, row);
    const bool next = row.packing.ends_with(" next");
    if (!next) {
      twin_.emplace();
    }
    twin_->SetOutput(row.capacity, static_cast<uint8_t>(row.bits));
    Configure(*twin_, row.packing);
    std::string samples = "unreadable";
    if (twin_->Convert(FromHex(row.chunk), next ? 0 : 1)) {
      std::ostringstream text;
      for (const int32_t sample : twin_->Samples()) {
        text << (text.tellp() > 0 ? " " : "") << sample;
      }
      samples = text.str();
    }
    EXPECT_EQ(row.samples, samples);
  }

 private:
  std::optional<ConverterTwin> twin_;
};

constexpr std::string_view kFour = "85 FD 64 80 18 F8";  // +5, -3, +100, -1000
constexpr std::string_view kHighSum =                    // 16 x 134217727
    "7F 7F 7F BF 7F 7F 7F BF 7F 7F 7F BF 7F 7F 7F BF 7F 7F 7F BF 7F 7F 7F BF 7F 7F 7F BF 7F 7F 7F "
    "BF 7F 7F 7F BF 7F 7F 7F BF 7F 7F 7F BF 7F 7F 7F BF 7F 7F 7F BF 7F 7F 7F BF 7F 7F 7F BF 7F 7F "
    "7F BF";
constexpr std::string_view kPairs = "34 12 FE FF 00 80 01 00";
constexpr std::string_view kTriples = "FF FF 07 00 00 08 13 00 00";

constexpr Row kRows[] = {
    {"compressed-1", 12, kFour, "5 2 102 -898"},
    // The lowest and the highest value of 4 groups.
    {"compressed-1", 12, "00 00 00 C0 7F 7F 7F BF", "-134217728 -1"},
    // A value over two chunks; another format, and an empty chunk, between them.
    {"compressed-1", 12, "81 46", "1"},
    {"16-bits-in-2 next", 16, kPairs, "-2 4660 1 -32768"},
    {"compressed-1 next", 12, "", ""},
    {"compressed-1 next", 12, "80 FE", "71 69"},
    // An unreadable chunk leaves the sum.
    {"compressed-1", 12, "85 01 02", "unreadable"},
    {"compressed-1 next", 12, "81", "6"},
    // Dropped samples count in the sum.
    {"compressed-1", 12, kFour, "5 2", 2},
    {"compressed-1 next", 12, "81", "-897"},
    {"compressed-1", 12, kHighSum, "134217727 268435454", 2},
    {"compressed-1 next", 12, "BF", "-2147483601"},
    // Widths that make no sense.
    {"compressed-1", 43, "85 81", "-2147483648 0"},
    {"compressed-1", 44, "85 FE", "0 0"},

    {"16-bits-in-2 little", 16, kPairs, "-2 4660", 3},
    {"16-bits-in-2 little", 16, "34 12 FE FF", "", 1},
    {"16-bits-in-2 little", 34, "00 80 FE FF", "-524288 0"},

    {"uncompressed-3 little msb 4 lsb 2", 24, kTriples, "8388544 -8388608 256"},
    {"uncompressed-4 big msb 8", 24, "00 80 00 00 00 7F FF FF", "-8388608 8388607"},
    {"uncompressed-4 little lsb 16", 4, "FF FF FF 7F 00 00 00 F8", "7 -1"},
    {"uncompressed-3 little msb 4 lsb 2", 24, kTriples, "8388544 -8388608", 2},
    {"uncompressed-4 little", 33, "01 00 00 80 FF FF FF 7F", "2 -2"},
    // The most unused bits, and layouts with too many or of no sample.
    {"uncompressed-2 little msb 15", 1, "01 00 00 80", "-1 0"},
    {"uncompressed-2 little msb 8 lsb 8", 1, "01 00 00 80", "unreadable"},
    {"uncompressed-3 little msb 8 lsb 8", 8, "FF 12 FF", "18"},
    {"uncompressed-3 little msb 16", 8, "12 FF FF", "18"},
    {"uncompressed-3 little msb 9 lsb 8 next", 8, "12 FF FF", "18"},
    {"uncompressed-4 little msb 8 lsb 8", 16, "FF 34 12 FF", "4660"},
    {"uncompressed-4 little msb 17 next", 16, "FF 34 12 FF", "4660"},
    {"uncompressed-4 little msb 255 lsb 255 next", 16, "FF 34 12 FF", "4660"},
    {"uncompressed-5 big next", 16, "FF 34 12 FF", "4660"},
};

TEST(SampleConverterTest, WorkedExamples) {
  Stream stream;
  for (const Row& row : kRows) {
    stream.Check(row);
  }
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

TEST(SampleConverterTest, ExamplesOfTheDocument) {
  std::ifstream document(HYL_FLICKER_FORMATS);
  Stream stream;
  int rows = 0;
  for (std::string line; std::getline(document, line);) {
    const std::vector<std::string> cells = Cells(line);
    if (cells.size() == 5 && line.starts_with("| `")) {
      stream.Check({cells[1], std::stoi(cells[2]), cells[3], cells[4]});
      ++rows;
    }
  }
  EXPECT_GT(rows, 0) << "no table of packing, out_bits, chunk and samples";
}

TEST(SampleConverterTest, RestartDropsTheHeldByteAndTheSum) {
  ConverterTwin twin;
  twin.SetOutput(9, 12);
  Configure(twin, "compressed-1");
  const auto samples = [&](std::string_view chunk, uint8_t restart) {
    EXPECT_TRUE(twin.Convert(FromHex(chunk), restart));
    return std::vector(twin.Samples().begin(), twin.Samples().end());
  };
  EXPECT_EQ(samples("85 46", 1), std::vector{5});
  EXPECT_EQ(samples("80 FE 46", 0xFE), (std::vector{75, 73}));
  EXPECT_EQ(samples("80 FE", 3), (std::vector{0, -2}));
  twin.SetOutput(9, 13);
  EXPECT_EQ(samples("82", 0), std::vector{0}) << "a width counts from the next format message on";
  Configure(twin, "compressed-1");
  EXPECT_EQ(samples("82", 0), std::vector{4});
}

TEST(SampleConverterTest, UncompressedSamplesHave2To4Bytes) {
  for (const size_t bytes : std::initializer_list<size_t>{0, 1, 2, 3, 4, 5, SIZE_MAX}) {
    SampleConverter converter;
    EXPECT_EQ(bytes >= 2 && bytes <= 4,
              converter.ConfigureUncompressedInputFormat(FlickerFormatSampleWidth::kUncompressed4,
                                                         bytes, 0, 0, true))
        << bytes;
  }
}

}  // namespace
}  // namespace hyl::v2::test
