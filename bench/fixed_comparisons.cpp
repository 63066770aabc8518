#include <cstring>
#include <memory>
#include <string>

#include <benchmark/benchmark.h>

#include <hyl/internal/sample_converter.h>

#include "comparison.h"
#include "flicker_streams.h"
#include "iio_channel.h"
#include "straightforward_converter.h"

namespace hyl::v2::bench {
namespace {

constexpr uint8_t kOutBits = 24;

struct Format {
  size_t bytes;
  bool little_endian;
  bool swapped_pairs;
  // For chunks of 4 KiB:
  double byte_wise_target = 0;
  double libiio_target = 0;
  double memcpy_target = 0;
};

/// A stream of samples of a fixed size, in chunks. Every contender writes the samples of a chunk to
/// the same buffer.
struct Input {
  Format format;
  std::vector<uint8_t> bytes;
  size_t chunk_bytes;
  std::vector<int32_t> samples;  ///< as many as the stream has
  std::vector<int32_t> out;
  IioChannel channel;

  size_t ChunkSamples() const { return chunk_bytes / format.bytes; }
};

std::shared_ptr<Input> MakeInput(const Format& format, size_t chunk_bytes) {
  const size_t whole_samples = chunk_bytes / (4 * format.bytes) * (4 * format.bytes);
  const size_t chunks = kStreamBytes / whole_samples;
  return std::make_shared<Input>(
      Input{format, RandomBytes(chunks * whole_samples, 5), whole_samples,
            std::vector<int32_t>(chunks * whole_samples / format.bytes),
            std::vector<int32_t>(whole_samples), IioChannel(format.bytes, format.little_endian)});
}

/// Calls `convert` with each chunk and its place in the stream.
template <typename Convert>
void ForEachChunk(Input& input, Convert convert) {
  for (size_t at = 0; at < input.bytes.size(); at += input.chunk_bytes) {
    convert(input.bytes.data() + at, at / input.format.bytes);
    benchmark::ClobberMemory();
  }
}

Contender Library(const std::shared_ptr<Input>& input) {
  auto converter = std::make_shared<spectral::SampleConverter>();
  converter->SetOutput(input->out.data(), input->out.size(), kOutBits);
  const auto width = input->format.swapped_pairs
                         ? FlickerFormatSampleWidth::k16BitsIn2
                         : static_cast<FlickerFormatSampleWidth>(input->format.bytes);
  converter->Configure(width, input->format.little_endian, 0, 0);
  return {"library", [input, converter] {
            ForEachChunk(*input, [&](const uint8_t* chunk, size_t) {
              converter->Convert(chunk, input->chunk_bytes, 0);
            });
          }};
}

Contender ByteWise(const std::shared_ptr<Input>& input) {
  auto converter = std::make_shared<StraightforwardConverter>(input->out.data(), input->out.size(),
                                                              static_cast<int8_t>(32 - kOutBits));
  converter->ConfigureFixed(input->format.bytes, input->format.little_endian);
  const auto pass = [input, converter] {
    ForEachChunk(*input, [&](const uint8_t* chunk, size_t) {
      if (input->format.swapped_pairs) {
        converter->Convert16BitsIn2(chunk, input->chunk_bytes);
      } else {
        converter->ConvertUncompressed(chunk, input->chunk_bytes);
      }
    });
  };
  return {.name = "byte-wise loop", .pass = pass, .target = input->format.byte_wise_target};
}

/// As iio_channel_read does it: a call a sample. The samples stay as narrow as they come, and pairs
/// are not swapped.
Contender Libiio(const std::shared_ptr<Input>& input) {
  const auto pass = [input] {
    const size_t bytes = input->format.bytes;
    ForEachChunk(*input, [&](const uint8_t* chunk, size_t) {
      auto* const out = reinterpret_cast<uint8_t*>(input->out.data());
      for (size_t at = 0; at < input->chunk_bytes; at += bytes) {
        iio_channel_convert(input->channel.get(), out + at, chunk + at);
      }
    });
  };
  return {.name = "libiio", .pass = pass, .target = input->format.libiio_target};
}

Contender Memcpy(const std::shared_ptr<Input>& input) {
  const auto pass = [input] {
    ForEachChunk(*input, [&](const uint8_t*, size_t first_sample) {
      std::memcpy(input->out.data(), input->samples.data() + first_sample,
                  input->ChunkSamples() * sizeof(int32_t));
    });
  };
  return {.name = "memcpy of the samples", .pass = pass, .target = input->format.memcpy_target};
}

std::string NameOf(const Format& format) {
  const std::string packing =
      format.swapped_pairs ? "16-bits-in-2" : std::to_string(format.bytes) + " bytes";
  return packing + (format.little_endian ? " LE" : " BE");
}

Comparison Compare(const Format& format, size_t chunk_bytes) {
  const auto input = MakeInput(format, chunk_bytes);
  Comparison comparison{
      .work = NameOf(format) + ", " + std::to_string(input->chunk_bytes) + " B",
      .unit = "sample",
      .contenders = {Library(input), ByteWise(input), Libiio(input), Memcpy(input)}};
  for (Contender& contender : comparison.contenders) {
    contender.units = static_cast<double>(input->samples.size());
  }
  return comparison;
}

}  // namespace

std::vector<ComparisonMaker> FixedComparisons() {
  constexpr Format kFormats[] = {{2, true, true, 0, 20, 0.40}, {2, false, true, 0, 20, 0.30},
                                 {2, true, false, 8, 20, 0},   {2, false, false, 8, 20, 0},
                                 {3, true, false, 5, 20, 0},   {3, false, false, 5, 20, 0},
                                 {4, true, false, 10, 20, 0},  {4, false, false, 8, 20, 0}};
  std::vector<ComparisonMaker> makers;
  for (const Format& format : kFormats) {
    for (const size_t bytes : {size_t{256}, size_t{4096}}) {
      const Format wanted = bytes == 4096 ? format
                                          : Format{.bytes = format.bytes,
                                                   .little_endian = format.little_endian,
                                                   .swapped_pairs = format.swapped_pairs};
      makers.push_back({"fixed/" + NameOf(format) + '/' + std::to_string(bytes),
                        [=] { return Compare(wanted, bytes); }});
    }
  }
  return makers;
}

}  // namespace hyl::v2::bench
