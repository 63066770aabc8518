// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <new>
#include <utility>

#include <hyl/heap.h>
#include <hyl/hyl_err.h>

namespace hyl::v2 {

/// The part of Vector that does not depend on the element type. The framework implements it once
/// for all element types and reaches the elements through the three virtual operations.
class __attribute__((visibility("default"))) VectorBase : public HeapAllocable {
 public:
  VectorBase(const VectorBase&) = delete;
  VectorBase& operator=(const VectorBase&) = delete;
  virtual ~VectorBase();

  /// Makes an empty element in raw storage.
  virtual void ConstructElem(void* elem) = 0;
  /// Ends an element's life; its storage becomes raw.
  virtual void DestroyElem(void* elem) = 0;
  /// Makes the element `dst`, in raw storage, from `src`, and ends the life of `src`.
  virtual void MoveElem(void* src, void* dst) = 0;

 protected:
  VectorBase() = default;

  /// Makes the vector `new_count` elements of `elem_size` bytes long, constructing or destroying
  /// elements at its end. Returns kOk; any other result means that memory ran out, and the vector
  /// is unchanged.
  HylErr Resize(size_t new_count, size_t elem_size, HylHeapEnum heap);

  /// Destroys all elements and frees the storage. A derived class calls it from its destructor,
  /// where its element operations still exist.
  void DestroyVector(size_t elem_size);

  void Swap(VectorBase& other) noexcept {
    std::swap(data_, other.data_);
    std::swap(count_, other.count_);
    std::swap(reserved_, other.reserved_);
  }

  void* data_ = nullptr;
  size_t count_ = 0;
  size_t reserved_ = 0;  // used by VectorBase's own functions alone
};

static_assert(sizeof(VectorBase) == 32);

/// The framework's growable array on heap `H`.
///
/// Not thread-safe: a vector shared between threads needs its owner's lock. References to elements
/// stay valid until the next change of size.
template <typename T, HylHeapEnum H = HylHeapEnum::kDefault>
class Vector final : public VectorBase {
 public:
  Vector() = default;
  Vector(Vector&& other) noexcept { Swap(other); }
  ~Vector() override { DestroyVector(sizeof(T)); }

  Vector& operator=(Vector&& other) noexcept {
    if (this != &other) {
      DestroyVector(sizeof(T));
      Swap(other);
    }
    return *this;
  }

  void ConstructElem(void* elem) override { ::new (elem) T(); }
  void DestroyElem(void* elem) override { static_cast<T*>(elem)->~T(); }
  void MoveElem(void* src, void* dst) override {
    T* const source = static_cast<T*>(src);
    ::new (dst) T(std::move(*source));
    source->~T();
  }

  /// Makes the vector `count` elements long; new elements are empty (zero). Returns kOk; any other
  /// result means that memory ran out, and the vector is unchanged.
  [[nodiscard]] HylErr Resize(size_t count) { return VectorBase::Resize(count, sizeof(T), H); }

  size_t size() const { return count_; }
  bool empty() const { return count_ == 0; }
  /// The first of size() elements; null when the vector has never held any.
  T* data() { return static_cast<T*>(data_); }
  const T* data() const { return static_cast<const T*>(data_); }
  T& operator[](size_t index) { return data()[index]; }
  const T& operator[](size_t index) const { return data()[index]; }
  T* begin() { return data(); }
  T* end() { return data() + count_; }
  const T* begin() const { return data(); }
  const T* end() const { return data() + count_; }
};

static_assert(sizeof(Vector<float>) == sizeof(VectorBase));

}  // namespace hyl::v2
