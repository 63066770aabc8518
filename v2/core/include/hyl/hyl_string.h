// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstring>
#include <string_view>
#include <utility>

namespace hyl::v2 {

/// The framework's owned, NUL-terminated string. All bytes zero is a valid empty string.
///
/// Not thread-safe: a string shared between threads needs its owner's lock.
class __attribute__((visibility("default"))) HylString {
 public:
  HylString() = default;
  HylString(const HylString& other) { assign(other.chars_); }
  HylString(HylString&& other) noexcept { Swap(other); }
  ~HylString() { clear(); }

  HylString& operator=(const HylString& other) {
    if (this != &other) {
      assign(other.chars_);
    }
    return *this;
  }
  HylString& operator=(HylString&& other) noexcept;

  /// Replaces the text by a copy of `text`; null empties the string. `text` may lie inside this
  /// string. When memory runs out the string is left empty.
  void assign(const char* text);

  /// Empties the string and frees its storage.
  void clear();

  /// Appends text formatted as by printf. When memory runs out, the text stays as it was.
  void appendf(const char* format, ...) __attribute__((format(printf, 2, 3)));

  /// The characters, or null when the string is empty.
  const char* data() const { return chars_; }
  /// The characters, or "" when the string is empty. Never null.
  const char* c_str() const { return chars_ != nullptr ? chars_ : ""; }
  /// Number of characters before the terminating NUL.
  size_t size() const { return std::strlen(c_str()); }
  bool empty() const { return chars_ == nullptr; }

  /// The characters; valid until the string changes or is destroyed.
  operator std::string_view() const { return c_str(); }
  bool operator==(std::string_view text) const { return std::string_view(*this) == text; }
  bool operator==(const HylString& other) const { return *this == std::string_view(other); }

 private:
  void Swap(HylString& other) noexcept {
    std::swap(chars_, other.chars_);
    std::swap(size_, other.size_);
    std::swap(capacity_, other.capacity_);
  }

  char* chars_ = nullptr;
  // Used by the framework's functions alone.
  size_t size_ = 0;
  size_t capacity_ = 0;
};

static_assert(sizeof(HylString) == 24);

}  // namespace hyl::v2
