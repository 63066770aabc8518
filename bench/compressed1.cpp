#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <streamvbyte.h>
#include <streamvbyte_zigzag.h>

#include <hyl/internal/sample_converter.h>

#include "benchmarks.h"
#include "flicker_streams.h"
#include "sample_converter_model.h"

namespace hyl::v2::bench {
namespace {

constexpr uint8_t kOutBits = 24;
constexpr int32_t kScale = 1 << (kOutBits - 12);  // the differences add up to 12-bit samples
constexpr size_t kReadAhead = 16;                 // streamvbyte may read that far beyond its input

/// One chunk of the stream, and its samples in the other packings that are compared.
struct Chunk {
  std::span<const uint8_t> bytes;
  size_t first_sample = 0;
  uint32_t samples = 0;
  std::vector<uint8_t> streamvbyte = {};
  int32_t sum_before = 0;  ///< of all differences before the chunk
};

/// A stream in chunks, with all that the contenders need. Every contender writes the samples of a
/// chunk to the same buffer.
struct Input {
  std::vector<Chunk> chunks;
  std::vector<int32_t> samples;  ///< of the whole stream
  std::vector<int32_t> out;
};

/// The straightforward decoder: one byte after the other, with its state in the object.
test::SampleConverterModel StraightforwardDecoder(Input& input) {
  test::SampleConverterModel decoder;
  decoder.SetOutput(input.out.data(), input.out.size(), kOutBits);
  decoder.Configure(static_cast<int32_t>(FlickerFormatSampleWidth::kCompressed1), true, 0, 0);
  return decoder;
}

std::vector<uint8_t> EncodeStreamvbyte(std::span<const int32_t> samples, int32_t sum_before) {
  std::vector<int32_t> sums(samples.begin(), samples.end());
  for (int32_t& sum : sums) {
    sum /= kScale;
  }
  const auto count = static_cast<uint32_t>(sums.size());
  std::vector<uint32_t> zigzag(count);
  zigzag_delta_encode(sums.data(), zigzag.data(), count, sum_before);
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

std::shared_ptr<Input> MakeInput(std::span<const uint8_t> stream, size_t chunk_bytes) {
  auto input = std::make_shared<Input>();
  input->out.resize(chunk_bytes);
  test::SampleConverterModel decoder = StraightforwardDecoder(*input);
  while (!stream.empty()) {
    const int32_t sum_before = decoder.Sum();
    const auto bytes = stream.first(ChunkLength(stream, chunk_bytes));
    decoder.Convert(bytes, 0);
    const std::span<const int32_t> samples = decoder.Samples();
    input->chunks.push_back({bytes, input->samples.size(), static_cast<uint32_t>(samples.size()),
                             EncodeStreamvbyte(samples, sum_before), sum_before});
    input->samples.insert(input->samples.end(), samples.begin(), samples.end());
    stream = stream.subspan(bytes.size());
  }
  return input;
}

/// Times `convert` for each chunk of the stream, and checks the last one's samples, which are to be
/// 1/`scale` of the input's.
template <typename Convert>
void MeasureChunks(benchmark::State& state, const Input& input, Convert convert,
                   int32_t scale = 1) {
  Measure(state, static_cast<int64_t>(input.samples.size()), [&] {
    for (const Chunk& chunk : input.chunks) {
      convert(chunk);
      benchmark::ClobberMemory();
    }
  });
  const Chunk& last = input.chunks.back();
  for (size_t i = 0; i < last.samples; ++i) {
    if (input.out[i] * scale != input.samples[last.first_sample + i]) {
      state.SkipWithError("wrong samples");
      return;
    }
  }
}

void Library(benchmark::State& state, Input& input) {
  spectral::SampleConverter converter;
  converter.SetOutput(input.out.data(), input.out.size(), kOutBits);
  converter.ConfigureCompressed1InputFormat();
  MeasureChunks(state, input, [&](const Chunk& chunk) {
    converter.Convert(chunk.bytes.data(), chunk.bytes.size(), chunk.first_sample == 0 ? 1 : 0);
  });
}

void Straightforward(benchmark::State& state, Input& input) {
  test::SampleConverterModel decoder = StraightforwardDecoder(input);
  MeasureChunks(state, input, [&](const Chunk& chunk) {
    decoder.Convert(chunk.bytes, chunk.first_sample == 0 ? 1 : 0);
  });
}

/// Its samples stay as wide as they come.
void Streamvbyte(benchmark::State& state, Input& input) {
  std::vector<uint32_t> zigzag(input.out.size());
  const auto decode = [&](const Chunk& chunk) {
    streamvbyte_decode(chunk.streamvbyte.data(), zigzag.data(), chunk.samples);
    zigzag_delta_decode(zigzag.data(), input.out.data(), chunk.samples, chunk.sum_before);
  };
  MeasureChunks(state, input, decode, kScale);
}

void Memcpy(benchmark::State& state, Input& input) {
  MeasureChunks(state, input, [&](const Chunk& chunk) {
    std::memcpy(input.out.data(), &input.samples[chunk.first_sample],
                chunk.samples * sizeof(int32_t));
  });
}

void RegisterStream(const std::string& name, std::span<const uint8_t> stream,
                    bool with_streamvbyte) {
  for (const size_t chunk_bytes : {size_t{256}, size_t{4096}}) {
    const std::string work = name + ", " + std::to_string(chunk_bytes) + " B/";
    const auto input = MakeInput(stream, chunk_bytes);
    const auto add = [&](const char* contender, void (*run)(benchmark::State&, Input&)) {
      benchmark::RegisterBenchmark((work + contender).c_str(),
                                   [=](benchmark::State& state) { run(state, *input); });
    };
    add("library", Library);
    add("straightforward", Straightforward);
    add("memcpy", Memcpy);
    if (with_streamvbyte) {
      add("streamvbyte", Streamvbyte);
    }
  }
}

}  // namespace

void RegisterCompressed1() {
  RegisterStream("mains ripple", MainsRipple(), true);
  RegisterStream("steep ripple", SteepRipple(), false);
  RegisterStream("1 or 2 groups", HalfAndHalf(), false);
  RegisterStream("1 to 4 groups", UniformGroups(), false);
}

}  // namespace hyl::v2::bench
