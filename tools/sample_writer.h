#pragma once

#include <memory>
#include <string>

#include "client.h"
#include "output.h"
#include "text.h"

namespace hyl::v2::tool {

/// Shows the samples of one ambient-light sensor.
class SampleWriter {
 public:
  virtual ~SampleWriter() = default;

  virtual void Write(const SpectralSample& sample) = 0;
  /// Shows what has been held back; called when the run has ended.
  virtual void Finish() {}
};

/// A writer of one line a sample; CSV begins with a header. `sensor` is the sensor's name.
std::unique_ptr<SampleWriter> MakeLineWriter(Output& out, Format format, const std::string& sensor);

}  // namespace hyl::v2::tool
