#pragma once

#include <memory>
#include <string>

#include <iio.h>

namespace hyl::v2::bench {

/// A channel of a device that does not exist, described in XML: enough to convert samples with.
class IioChannel {
 public:
  IioChannel(size_t sample_bytes, bool little_endian);

  const iio_channel* get() const { return channel_; }

 private:
  struct Destroy {
    void operator()(iio_context* context) const { iio_context_destroy(context); }
  };

  std::unique_ptr<iio_context, Destroy> context_;
  const iio_channel* channel_ = nullptr;
};

}  // namespace hyl::v2::bench
