#include "sample_converter_model.h"

#include <algorithm>
#include <string>
#include <utility>

namespace hyl::v2::test {
namespace {

constexpr int32_t kCompressed1 = 6;
constexpr int32_t k16BitsIn2 = 7;
constexpr int64_t kTwoTo32 = int64_t{1} << 32;

/// The number from -2^31 to 2^31 - 1 that differs from `value` by a multiple of 2^32.
int32_t Wrap(int64_t value) {
  int64_t rest = value % kTwoTo32;
  if (rest < 0) rest += kTwoTo32;
  return static_cast<int32_t>(rest >= kTwoTo32 / 2 ? rest - kTwoTo32 : rest);
}

uint32_t WrapUnsigned(uint64_t value) {
  return static_cast<uint32_t>(value % static_cast<uint64_t>(kTwoTo32));
}

/// `value`, of `from` bits, stretched or shrunk to `to` bits, rounded toward minus infinity.
int32_t Scale(int64_t value, int from, int to) {
  for (int i = from; i < to && value != 0; ++i) value = Wrap(value * 2);
  for (int i = to; i < from; ++i) value = (value - (value % 2 != 0 && value < 0 ? 1 : 0)) / 2;
  return Wrap(value);
}

int64_t PowerOf2(int exponent) {
  int64_t power = 1;
  for (int i = 0; i < exponent; ++i) power *= 2;
  return power;
}

/// Reads an unsigned number of `bits` bits as a signed one.
int64_t AsSigned(int64_t value, int bits) {
  return value < PowerOf2(bits - 1) ? value : value - PowerOf2(bits);
}

struct Value {
  int64_t number;
  size_t length;  // in bytes
};

/// The compressed-1 value at the beginning of `bytes`, if there is a whole one.
std::optional<Value> FirstValue(std::span<const uint8_t> bytes) {
  int64_t number = 0;
  for (size_t i = 0; i < bytes.size() && i < 4; ++i) {
    const int bits = 7 * static_cast<int>(i);
    number += (bytes[i] % 128) * PowerOf2(bits);
    if (bytes[i] >= 128) return Value{AsSigned(number, bits + 7), i + 1};
  }
  return std::nullopt;
}

}  // namespace

void SampleConverterModel::SetOutput(size_t capacity, uint8_t bits) {
  capacity_ = capacity;
  out_bits_ = bits;
  samples_.clear();
  ResetCounters();
}

void SampleConverterModel::ResetCounters() {
  seq_num_ = 0;
  total_bytes_ = 0;
}

void SampleConverterModel::Configure(int32_t kind, bool little_endian, uint8_t msb, uint8_t lsb) {
  if (kind == kCompressed1) {
    format_ = Format{kind, out_bits_, 0, false, 0, 0};
    return;
  }
  if (kind == k16BitsIn2) {
    format_ = Format{kind, out_bits_, 2, little_endian, 0, 0};
    return;
  }
  const int sbytes = kind >= 1 && kind <= 4 ? kind : 0;
  if (sbytes < 2 || msb + lsb > 16 || msb + lsb >= 8 * sbytes) {
    log_.push_back(Warning("Invalid converter config (sbytes:" + std::to_string(sbytes) +
                           " msb:" + std::to_string(msb) + " lsb:" + std::to_string(lsb) + ")"));
    return;
  }
  format_ = Format{kind, out_bits_, static_cast<size_t>(sbytes), little_endian, msb, lsb};
}

uint32_t SampleConverterModel::GetSeqNum(uint32_t offset) {
  if (!format_) return offset / 4;
  if (format_->kind != kCompressed1) return WrapUnsigned(offset / format_->sample_bytes);
  const uint32_t gap = offset - total_bytes_;
  if (gap == 0) return seq_num_;
  if (WrapUnsigned(uint64_t{gap} * 8) >= 0x80000000U) {
    log_.push_back(
        Warning("Cannot estimate missing gap of data (off:" + std::to_string(Wrap(offset)) +
                " total:" + std::to_string(Wrap(total_bytes_)) + ")"));
    return 0;
  }
  // The bytes that made the samples so far. A byte held from before the count began is not in it.
  uint64_t used = total_bytes_;
  if (used != 0 && held_byte_) --used;
  uint64_t made = seq_num_;
  if (used == 0 || made > used) made = used = 1;
  if (made * 4 < used) {
    made = 1;
    used = 4;
  }
  const uint64_t whole = gap * made / used;
  const uint64_t rest = gap * made % used;
  return WrapUnsigned(seq_num_ + whole + (rest * 2 >= used ? 1 : 0));
}

bool SampleConverterModel::Convert(std::span<const uint8_t> chunk, uint8_t restart) {
  if (!format_) {
    log_.push_back(Warning("No sample format received yet"));
    return false;
  }
  bool converted = false;
  if (format_->kind == kCompressed1) {
    converted = ConvertCompressed1(chunk, restart % 2 != 0);
  } else if (format_->kind == k16BitsIn2) {
    converted = Convert16BitsIn2(chunk);
  } else {
    converted = ConvertUncompressed(chunk);
  }
  if (converted) {
    seq_num_ = WrapUnsigned(seq_num_ + samples_.size());
    total_bytes_ = WrapUnsigned(total_bytes_ + chunk.size());
  }
  return converted;
}

bool SampleConverterModel::ConvertCompressed1(std::span<const uint8_t> chunk, bool restart) {
  if (restart) {
    held_byte_.reset();
    sum_ = 0;
  }
  std::vector<uint8_t> stream;
  if (held_byte_) stream.push_back(*held_byte_);
  stream.insert(stream.end(), chunk.begin(), chunk.end());
  std::span<const uint8_t> left(stream);
  std::vector<int32_t> samples;
  while (const auto value = FirstValue(left)) {
    sum_ = Wrap(int64_t{sum_} + value->number);
    samples.push_back(Scale(sum_, 12, format_->out_bits));
    left = left.subspan(value->length);
  }
  Store(samples, capacity_);
  held_byte_.reset();
  if (left.size() == 1) held_byte_ = left.front();
  if (left.size() < 2) return true;
  log_.push_back(
      Error("Did not process all data (left:" + std::to_string(8 * left.size()) + " bits)!"));
  return false;
}

bool SampleConverterModel::Convert16BitsIn2(std::span<const uint8_t> chunk) {
  if (chunk.size() % 4 != 0) {
    log_.push_back(Error("Received data size (" + std::to_string(chunk.size()) +
                         ") doesn't fit must be 32-bit wide"));
    return false;
  }
  std::vector<int32_t> samples;
  for (size_t at = 0; at < chunk.size(); at += 4) {
    for (const size_t half : {at + 2, at}) {
      samples.push_back(Scale(ReadField(chunk.subspan(half, 2)), 16, format_->out_bits));
    }
  }
  Store(samples, capacity_ - capacity_ % 2);
  return true;
}

bool SampleConverterModel::ConvertUncompressed(std::span<const uint8_t> chunk) {
  const size_t sample_bytes = format_->sample_bytes;
  if (chunk.size() % sample_bytes != 0) {
    log_.push_back(Error("Received data size (" + std::to_string(chunk.size()) +
                         ") doesn't fit sample-width (" + std::to_string(sample_bytes) + ")"));
    return false;
  }
  const int bits = 8 * static_cast<int>(sample_bytes) - format_->msb - format_->lsb;
  std::vector<int32_t> samples;
  for (size_t at = 0; at < chunk.size(); at += sample_bytes) {
    const int64_t field = ReadField(chunk.subspan(at, sample_bytes));
    samples.push_back(Scale(field, bits, format_->out_bits));
  }
  Store(samples, capacity_);
  return true;
}

int64_t SampleConverterModel::ReadField(std::span<const uint8_t> bytes) const {
  int64_t raw = 0;
  for (size_t i = 0; i < bytes.size(); ++i) {
    raw = raw * 256 + bytes[format_->little_endian ? bytes.size() - 1 - i : i];
  }
  const int bits = 8 * static_cast<int>(bytes.size()) - format_->msb - format_->lsb;
  return AsSigned(raw / PowerOf2(format_->lsb) % PowerOf2(bits), bits);
}

void SampleConverterModel::Store(const std::vector<int32_t>& samples, size_t room) {
  if (samples.size() > capacity_) {
    log_.push_back(Warning(
        "Not enough space in sample converter buffer (want:" + std::to_string(samples.size()) +
        " have:" + std::to_string(capacity_) + "). Samples will be dropped."));
  }
  const size_t kept = std::min(samples.size(), room);
  samples_.assign(samples.begin(), samples.begin() + static_cast<ptrdiff_t>(kept));
}

std::vector<LogEntry> SampleConverterModel::TakeLog() {
  return std::exchange(log_, {});
}

}  // namespace hyl::v2::test
