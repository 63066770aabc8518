#include <hyl/hyl_string.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <new>

namespace hyl::v2 {
namespace {

char* NewChars(size_t size) {
  return static_cast<char*>(::operator new(size, std::nothrow));
}

/// The length of the formatted text; negative when it cannot be formatted.
[[gnu::format(printf, 1, 0)]] int FormattedLength(const char* format, va_list args) {
  va_list copy;
  va_copy(copy, args);
  const int length = std::vsnprintf(nullptr, 0, format, copy);
  va_end(copy);
  return length;
}

}  // namespace

HylString& HylString::operator=(HylString&& other) noexcept {
  if (this != &other) {
    clear();
    Swap(other);
  }
  return *this;
}

void HylString::assign(const char* text) {
  const size_t size = text != nullptr ? std::strlen(text) : 0;
  char* const fresh = size > 0 ? NewChars(size + 1) : nullptr;  // `text` may lie in the old one
  if (fresh != nullptr) {
    std::memcpy(fresh, text, size + 1);
  }
  clear();
  if (fresh != nullptr) {
    chars_ = fresh;
    size_ = size;
    capacity_ = size + 1;
  }
}

void HylString::clear() {
  ::operator delete(chars_);
  chars_ = nullptr;
  size_ = 0;
  capacity_ = 0;
}

// The new text is always written to new storage: the arguments may point into this string.
void HylString::appendf(const char* format, ...) {
  va_list args;
  va_start(args, format);
  if (const int length = FormattedLength(format, args); length > 0) {
    const size_t capacity = size_ + static_cast<size_t>(length) + 1;
    if (char* const fresh = NewChars(capacity); fresh != nullptr) {
      std::memcpy(fresh, c_str(), size_);
      static_cast<void>(std::vsnprintf(fresh + size_, capacity - size_, format, args));
      const size_t size = capacity - 1;
      clear();
      chars_ = fresh;
      size_ = size;
      capacity_ = capacity;
    }
  }
  va_end(args);
}

}  // namespace hyl::v2
