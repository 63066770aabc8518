// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <cstring>

#if defined(__SSSE3__)
#include <tmmintrin.h>
#elif defined(__aarch64__)
#include <arm_neon.h>
#endif

namespace hyl::v2::spectral {

// The compilers' vector types of 16 bytes, the width that all supported processors have. Lanes that
// may overflow are unsigned, whose overflow is defined.
using U8Lanes = uint8_t __attribute__((vector_size(16)));
using S8Lanes = int8_t __attribute__((vector_size(16)));
using S16Lanes = int16_t __attribute__((vector_size(16)));
using U16Lanes = uint16_t __attribute__((vector_size(16)));
using U32Lanes = uint32_t __attribute__((vector_size(16)));
using S32Lanes = int32_t __attribute__((vector_size(16)));
using U64Lanes = uint64_t __attribute__((vector_size(16)));

/// Reads a value from any address.
template <typename T>
T Load(const void* from) {
  T value;
  std::memcpy(&value, from, sizeof(value));
  return value;
}

/// The same 16 bytes as lanes of another type.
template <typename To, typename From>
To As(From lanes) {
  return reinterpret_cast<To>(lanes);
}

/// Selects zero, even after 15 is added.
inline constexpr uint8_t kNoByte = 0x80;

/// Takes from `bytes` those that `indices` name, and zero for kNoByte to 255. To be used only if
/// kHasByteShuffle is true.
#if defined(__SSSE3__)
inline constexpr bool kHasByteShuffle = true;
inline U8Lanes ShuffleBytes(U8Lanes bytes, U8Lanes indices) {
  return As<U8Lanes>(_mm_shuffle_epi8(As<__m128i>(bytes), As<__m128i>(indices)));
}
#elif defined(__aarch64__)
inline constexpr bool kHasByteShuffle = true;
inline U8Lanes ShuffleBytes(U8Lanes bytes, U8Lanes indices) {
  return vqtbl1q_u8(bytes, indices);
}
#else
inline constexpr bool kHasByteShuffle = false;
inline U8Lanes ShuffleBytes(U8Lanes bytes, U8Lanes) {
  return bytes;
}
#endif

}  // namespace hyl::v2::spectral
