// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>

namespace hyl::v2::test {

/// The bytes of a fuzzer's input, taken from the front. What it no longer holds is 0.
class Input {
 public:
  explicit Input(std::span<const uint8_t> bytes) : bytes_(bytes) {}

  bool Empty() const { return bytes_.empty(); }

  uint8_t Byte() { return Value<uint8_t>(); }
  int SignedByte() { return static_cast<int8_t>(Byte()); }
  /// A number below `limit`, from one byte.
  size_t Below(size_t limit) { return Byte() % limit; }
  /// In the machine's byte order.
  template <typename T>
  T Value() {
    const auto taken = Bytes(sizeof(T));
    T value{};
    std::copy(taken.begin(), taken.end(), reinterpret_cast<uint8_t*>(&value));
    return value;
  }
  std::span<const uint8_t> Bytes(size_t count) {
    const auto taken = bytes_.first(std::min(count, bytes_.size()));
    bytes_ = bytes_.subspan(taken.size());
    return taken;
  }

 private:
  std::span<const uint8_t> bytes_;
};

}  // namespace hyl::v2::test
