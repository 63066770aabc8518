#include "iio_channel.h"

#include <stdexcept>

namespace hyl::v2::bench {
namespace {

std::string Describe(size_t sample_bytes, bool little_endian) {
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

}  // namespace

IioChannel::IioChannel(size_t sample_bytes, bool little_endian) {
  const std::string xml = Describe(sample_bytes, little_endian);
  context_.reset(iio_create_xml_context_mem(xml.data(), xml.size()));
  const iio_device* const device =
      context_ != nullptr ? iio_context_get_device(context_.get(), 0) : nullptr;
  channel_ = device != nullptr ? iio_device_get_channel(device, 0) : nullptr;
  if (channel_ == nullptr) {
    throw std::runtime_error("libiio does not take the description of a channel");
  }
}

}  // namespace hyl::v2::bench
