// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <random>
#include <span>
#include <vector>

namespace hyl::v2::test {

/// An input of a test in the place of a fuzzer's.
inline std::vector<uint8_t> RandomBytes(uint64_t seed, size_t count) {
  std::mt19937_64 engine(seed);
  std::vector<uint8_t> bytes(count);
  std::ranges::generate(bytes, [&] { return static_cast<uint8_t>(engine()); });
  return bytes;
}

/// The bytes of a fuzzer's input, taken from the front. What it no longer holds is 0.
class Input {
 public:
  explicit Input(std::span<const uint8_t> bytes) : bytes_(bytes) {}

  bool Empty() const { return bytes_.empty(); }

  uint8_t Byte() { return Value<uint8_t>(); }
  int SignedByte() { return static_cast<int8_t>(Byte()); }
  /// A number below `limit`, from one byte where that can be enough.
  size_t Below(size_t limit) { return (limit <= 256 ? Byte() : Value<uint32_t>()) % limit; }
  bool OneIn(size_t n) { return Below(n) == 0; }
  size_t OneOf(std::initializer_list<size_t> choices) {
    return choices.begin()[Below(choices.size())];
  }
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
