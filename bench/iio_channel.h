// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <memory>
#include <stdexcept>
#include <string>

#include <iio.h>

namespace hyl::v2::bench {

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

}  // namespace hyl::v2::bench
