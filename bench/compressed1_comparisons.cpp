#include <algorithm>
#include <cstring>
#include <memory>
#include <span>
#include <string>

#include <benchmark/benchmark.h>
#include <streamvbyte.h>
#include <streamvbyte_zigzag.h>

#include <hyl/internal/sample_converter.h>

#include "comparison.h"
#include "flicker_streams.h"
#include "straightforward_converter.h"

namespace hyl::v2::bench {
namespace {

constexpr uint8_t kOutBits = 24;
constexpr int kLeftShift = kOutBits - 12;
constexpr size_t kReadAhead = 16;  // streamvbyte may read that far beyond its input

/// One chunk of the stream, and its samples in the other packings that are compared.
struct Chunk {
  const uint8_t* data = nullptr;
  size_t len = 0;
  size_t first_sample = 0;
  uint32_t samples = 0;
  std::vector<uint8_t> streamvbyte = {};
  int32_t before = 0;  ///< the sum of all differences before
};

/// A stream in chunks, with all that the contenders need. Every contender writes the samples of a
/// chunk to the same buffer.
struct Input {
  FlickerStream stream;
  std::vector<Chunk> chunks;
  std::vector<int32_t> samples;  ///< of the whole stream
  std::vector<int32_t> out;
  std::vector<uint32_t> zigzag;  ///< room for a chunk's differences
};

std::vector<uint8_t> EncodeStreamvbyte(const int32_t* sums, uint32_t count, int32_t before) {
  std::vector<uint32_t> zigzag(count);
  zigzag_delta_encode(sums, zigzag.data(), count, before);
  std::vector<uint8_t> bytes(streamvbyte_max_compressedbytes(count) + kReadAhead);
  bytes.resize(streamvbyte_encode(zigzag.data(), count, bytes.data()) + kReadAhead);
  return bytes;
}

/// At most `limit` bytes, so many that the chunk ends with a whole difference or with the first
/// byte of one, as a sensor's chunks do.
size_t ChunkLength(std::span<const uint8_t> bytes, size_t limit) {
  constexpr uint8_t kStop = 0x80;
  size_t len = std::min(limit, bytes.size());
  while (len > 1 && ((bytes[len - 1] | bytes[len - 2]) & kStop) == 0) {
    --len;
  }
  return len;
}

std::shared_ptr<Input> MakeInput(FlickerStream stream, size_t chunk_bytes) {
  auto input = std::make_shared<Input>();
  input->stream = std::move(stream);
  input->out.resize(chunk_bytes);
  input->zigzag.resize(chunk_bytes);
  const std::vector<uint8_t>& bytes = input->stream.bytes;
  StraightforwardConverter converter(input->out.data(), input->out.size(), 0);
  int32_t before = 0;
  for (size_t at = 0, len = 0; at < bytes.size(); at += len) {
    len = ChunkLength(std::span(bytes).subspan(at), chunk_bytes);
    converter.ConvertCompressed1(bytes.data() + at, len);
    const auto count = static_cast<uint32_t>(converter.out_count());
    input->chunks.push_back({bytes.data() + at, len, input->samples.size(), count,
                             EncodeStreamvbyte(input->out.data(), count, before), before});
    input->samples.insert(input->samples.end(), input->out.begin(), input->out.begin() + count);
    before = count > 0 ? input->out[count - 1] : before;
  }
  return input;
}

Contender Library(const std::shared_ptr<Input>& input) {
  auto converter = std::make_shared<spectral::SampleConverter>();
  converter->SetOutput(input->out.data(), input->out.size(), kOutBits);
  converter->ConfigureCompressed1InputFormat();
  const auto pass = [input, converter] {
    for (const Chunk& chunk : input->chunks) {
      converter->Convert(chunk.data, chunk.len, chunk.first_sample == 0 ? 1 : 0);
      benchmark::ClobberMemory();
    }
  };
  return {"library", pass};
}

Contender Straightforward(const std::shared_ptr<Input>& input, double target) {
  auto converter = std::make_shared<StraightforwardConverter>(input->out.data(), input->out.size(),
                                                              static_cast<int8_t>(-kLeftShift));
  const auto pass = [input, converter] {
    for (const Chunk& chunk : input->chunks) {
      converter->ConvertCompressed1(chunk.data, chunk.len);
      benchmark::ClobberMemory();
    }
  };
  return {.name = "straightforward", .pass = pass, .target = target};
}

Contender Tight(const std::shared_ptr<Input>& input) {
  const auto pass = [input] {
    int32_t sum = 0;
    for (const Chunk& chunk : input->chunks) {
      DecodeTightly(chunk.data, chunk.len, kLeftShift, sum, input->out.data(), input->out.size());
      benchmark::ClobberMemory();
    }
  };
  return {"byte loop in registers", pass};
}

Contender Streamvbyte(const std::shared_ptr<Input>& input, double target) {
  const auto pass = [input] {
    for (const Chunk& chunk : input->chunks) {
      streamvbyte_decode(chunk.streamvbyte.data(), input->zigzag.data(), chunk.samples);
      zigzag_delta_decode(input->zigzag.data(), input->out.data(), chunk.samples, chunk.before);
      benchmark::ClobberMemory();
    }
  };
  return {.name = "streamvbyte+zigzag+delta", .pass = pass, .target = target};
}

Contender Memcpy(const std::shared_ptr<Input>& input) {
  const auto pass = [input] {
    for (const Chunk& chunk : input->chunks) {
      std::memcpy(input->out.data(), input->samples.data() + chunk.first_sample,
                  chunk.samples * sizeof(int32_t));
      benchmark::ClobberMemory();
    }
  };
  return {"memcpy of the samples", pass};
}

struct Targets {
  double straightforward;
  double streamvbyte;
};

Comparison Compare(FlickerStream stream, size_t chunk_bytes, Targets targets) {
  const auto input = MakeInput(std::move(stream), chunk_bytes);
  Comparison comparison{
      .work = "compressed-1, " + input->stream.name + ", " + std::to_string(chunk_bytes) + " B",
      .unit = "sample",
      .contenders = {Library(input), Straightforward(input, targets.straightforward), Tight(input),
                     Streamvbyte(input, targets.streamvbyte), Memcpy(input)}};
  for (Contender& contender : comparison.contenders) {
    contender.units = static_cast<double>(input->samples.size());
  }
  return comparison;
}

}  // namespace

std::vector<ComparisonMaker> Compressed1Comparisons() {
  struct Row {
    const char* name;
    FlickerStream (*make)();
    Targets targets;
  };
  constexpr Row kRows[] = {{"mains", MainsRipple, {7, 2.5}},
                           {"steep", SteepRipple, {4, 0}},
                           {"half", HalfAndHalf, {4, 0}},
                           {"uniform", UniformGroups, {1, 0}}};
  constexpr size_t kLargest = size_t{64} * 1024;
  std::vector<ComparisonMaker> makers;
  for (const Row& row : kRows) {
    for (const size_t bytes : {size_t{256}, size_t{4096}, kLargest}) {
      // The targets for ripple are for chunks as they come, not for huge ones.
      const Targets targets =
          bytes == kLargest && row.make == MainsRipple ? Targets{} : row.targets;
      makers.push_back({std::string("compressed1/") + row.name + '/' + std::to_string(bytes),
                        [=] { return Compare(row.make(), bytes, targets); }});
    }
  }
  return makers;
}

}  // namespace hyl::v2::bench
