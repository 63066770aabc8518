#include <climits>
#include <cstddef>
#include <cstdint>
#include <ostream>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <hyl/sample_converter.h>

#include "log_capture.h"
#include "sample_converter_twin.h"

namespace hyl::v2::test {
namespace {

using hyl::v2::spectral::SampleConverter;
using Samples = std::vector<int32_t>;
using Log = std::vector<LogEntry>;

constexpr int32_t kCompressed1 = 6;
constexpr int32_t k16BitsIn2 = 7;

/// The name of a test that is made from a table.
template <typename Case>
std::string NameOf(const ::testing::TestParamInfo<Case>& info) {
  return info.param.name;
}

std::vector<uint8_t> FromHex(const std::string& hex) {
  std::vector<uint8_t> bytes;
  std::istringstream words(hex);
  for (unsigned byte = 0; words >> std::hex >> byte;) bytes.push_back(static_cast<uint8_t>(byte));
  return bytes;
}

Samples FromText(const std::string& text) {
  Samples samples;
  std::istringstream words(text);
  for (int32_t sample = 0; words >> sample;) samples.push_back(sample);
  return samples;
}

LogEntry TooSmall(size_t want, size_t have) {
  return Warning(
      Text("Not enough space in sample converter buffer (want:%zu have:%zu). Samples "
           "will be dropped.",
           want, have));
}

// --- streams ---

struct Format {
  int32_t kind;
  bool little_endian = true;
  uint8_t msb = 0;
  uint8_t lsb = 0;
};

/// One chunk and what comes of it.
struct Chunk {
  const char* hex = nullptr;  // null: there is no such chunk
  uint8_t restart = 0;
  const char* samples = nullptr;  // null: the chunk is refused
  bool held = false;              // its last byte begins a value
  size_t want = 0;                // samples in it, if that is more than there is room for
  int left_bits = 0;              // compressed-1: unreadable ones
};

/// A chunk whose last `left_bits` bits cannot be read.
constexpr Chunk Unreadable(const char* hex, uint8_t restart, int left_bits, size_t want = 0) {
  return {.hex = hex, .restart = restart, .want = want, .left_bits = left_bits};
}
/// A chunk of `want` samples, of which there is room for `samples`.
constexpr Chunk TooMany(const char* hex, uint8_t restart, const char* samples, size_t want) {
  return {.hex = hex, .restart = restart, .samples = samples, .want = want};
}

struct StreamCase {
  const char* name;
  Format format;
  int bits;
  uint32_t capacity;
  Chunk chunks[3];
  int32_t accumulator = 0;  // after the last chunk

  friend std::ostream& operator<<(std::ostream& out, const StreamCase& c) { return out << c.name; }
};

/// What is logged about a chunk of `size` bytes.
Log LogOf(const StreamCase& stream, const Chunk& chunk, size_t size) {
  Log log;
  if (chunk.want != 0) log.push_back(TooSmall(chunk.want, stream.capacity));
  if (chunk.samples != nullptr) return log;
  if (stream.format.kind == kCompressed1) {
    log.push_back(Error(Text("Did not process all data (left:%d bits)!", chunk.left_bits)));
  } else if (stream.format.kind == k16BitsIn2) {
    log.push_back(Error(Text("Received data size (%zu) doesn't fit must be 32-bit wide", size)));
  } else {
    log.push_back(Error(
        Text("Received data size (%zu) doesn't fit sample-width (%d)", size, stream.format.kind)));
  }
  return log;
}

constexpr Format kPacked{kCompressed1};
constexpr char kFour[] = "85 FD 64 80 18 F8";  // +5, -3, +100, -1000
/// Sixteen values with a sum of 2147483632.
constexpr char kHighSum[] =
    "7F 7F 7F BF 7F 7F 7F BF 7F 7F 7F BF 7F 7F 7F BF 7F 7F 7F BF 7F 7F 7F BF 7F 7F 7F BF 7F 7F 7F "
    "BF 7F 7F 7F BF 7F 7F 7F BF 7F 7F 7F BF 7F 7F 7F BF 7F 7F 7F BF 7F 7F 7F BF 7F 7F 7F BF 7F 7F "
    "7F BF";

constexpr StreamCase kCompressed1Cases[] = {
    {"SumsOfDifferences", kPacked, 12, 9, {{kFour, 1, "5 2 102 -898"}}, -898},
    {"Widened", kPacked, 24, 9, {{kFour, 1, "20480 8192 417792 -3678208"}}, -898},
    {"NarrowedRoundsDown", kPacked, 8, 9, {{kFour, 1, "0 0 6 -57"}}, -898},
    {"ValueOver2Chunks", kPacked, 12, 9, {{"81 46", 1, "1", true}, {"80 FE", 0, "71 69"}}, 69},
    {"FourGroups", kPacked, 12, 9, {{"00 00 00 88", 1, "16777216"}}, 16777216},
    {"RangeOf1Group", kPacked, 12, 9, {{"C0 80 BF", 1, "-64 -64 -1"}}, -1},
    {"RangeOf2Groups", kPacked, 12, 9, {{"00 C0 7F BF", 1, "-8192 -1"}}, -1},
    {"RangeOf3Groups", kPacked, 12, 9, {{"00 00 C0 7F 7F BF", 1, "-1048576 -1"}}, -1},
    {"RangeOf4Groups", kPacked, 12, 9, {{"00 00 00 C0 7F 7F 7F BF", 1, "-134217728 -1"}}, -1},
    {"UnreadableTail", kPacked, 12, 9, {Unreadable("85 01 02", 1, 16), {"81", 0, "6"}}, 6},
    {"FiveGroups", kPacked, 12, 9, {Unreadable("85 01 01 01 01 81 82", 1, 48), {"81", 0, "6"}}, 6},
    {"RestartDropsByteAndSum", kPacked, 12, 9, {{"85 46", 1, "5", true}, {"80 FE", 3, "0 -2"}}, -2},
    {"RestartIsBit0", kPacked, 12, 9, {{"85 46", 1, "5", true}, {"80 FE", 0xFE, "75 73"}}, 73},
    {"TooManyStillSum", kPacked, 12, 2, {TooMany(kFour, 1, "5 2", 4), {"81", 0, "-897"}}, -897},
    {"TooManyAndUnreadable", kPacked, 12, 1, {Unreadable("85 85 01 02", 1, 16, 2)}, 10},
    {"SumWraps",
     kPacked,
     12,
     0,
     {TooMany(kHighSum, 1, "", 16), TooMany("BF", 0, "", 1)},
     -2147483601},
    {"To0Bits", kPacked, 0, 9, {{"85 F0", 1, "0 -1"}}, -11},
    {"To43Bits", kPacked, 43, 9, {{"85 81", 1, "-2147483648 0"}}, 6},
    {"To44Bits", kPacked, 44, 9, {{"85 FE", 1, "0 0"}}, 3},
    {"To255Bits", kPacked, 255, 9, {{"85 F0", 1, "0 0"}}, -11},
};

constexpr Format kLittle{k16BitsIn2, true};
constexpr Format kBig{k16BitsIn2, false};
constexpr char kPairs[] = "34 12 FE FF 00 80 01 00";

constexpr StreamCase kPairCases[] = {
    {"LittleEndian", kLittle, 16, 9, {{kPairs, 1, "-2 4660 1 -32768"}}},
    {"BigEndian", kBig, 16, 9, {{kPairs, 1, "-257 13330 256 128"}}},
    {"Widened", kLittle, 24, 9, {{kPairs, 1, "-512 1192960 256 -8388608"}}},
    {"NarrowedRoundsDown", kLittle, 12, 9, {{kPairs, 1, "-1 291 0 -2048"}}},
    {"OddCapacityRoundsDown", kLittle, 16, 3, {TooMany(kPairs, 1, "-2 4660", 4)}},
    {"Capacity1", kLittle, 16, 1, {TooMany("34 12 FE FF", 0, "", 2)}},
    {"Empty", kLittle, 16, 0, {{"", 0, ""}}},
    {"HalfAPair", kLittle, 16, 9, {{"34 12 FE FF", 1, "-2 4660"}, {"34 12 FE FF 00 80"}}},
    {"To32Bits", kLittle, 32, 9, {{"34 12 FE FF", 1, "-131072 305397760"}}},
    {"To34Bits", kLittle, 34, 9, {{"00 80 FE FF", 1, "-524288 0"}}},
    {"To255Bits", kLittle, 255, 9, {{kPairs, 1, "0 0 0 0"}}},
};

constexpr Format kThreeLittle{3, true, 4, 2};
constexpr char kTriples[] = "FF FF 07 00 00 08 13 00 00";
constexpr char kExtremes4[] = "01 00 00 80 FF FF FF 7F";

constexpr StreamCase kUncompressedCases[] = {
    {"ThreeLittle", kThreeLittle, 24, 9, {{kTriples, 1, "8388544 -8388608 256"}}},
    {"ThreeBig", {3, false, 4, 2}, 24, 9, {{kTriples, 1, "-4032 128 3145728"}}},
    {"FourBig", {4, false, 8, 0}, 24, 9, {{"00 80 00 00 00 7F FF FF", 1, "-8388608 8388607"}}},
    {"FourLittleFullWidth", {4}, 32, 9, {{kExtremes4, 1, "-2147483647 2147483647"}}},
    {"TwoLittle", {2}, 16, 9, {{"00 80 FF 7F", 1, "-32768 32767"}}},
    {"TwoBig", {2, false}, 16, 9, {{"80 00 7F FF", 1, "-32768 32767"}}},
    {"PaddingIsIgnored", {2, false, 3, 5}, 8, 9, {{"FF FF E0 1F 0F E0", 1, "-1 0 127"}}},
    {"NarrowestOf4", {4, true, 0, 16}, 4, 9, {{"FF FF FF 7F 00 00 00 F8", 1, "7 -1"}}},
    {"DropsTheLast", kThreeLittle, 24, 2, {TooMany(kTriples, 1, "8388544 -8388608", 3)}},
    {"Empty", {4}, 24, 0, {{"", 0, ""}}},
    {"APartOfASample", {3}, 24, 9, {{"01 00 00", 1, "1"}, {"01 00 00 02"}}},
    {"To33Bits", {4}, 33, 9, {{kExtremes4, 1, "2 -2"}}},
    {"To255Bits", {2}, 255, 9, {{"00 80 FF 7F", 1, "0 0"}}},
};

class StreamTest : public ::testing::TestWithParam<StreamCase> {};

/// The table holds the model to the rules, so that it can stand for them elsewhere; the twin holds
/// the converter to the model.
TEST_P(StreamTest, AllAgree) {
  const Format& format = GetParam().format;
  ConverterTwin twin;
  twin.SetOutput(GetParam().capacity, static_cast<uint8_t>(GetParam().bits));
  twin.Configure(format.kind, format.little_endian, format.msb, format.lsb);
  for (const Chunk& chunk : GetParam().chunks) {
    if (chunk.hex == nullptr) break;
    SCOPED_TRACE(std::string("chunk ") + chunk.hex);
    const auto bytes = FromHex(chunk.hex);
    EXPECT_EQ(twin.Convert(bytes, chunk.restart), chunk.samples != nullptr);
    EXPECT_EQ(twin.LatestLog(), LogOf(GetParam(), chunk, bytes.size()));
    EXPECT_EQ(twin.Model().HeldByte().has_value(), chunk.held);
    if (chunk.samples != nullptr) {
      EXPECT_EQ(twin.Model().Samples(), FromText(chunk.samples));
    }
  }
  EXPECT_EQ(twin.Model().Sum(), GetParam().accumulator);
  EXPECT_EQ(twin.Difference(), "");
}

INSTANTIATE_TEST_SUITE_P(Compressed1, StreamTest, ::testing::ValuesIn(kCompressed1Cases),
                         NameOf<StreamCase>);
INSTANTIATE_TEST_SUITE_P(Pairs, StreamTest, ::testing::ValuesIn(kPairCases), NameOf<StreamCase>);
INSTANTIATE_TEST_SUITE_P(Uncompressed, StreamTest, ::testing::ValuesIn(kUncompressedCases),
                         NameOf<StreamCase>);

// --- sequence numbers ---

struct SeqNumCase {
  const char* name;
  int32_t kind;
  uint32_t seq_num;
  uint32_t total_bytes;
  int bit_pos;
  uint32_t offset;
  uint32_t wanted;
  bool warned = false;

  friend std::ostream& operator<<(std::ostream& out, const SeqNumCase& c) { return out << c.name; }
};

constexpr SeqNumCase kSeqNumCases[] = {
    {"Uncompressed3", 3, 0, 0, 0, 9, 3},
    {"Uncompressed3BetweenSamples", 3, 7, 99, 0, 11, 3},
    {"Uncompressed4Highest", 4, 0, 0, 0, UINT32_MAX, UINT32_MAX / 4},
    {"PairsBehind", k16BitsIn2, 500, 1000, 0, 8, 4},
    {"PairsHighest", k16BitsIn2, 0, 0, 0, UINT32_MAX, INT_MAX},
    {"Start", kCompressed1, 0, 0, 0, 0, 0},
    {"FollowsOn", kCompressed1, 1, 2, -8, 2, 1},
    {"Behind", kCompressed1, 3, 4, 0, 1, 0, true},
    {"BehindByOne", kCompressed1, 100, 100, 0, 99, 0, true},
    {"BehindPrintedSigned", kCompressed1, 5, 0x90000000, 0, 0x80000000, 0, true},
    {"GapOf1ByteValues", kCompressed1, 100, 100, 0, 150, 150},
    {"GapOf2ByteValuesOneBegun", kCompressed1, 50, 101, -8, 150, 75},
    {"GapOf4ByteValuesOneBegun", kCompressed1, 25, 101, -8, 140, 35},
    {"GapOfMixedValues", kCompressed1, 60, 100, 0, 110, 66},
    {"GapOf3And4ByteValues", kCompressed1, 30, 105, 0, 140, 40},
    {"GapBeforeAnyData", kCompressed1, 0, 0, 0, 10, 10},
    {"GapBeforeAnyDataByteHeldFromBefore", kCompressed1, 0, 0, -8, 10, 10},
    {"GapAfterOneHeldByte", kCompressed1, 0, 1, -8, 11, 10},
    {"NoFewerThanOneIn4Bytes", kCompressed1, 1, 100, 0, 140, 11},
    {"NoMoreThanOneAByte", kCompressed1, 200, 100, 0, 110, 210},
    {"GapOverTheWrap", kCompressed1, 0xFFFFFFF0, 0xFFFFFFF0, 0, 0x10, 0x10},
    {"LongestGap", kCompressed1, 0, 0, 0, 0x0FFFFFFF, 0x0FFFFFFF},
    {"GapTooLong", kCompressed1, 0, 0, 0, 0x10000000, 0, true},
};

class SeqNumTest : public ::testing::TestWithParam<SeqNumCase> {};

TEST_P(SeqNumTest, OfOffset) {
  LogCapture log;
  SampleConverter converter;
  converter.Configure(static_cast<FlickerFormatSampleWidth>(GetParam().kind), true, 0, 0);
  converter.seq_num_ = GetParam().seq_num;
  converter.total_bytes_ = GetParam().total_bytes;
  converter.bit_pos_ = GetParam().bit_pos;
  EXPECT_EQ(converter.GetSeqNum(GetParam().offset), GetParam().wanted);
  Log wanted;
  if (GetParam().warned) {
    wanted.push_back(Warning(Text("Cannot estimate missing gap of data (off:%d total:%d)",
                                  static_cast<int>(GetParam().offset),
                                  static_cast<int>(GetParam().total_bytes))));
  }
  EXPECT_EQ(log.Take(), wanted);
}

INSTANTIATE_TEST_SUITE_P(, SeqNumTest, ::testing::ValuesIn(kSeqNumCases), NameOf<SeqNumCase>);

TEST(SampleConverterTest, CountersWrap) {
  Samples buffer(4);
  SampleConverter converter;
  converter.SetOutput(buffer.data(), buffer.size(), 12);
  converter.ConfigureCompressed1InputFormat();
  converter.seq_num_ = UINT32_MAX;
  converter.total_bytes_ = UINT32_MAX - 1;
  const auto bytes = FromHex("81 82 83 84");
  EXPECT_TRUE(converter.Convert(bytes.data(), bytes.size(), 1));
  EXPECT_EQ(converter.seq_num_, 3U);
  EXPECT_EQ(converter.total_bytes_, 2U);
  EXPECT_EQ(converter.GetSeqNum(2), 3U);
}

// --- configuration ---

struct LayoutCase {
  size_t sbytes;
  uint8_t msb;
  uint8_t lsb;
  bool accepted;
  uint32_t mask = 0;
  int left_shift = 0;
};

const LayoutCase kLayoutCases[] = {
    {2, 0, 0, true, 0xFFFFFFFF, 16},
    {2, 15, 0, true, 0xFFFFFFFF, 31},
    {2, 0, 15, true, 0xFFFF8000, 16},
    {2, 8, 8, false},  // nothing left for the sample
    {3, 4, 2, true, 0xFFFFFFFC, 12},
    {3, 16, 0, true, 0xFFFFFFFF, 24},
    {3, 0, 16, true, 0xFFFF0000, 8},
    {3, 8, 9, false},
    {4, 0, 0, true, 0xFFFFFFFF, 0},
    {4, 8, 8, true, 0xFFFFFF00, 8},
    {4, 17, 0, false},
    {4, 0, 17, false},
    {4, 255, 255, false},
    {0, 0, 0, false},
    {1, 0, 0, false},
    {5, 0, 0, false},
    {SIZE_MAX, 0, 0, false},
};

TEST(SampleConverterTest, UncompressedLayouts) {
  LogCapture log;
  for (const LayoutCase& layout : kLayoutCases) {
    const std::string text =
        Text("sbytes:%zu msb:%d lsb:%d", layout.sbytes, layout.msb, layout.lsb);
    SCOPED_TRACE(text);
    SampleConverter converter;
    converter.SetOutput(nullptr, 0, 20);
    converter.Configure16BitsIn2InputFormat(true);
    EXPECT_EQ(
        converter.ConfigureUncompressedInputFormat(FlickerFormatSampleWidth::kUncompressed4,
                                                   layout.sbytes, layout.msb, layout.lsb, false),
        layout.accepted);
    EXPECT_EQ(converter.right_shift_, 12);
    if (layout.accepted) {
      EXPECT_EQ(log.Take(), Log{});
      EXPECT_EQ(converter.format_, 4U);
      EXPECT_FALSE(converter.little_endian_);
      EXPECT_EQ(converter.sample_bytes_, layout.sbytes);
      EXPECT_EQ(converter.sample_mask_, layout.mask);
      EXPECT_EQ(converter.left_shift_, layout.left_shift);
    } else {
      EXPECT_EQ(log.Take(), Log{Warning("Invalid converter config (" + text + ")")});
      EXPECT_EQ(converter.format_, 7U);
      EXPECT_TRUE(converter.little_endian_);
      EXPECT_EQ(converter.sample_bytes_, 2U);
    }
  }
}

TEST(SampleConverterTest, DecoderOutlivesFormatsAndOutputs) {
  ConverterTwin twin;
  twin.SetOutput(4, 12);
  twin.Configure(kCompressed1, true, 0, 0);
  EXPECT_TRUE(twin.Convert(FromHex("85 46"), 1));
  twin.Configure(k16BitsIn2, true, 0, 0);
  EXPECT_TRUE(twin.Convert(FromHex(kPairs), 1));
  twin.SetOutput(4, 12);
  twin.Configure(kCompressed1, true, 0, 0);
  EXPECT_TRUE(twin.Convert(FromHex("80"), 0));
  EXPECT_EQ(twin.Model().Samples(), Samples{75});
  EXPECT_EQ(twin.Difference(), "");
}

TEST(SampleConverterTest, WidthCountsFromTheNextFormatMessage) {
  ConverterTwin twin;
  twin.SetOutput(4, 12);
  twin.Configure(kCompressed1, true, 0, 0);
  twin.SetOutput(4, 13);
  EXPECT_TRUE(twin.Convert(FromHex("85"), 1));
  EXPECT_EQ(twin.Model().Samples(), Samples{5});
  twin.Configure(kCompressed1, true, 0, 0);
  EXPECT_TRUE(twin.Convert(FromHex("85"), 1));
  EXPECT_EQ(twin.Model().Samples(), Samples{10});
  EXPECT_EQ(twin.Difference(), "");
}

}  // namespace
}  // namespace hyl::v2::test
