// SPDX-License-Identifier: Apache-2.0
#include "recording_reader.h"

#include <bit>
#include <charconv>
#include <cmath>

namespace hyl::v2::host {
namespace {

constexpr int64_t kFormat = 1;
constexpr size_t kMaxLine = size_t{4} << 20U;     // bytes
constexpr size_t kMaxHeader = size_t{64} << 10U;  // a size that any parser reads quickly
constexpr int64_t kMaxTime = int64_t{1} << 60;
const std::string kBits = "0x";

}  // namespace

float RealFrom(const Json& json) {
  if (json.is_number()) {
    return json.get<float>();
  }
  const auto text = json.get<std::string>();
  const char* const end = text.data() + text.size();
  uint32_t bits = 0;
  const bool whole = text.starts_with(kBits) &&
                     std::from_chars(text.data() + kBits.size(), end, bits, 16).ptr == end;
  const auto value = std::bit_cast<float>(bits);
  return whole && !std::isfinite(value) ? value : throw std::out_of_range("");
}

void Require(bool holds, const std::string& fault) {
  if (!holds) {
    throw std::runtime_error(fault);
  }
}

RecordingReader::RecordingReader(std::istream& stream, std::string name)
    : stream_(stream), name_(std::move(name)), text_(new char[kMaxLine + 1]) {
  if (!ReadText()) {
    Fail("there is no whole line");
  }
  if (size_ > kMaxHeader) {
    Fail("the header is too long");
  }
  header_ = ParseText();
  header_text_.assign(text_.get(), size_);
  try {
    Require(MemberOf<std::string>(header_, "line") == "header", "the first line is not a header");
    Require(MemberOf<int64_t>(header_, "format") == kFormat,
            "this version does not know the recording's format");
  } catch (const std::runtime_error& fault) {
    Fail(fault.what());
  }
}

std::optional<RecordingReader::Line> RecordingReader::Next() {
  if (!ReadText()) {
    return std::nullopt;
  }
  Json json = ParseText();
  try {
    const auto time_ns = MemberOf<int64_t>(json, "time_ns");
    Require(time_ns >= time_ns_, "the time runs backwards");
    Require(time_ns <= kMaxTime, "the time is out of range");
    time_ns_ = time_ns;
  } catch (const std::runtime_error& fault) {
    Fail(fault.what());
  }
  return Line{time_ns_, std::move(json)};
}

void RecordingReader::Fail(const std::string& fault) const {
  throw std::runtime_error(name_ + ", line " + std::to_string(line_number_) + ": " + fault);
}

/// Returns false if no whole line is left.
bool RecordingReader::ReadText() {
  stream_.getline(text_.get(), kMaxLine + 1);
  const std::streamsize count = stream_.gcount();
  line_number_ += count > 0 ? 1 : 0;
  if (stream_.eof()) {
    cut_off_ = cut_off_ || count > 0;
    return false;
  }
  if (stream_.fail()) {
    Fail(count > 0 ? "the line is too long" : "the file cannot be read");
  }
  size_ = static_cast<size_t>(count - 1);  // without the line's end
  return true;
}

Json RecordingReader::ParseText() const {
  Json json = Json::parse(text_.get(), text_.get() + size_, nullptr, false);
  if (json.is_discarded()) {
    Fail("the line is not JSON");
  }
  return json;
}

}  // namespace hyl::v2::host
