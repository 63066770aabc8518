// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <memory>
#include <random>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include <benchmark/benchmark.h>
#include <streamvbyte.h>
#include <streamvbyte_zigzag.h>

#include <hyl/internal/sample_converter.h>

#include "benchmarks.h"
#include "flicker_streams.h"
#include "iio_channel.h"
#include "sample_converter_model.h"

namespace hyl::v2::bench {
namespace {

constexpr uint8_t kOutBits = 24;
constexpr size_t kReadAhead = 16;  // streamvbyte may read that far beyond its input

struct Packing {
  FlickerFormatSampleWidth kind{};
  /// The byte orders of even and odd chunks. Compressed-1 has none.
  std::array<bool, 2> little_endian = {true, true};
  size_t sample_bytes = 0;  ///< 0 in compressed-1

  bool fixed_size() const { return sample_bytes != 0; }
};

/// A chunk of the stream, and its samples as streamvbyte packs them.
struct Chunk {
  size_t converter = 0;  ///< of the two, the one that converts it
  std::span<const uint8_t> bytes;
  size_t first_sample = 0;
  uint32_t samples = 0;
  std::vector<uint8_t> streamvbyte = {};
  int32_t sum_before = 0;  ///< of all differences before the chunk
};

/// A stream in chunks, with all that the contenders need. Every contender writes the samples of a
/// chunk to the same buffer.
struct Input {
  Packing packing = {};
  std::vector<uint8_t> stream;
  std::vector<Chunk> chunks;
  std::vector<int32_t> samples;  ///< of the whole stream
  std::vector<int32_t> out;
};

/// The library's converter, called as the straightforward one is.
class LibraryConverter : public spectral::SampleConverter {
 public:
  void Configure(int32_t kind, bool little_endian, uint8_t msb, uint8_t lsb) {
    const auto width = static_cast<FlickerFormatSampleWidth>(kind);
    SampleConverter::Configure(width, little_endian, msb, lsb);
  }
  bool Convert(std::span<const uint8_t> chunk, uint8_t restart) {
    return SampleConverter::Convert(chunk.data(), chunk.size(), restart);
  }
};

/// One byte after the other, with its state in the object.
using StraightforwardConverter = test::SampleConverterModel;

/// Two converters, one for each byte order.
template <typename Converter>
std::array<Converter, 2> MakeConverters(Input& input) {
  std::array<Converter, 2> converters;
  for (size_t i = 0; i < converters.size(); ++i) {
    converters[i].SetOutput(input.out.data(), input.out.size(), kOutBits);
    converters[i].Configure(static_cast<int32_t>(input.packing.kind),
                            input.packing.little_endian[i], 0, 0);
  }
  return converters;
}

/// streamvbyte packs the differences of samples. These are as wide as they came, not as kOutBits.
constexpr int32_t kWidening = 1 << (kOutBits - 12);

std::vector<uint8_t> EncodeStreamvbyte(std::span<const int32_t> samples, int32_t sum_before) {
  std::vector<int32_t> sums(samples.begin(), samples.end());
  for (int32_t& sum : sums) {
    sum /= kWidening;
  }
  const auto count = static_cast<uint32_t>(sums.size());
  std::vector<uint32_t> zigzag(count);
  zigzag_delta_encode(sums.data(), zigzag.data(), count, sum_before);
  std::vector<uint8_t> bytes(streamvbyte_max_compressedbytes(count) + kReadAhead);
  bytes.resize(streamvbyte_encode(zigzag.data(), count, bytes.data()) + kReadAhead);
  return bytes;
}

/// At most `limit` bytes. A compressed-1 chunk ends with a whole difference or with the first byte
/// of one, as a sensor's chunks do.
size_t ChunkLength(const Packing& packing, std::span<const uint8_t> bytes, size_t limit) {
  constexpr uint8_t kStop = 0x80;
  size_t len = std::min(limit, bytes.size());
  while (!packing.fixed_size() && len > 1 && ((bytes[len - 1] | bytes[len - 2]) & kStop) == 0) {
    --len;
  }
  return len;
}

std::shared_ptr<Input> MakeInput(const Packing& packing, std::vector<uint8_t> stream,
                                 size_t chunk_bytes) {
  auto input = std::make_shared<Input>();
  input->packing = packing;
  input->stream = std::move(stream);
  input->out.resize(chunk_bytes);
  auto converters = MakeConverters<StraightforwardConverter>(*input);
  std::span<const uint8_t> rest = input->stream;
  while (!rest.empty()) {
    const size_t number = packing.fixed_size() ? input->chunks.size() % 2 : 0;
    StraightforwardConverter& converter = converters[number];
    const int32_t sum_before = converter.Sum();
    const auto bytes = rest.first(ChunkLength(packing, rest, chunk_bytes));
    converter.Convert(bytes, 0);
    const std::span<const int32_t> samples = converter.Samples();
    input->chunks.push_back({number, bytes, input->samples.size(),
                             static_cast<uint32_t>(samples.size()),
                             EncodeStreamvbyte(samples, sum_before), sum_before});
    input->samples.insert(input->samples.end(), samples.begin(), samples.end());
    rest = rest.subspan(bytes.size());
  }
  return input;
}

/// Times `convert` for each chunk of the stream.
template <typename Convert>
void MeasureChunks(benchmark::State& state, const Input& input, Convert convert) {
  Measure(state, static_cast<int64_t>(input.samples.size()), [&] {
    for (const Chunk& chunk : input.chunks) {
      convert(chunk);
      benchmark::ClobberMemory();
    }
  });
}

/// Checks the last chunk's samples, which must be 1/`scale` of the input's.
void CheckSamples(benchmark::State& state, const Input& input, int32_t scale = 1) {
  const Chunk& last = input.chunks.back();
  for (size_t i = 0; i < last.samples; ++i) {
    if (input.out[i] * scale != input.samples[last.first_sample + i]) {
      state.SkipWithError("wrong samples");
      return;
    }
  }
}

template <typename Converter>
void Convert(benchmark::State& state, Input& input) {
  auto converters = MakeConverters<Converter>(input);
  MeasureChunks(state, input, [&](const Chunk& chunk) {
    converters[chunk.converter].Convert(chunk.bytes, chunk.first_sample == 0 ? 1 : 0);
  });
  CheckSamples(state, input);
}

void Memcpy(benchmark::State& state, Input& input) {
  MeasureChunks(state, input, [&](const Chunk& chunk) {
    std::memcpy(input.out.data(), &input.samples[chunk.first_sample],
                chunk.samples * sizeof(int32_t));
  });
  CheckSamples(state, input);
}

void Streamvbyte(benchmark::State& state, Input& input) {
  std::vector<uint32_t> zigzag(input.out.size());
  MeasureChunks(state, input, [&](const Chunk& chunk) {
    streamvbyte_decode(chunk.streamvbyte.data(), zigzag.data(), chunk.samples);
    zigzag_delta_decode(zigzag.data(), input.out.data(), chunk.samples, chunk.sum_before);
  });
  CheckSamples(state, input, kWidening);
}

/// As iio_channel_read does it: a call a sample. The samples stay as narrow as they come, and pairs
/// are not swapped.
void Libiio(benchmark::State& state, Input& input) {
  const Packing& packing = input.packing;
  const std::array<IioChannel, 2> channels = {
      IioChannel(packing.sample_bytes, packing.little_endian[0]),
      IioChannel(packing.sample_bytes, packing.little_endian[1])};
  std::vector<uint8_t> out(input.out.size());
  MeasureChunks(state, input, [&](const Chunk& chunk) {
    const iio_channel* const channel = channels[chunk.converter].get();
    for (size_t at = 0; at < chunk.bytes.size(); at += packing.sample_bytes) {
      iio_channel_convert(channel, &out[at], &chunk.bytes[at]);
    }
  });
}

struct Contender {
  const char* name;
  void (*run)(benchmark::State&, Input&);
};

void Register(const std::string& name, const Packing& packing, const std::vector<uint8_t>& stream,
              size_t chunk_bytes, std::initializer_list<Contender> others) {
  const auto input = MakeInput(packing, stream, chunk_bytes);
  std::vector<Contender> contenders = {{"library", Convert<LibraryConverter>},
                                       {"straightforward", Convert<StraightforwardConverter>},
                                       {"memcpy", Memcpy}};
  contenders.insert(contenders.end(), others);
  for (const Contender& contender : contenders) {
    const std::string work = name + ", " + std::to_string(chunk_bytes) + " B/" + contender.name;
    benchmark::RegisterBenchmark(work.c_str(),
                                 [=](benchmark::State& state) { contender.run(state, *input); });
  }
}

void RegisterCompressed1(const std::string& name, const std::vector<uint8_t>& stream,
                         std::initializer_list<Contender> others) {
  for (const size_t chunk_bytes : {size_t{256}, size_t{4096}}) {
    Register(name, {FlickerFormatSampleWidth::kCompressed1}, stream, chunk_bytes, others);
  }
}

std::vector<uint8_t> RandomBytes(size_t count, uint32_t seed) {
  std::mt19937 engine(seed);
  std::vector<uint8_t> bytes(count);
  std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<uint8_t>(engine()); });
  return bytes;
}

/// In chunks of about 4 KiB.
void RegisterFixedSize(const std::string& name, const Packing& packing) {
  const size_t chunk_bytes = 4096 / (4 * packing.sample_bytes) * 4 * packing.sample_bytes;
  const auto stream = RandomBytes(kStreamBytes / chunk_bytes * chunk_bytes, 5);
  Register(name, packing, stream, chunk_bytes, {{"libiio", Libiio}});
}

}  // namespace

void RegisterConversion() {
  RegisterCompressed1("mains ripple", MainsRipple(), {{"streamvbyte", Streamvbyte}});
  RegisterCompressed1("steep ripple", SteepRipple(), {});
  RegisterCompressed1("1 or 2 groups", HalfAndHalf(), {});
  RegisterCompressed1("1 to 4 groups", UniformGroups(), {});
  using enum FlickerFormatSampleWidth;
  RegisterFixedSize("16-bits-in-2 LE", {k16BitsIn2, {true, true}, 2});
  RegisterFixedSize("16-bits-in-2 BE", {k16BitsIn2, {false, false}, 2});
  RegisterFixedSize("2 bytes LE and BE", {kUncompressed2, {true, false}, 2});
  RegisterFixedSize("3 bytes LE and BE", {kUncompressed3, {true, false}, 3});
  RegisterFixedSize("4 bytes LE and BE", {kUncompressed4, {true, false}, 4});
}

}  // namespace hyl::v2::bench
