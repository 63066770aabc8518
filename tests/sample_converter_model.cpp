#include "sample_converter_model.h"

namespace hyl::v2::test {
namespace {

constexpr int32_t kCompressed1 = 6;
constexpr int32_t k16BitsIn2 = 7;
constexpr size_t kLongestDifference = 4;

/// `value`, a number of `bits` bits, read as two's complement.
int64_t AsSigned(int64_t value, int bits) {
  const int64_t sign = int64_t{1} << (bits - 1);
  return value < sign ? value : value - 2 * sign;
}

/// `value` doubled that often, or halved and rounded down; of the result, the lowest 32 bits.
int32_t Scale(int64_t value, int doublings) {
  constexpr int kMost = 63;
  if (doublings < 0) {
    return static_cast<int32_t>(value >> std::min(-doublings, kMost));
  }
  return static_cast<int32_t>(static_cast<uint64_t>(value) << std::min(doublings, kMost));
}

}  // namespace

void SampleConverterModel::SetOutput(int32_t* buffer, size_t capacity, uint8_t bits) {
  buffer_ = buffer;
  capacity_ = buffer == nullptr ? 0 : capacity;
  out_bits_ = bits;
  ResetCounters();
}

void SampleConverterModel::ResetCounters() {
  seq_num_ = 0;
  total_bytes_ = 0;
}

void SampleConverterModel::Configure(int32_t kind, bool little_endian, uint8_t msb, uint8_t lsb) {
  if (kind == kCompressed1) {
    format_ = {.kind = kind, .doublings = out_bits_ - 12};
    return;
  }
  const bool pairs = kind == k16BitsIn2;
  const int bytes = pairs ? 2 : (kind >= 1 && kind <= 4 ? kind : 0);
  const int unused = pairs ? 0 : msb + lsb;
  if (bytes < 2 || unused > 16 || unused >= 8 * bytes) {
    log_.push_back(
        Warning(Text("Invalid converter config (sbytes:%d msb:%d lsb:%d)", bytes, msb, lsb)));
    return;
  }
  const int bits = 8 * bytes - unused;
  format_ = {.kind = kind,
             .bits = bits,
             .doublings = out_bits_ - bits,
             .bytes = static_cast<size_t>(bytes),
             .little_endian = little_endian,
             .lsb = pairs ? 0 : lsb};
}

bool SampleConverterModel::Convert(std::span<const uint8_t> chunk, uint8_t restart) {
  if (format_.kind == 0) {
    log_.push_back(Warning("No sample format received yet"));
    return false;
  }
  made_ = 0;
  room_ = capacity_;
  bool converted = false;
  if (format_.kind == kCompressed1) {
    converted = ConvertCompressed1(chunk, restart % 2 == 1);
  } else if (format_.kind == k16BitsIn2) {
    converted = Convert16BitsIn2(chunk);
  } else {
    converted = ConvertUncompressed(chunk);
  }
  if (converted) {
    seq_num_ += static_cast<uint32_t>(Samples().size());
    total_bytes_ += static_cast<uint32_t>(chunk.size());
  }
  return converted;
}

bool SampleConverterModel::MayHaveNumber(uint32_t offset, uint32_t number) {
  if (format_.kind == 0) {
    return true;  // no sample comes of it
  }
  if (format_.kind != kCompressed1) {
    return number == offset / format_.bytes;
  }
  constexpr uint32_t kTooLong = 1U << 28;
  const uint32_t gap = offset - total_bytes_;
  if ((gap & kTooLong) != 0) {
    log_.push_back(Warning(Text("Cannot estimate missing gap of data (off:%d total:%d)",
                                static_cast<int>(offset), static_cast<int>(total_bytes_))));
    return number == 0;
  }
  const uint32_t missing = number - seq_num_;
  return gap / kLongestDifference <= missing && missing <= gap;
}

std::optional<uint8_t> SampleConverterModel::HeldByte() const {
  return difference_bytes_ == 0 ? std::nullopt : std::optional(static_cast<uint8_t>(difference_));
}

bool SampleConverterModel::ConvertCompressed1(std::span<const uint8_t> chunk, bool restart) {
  if (restart) {
    difference_ = 0;
    difference_bytes_ = 0;
    sum_ = 0;
  }
  size_t left = chunk.size();
  for (; left > 0 && difference_bytes_ < kLongestDifference; --left) {
    TakeByte(chunk[chunk.size() - left]);
  }
  LogDroppedSamples();
  const size_t unread = difference_bytes_ + left;
  if (unread < 2) {
    return true;
  }
  log_.push_back(Error(Text("Did not process all data (left:%zu bits)!", 8 * unread)));
  difference_ = 0;
  difference_bytes_ = 0;
  return false;
}

void SampleConverterModel::TakeByte(uint8_t byte) {
  difference_ += int64_t{byte % 128} << (7 * difference_bytes_);
  ++difference_bytes_;
  if (byte < 128) {
    return;
  }
  const int bits = 7 * static_cast<int>(difference_bytes_);
  sum_ = static_cast<int32_t>(sum_ + AsSigned(difference_, bits));
  PutSample(sum_);
  difference_ = 0;
  difference_bytes_ = 0;
}

bool SampleConverterModel::Convert16BitsIn2(std::span<const uint8_t> chunk) {
  if (chunk.size() % 4 != 0) {
    log_.push_back(
        Error(Text("Received data size (%zu) doesn't fit must be 32-bit wide", chunk.size())));
    return false;
  }
  room_ = capacity_ - capacity_ % 2;
  for (size_t at = 0; at < chunk.size(); at += 4) {
    PutSample(ReadSample(&chunk[at + 2]));
    PutSample(ReadSample(&chunk[at]));
  }
  LogDroppedSamples();
  return true;
}

bool SampleConverterModel::ConvertUncompressed(std::span<const uint8_t> chunk) {
  if (chunk.size() % format_.bytes != 0) {
    log_.push_back(Error(Text("Received data size (%zu) doesn't fit sample-width (%zu)",
                              chunk.size(), format_.bytes)));
    return false;
  }
  for (size_t at = 0; at < chunk.size(); at += format_.bytes) {
    PutSample(ReadSample(&chunk[at]));
  }
  LogDroppedSamples();
  return true;
}

int64_t SampleConverterModel::ReadSample(const uint8_t* bytes) const {
  int64_t number = 0;
  for (size_t i = 0; i < format_.bytes; ++i) {
    number = number * 256 + bytes[format_.little_endian ? format_.bytes - 1 - i : i];
  }
  const int64_t limit = int64_t{1} << format_.bits;
  return AsSigned((number >> format_.lsb) & (limit - 1), format_.bits);
}

void SampleConverterModel::PutSample(int64_t sample) {
  if (made_ < room_) {
    buffer_[made_] = Scale(sample, format_.doublings);
  }
  ++made_;
}

void SampleConverterModel::LogDroppedSamples() {
  if (made_ > capacity_) {
    log_.push_back(
        Warning(Text("Not enough space in sample converter buffer (want:%zu have:%zu). "
                     "Samples will be dropped.",
                     made_, capacity_)));
  }
}

}  // namespace hyl::v2::test
