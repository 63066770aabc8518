#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <iio.h>

#include <hyl/internal/sample_converter.h>

#include "benchmarks.h"
#include "flicker_streams.h"

namespace hyl::v2::bench {
namespace {

constexpr uint8_t kOutBits = 24;

/// A channel of a device that does not exist, described in XML: enough to convert samples with.
class IioChannel {
 public:
  IioChannel(size_t sample_bytes, bool little_endian) {
    const std::string xml = Describe(sample_bytes, little_endian);
    context_.reset(iio_create_xml_context_mem(xml.data(), xml.size()));
    const iio_device* const device =
        context_ != nullptr ? iio_context_get_device(context_.get(), 0) : nullptr;
    channel_ = device != nullptr ? iio_device_get_channel(device, 0) : nullptr;
    if (channel_ == nullptr) {
      throw std::runtime_error("libiio does not take the description of a channel");
    }
  }

  const iio_channel* get() const { return channel_; }

 private:
  struct Destroy {
    void operator()(iio_context* context) const { iio_context_destroy(context); }
  };

  static std::string Describe(size_t sample_bytes, bool little_endian) {
    const std::string bits = std::to_string(8 * sample_bytes);
    const std::string format = (little_endian ? "le:s" : "be:s") + bits + '/' + bits + "&gt;&gt;0";
    return R"(<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE context [
<!ELEMENT context (device)>
<!ATTLIST context name CDATA #REQUIRED>
<!ELEMENT device (channel)>
<!ATTLIST device id CDATA #REQUIRED name CDATA #REQUIRED>
<!ELEMENT channel (scan-element)>
<!ATTLIST channel id CDATA #REQUIRED type CDATA #REQUIRED>
<!ELEMENT scan-element EMPTY>
<!ATTLIST scan-element index CDATA #REQUIRED format CDATA #REQUIRED>
]>
<context name="xml"><device id="iio:device0" name="flicker"><channel id="voltage0" type="input">
<scan-element index="0" format=")" +
           format + R"("/></channel></device></context>)";
  }

  std::unique_ptr<iio_context, Destroy> context_;
  const iio_channel* channel_ = nullptr;
};

/// A format of a fixed size. The even and the odd chunks of its stream may differ in byte order.
struct Format {
  FlickerFormatSampleWidth width;
  size_t bytes;  ///< of a sample
  std::array<bool, 2> little_endian;

  size_t ChunkSamples() const { return 4096 / (4 * bytes) * 4; }
  size_t ChunkBytes() const { return bytes * ChunkSamples(); }
  size_t Chunks() const { return kStreamBytes / ChunkBytes(); }
  std::vector<uint8_t> MakeStream() const { return RandomBytes(Chunks() * ChunkBytes(), 5); }
};

/// Times `convert` for each chunk of the stream, by its number.
template <typename Convert>
void MeasureChunks(benchmark::State& state, const Format& format, Convert convert) {
  Measure(state, static_cast<int64_t>(format.Chunks() * format.ChunkSamples()), [&] {
    for (size_t chunk = 0; chunk < format.Chunks(); ++chunk) {
      convert(chunk);
      benchmark::ClobberMemory();
    }
  });
}

void Library(benchmark::State& state, const Format& format) {
  const std::vector<uint8_t> stream = format.MakeStream();
  std::vector<int32_t> out(format.ChunkSamples());
  std::array<spectral::SampleConverter, 2> converters;
  for (size_t i = 0; i < converters.size(); ++i) {
    converters[i].SetOutput(out.data(), out.size(), kOutBits);
    converters[i].Configure(format.width, format.little_endian[i], 0, 0);
  }
  bool converted = true;
  MeasureChunks(state, format, [&](size_t chunk) {
    converted &=
        converters[chunk % 2].Convert(&stream[chunk * format.ChunkBytes()], format.ChunkBytes(), 0);
  });
  if (!converted) {
    state.SkipWithError("the library did not convert the samples");
  }
}

/// As iio_channel_read does it: a call a sample. The samples stay as narrow as they come, and pairs
/// are not swapped.
void Libiio(benchmark::State& state, const Format& format) {
  const std::vector<uint8_t> stream = format.MakeStream();
  std::vector<uint8_t> out(format.ChunkBytes());
  const std::array<IioChannel, 2> channels = {IioChannel(format.bytes, format.little_endian[0]),
                                              IioChannel(format.bytes, format.little_endian[1])};
  MeasureChunks(state, format, [&](size_t chunk) {
    const iio_channel* const channel = channels[chunk % 2].get();
    const uint8_t* const bytes = &stream[chunk * format.ChunkBytes()];
    for (size_t at = 0; at < format.ChunkBytes(); at += format.bytes) {
      iio_channel_convert(channel, &out[at], bytes + at);
    }
  });
}

/// The floor: samples that need no conversion.
void Memcpy(benchmark::State& state, const Format& format) {
  const std::vector<int32_t> samples(format.Chunks() * format.ChunkSamples());
  std::vector<int32_t> out(format.ChunkSamples());
  MeasureChunks(state, format, [&](size_t chunk) {
    std::memcpy(out.data(), &samples[chunk * out.size()], out.size() * sizeof(int32_t));
  });
}

void RegisterFormat(const std::string& name, const Format& format) {
  const std::string work = name + ", " + std::to_string(format.ChunkBytes()) + " B/";
  const auto add = [&](const char* contender, void (*run)(benchmark::State&, const Format&)) {
    benchmark::RegisterBenchmark((work + contender).c_str(),
                                 [=](benchmark::State& state) { run(state, format); });
  };
  add("library", Library);
  add("libiio", Libiio);
  add("memcpy", Memcpy);
}

}  // namespace

void RegisterFixedFormats() {
  using enum FlickerFormatSampleWidth;
  RegisterFormat("16-bits-in-2 LE", {k16BitsIn2, 2, {true, true}});
  RegisterFormat("16-bits-in-2 BE", {k16BitsIn2, 2, {false, false}});
  RegisterFormat("2 bytes LE and BE", {kUncompressed2, 2, {true, false}});
  RegisterFormat("3 bytes LE and BE", {kUncompressed3, 3, {true, false}});
  RegisterFormat("4 bytes LE and BE", {kUncompressed4, 4, {true, false}});
}

}  // namespace hyl::v2::bench
