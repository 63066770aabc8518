// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdio>
#include <cstdlib>
#include <utility>

namespace hyl::v2 {

/// Ends the process, naming `expression` and `function`, unless `ok`. Active in every build: it
/// guards reference counts, and a wrong count leads to the use of freed memory.
inline void Assert(bool ok, const char* expression, const char* function) {
  if (ok) [[likely]] {
    return;
  }
  std::fprintf(stderr, "%s: assertion \"%s\" failed\n", function, expression);
  std::abort();
}

namespace refcount {

/// Holds one reference to an object that counts its references itself, by Ref() and Unref().
template <typename T>
class reffed_ptr {
 public:
  reffed_ptr() = default;
  /// Takes a reference to `object`, which may be null.
  explicit reffed_ptr(T* object) : ptr_(object) { RefIfSet(); }
  reffed_ptr(const reffed_ptr& other) : ptr_(other.ptr_) { RefIfSet(); }
  reffed_ptr(reffed_ptr&& other) noexcept : ptr_(std::exchange(other.ptr_, nullptr)) {}
  ~reffed_ptr() {
    if (ptr_ != nullptr) {
      ptr_->Unref();
    }
  }

  /// The new object's reference is taken before the old one's is given back.
  reffed_ptr& operator=(reffed_ptr other) noexcept {
    std::swap(ptr_, other.ptr_);
    return *this;
  }

  T* get() const { return ptr_; }
  explicit operator bool() const { return ptr_ != nullptr; }
  T* operator->() const {
    Assert(ptr_ != nullptr, "ptr_ != nullptr", __PRETTY_FUNCTION__);
    return ptr_;
  }
  T& operator*() const { return *operator->(); }

 private:
  void RefIfSet() const {
    if (ptr_ != nullptr) {
      ptr_->Ref();
    }
  }

  T* ptr_ = nullptr;
};

static_assert(sizeof(reffed_ptr<int>) == sizeof(int*));

}  // namespace refcount
}  // namespace hyl::v2
