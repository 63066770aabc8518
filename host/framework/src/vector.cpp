#include <hyl/vector.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <mutex>
#include <utility>

#include <hyl/host/hooks.h>

namespace hyl::v2 {
namespace {

constexpr size_t kMinElems = 16;
/// The framework's heaps give no larger block. Also keeps byte counts from overflowing.
constexpr size_t kMaxBytes = size_t{1} << 30;

char* ElemAt(void* data, size_t index, size_t elem_size) {
  return static_cast<char*>(data) + index * elem_size;
}

struct GrowthHook {
  std::mutex mutex;                                    // guards `fails`
  std::shared_ptr<const std::function<bool()>> fails;  // null when there is none
};

/// Keeps vectors from taking the hook's mutex when there is no hook.
std::atomic<bool> hook_set{false};

GrowthHook& TheGrowthHook() {
  static GrowthHook* const hook = new GrowthHook;  // never destroyed: vectors outlive statics
  return *hook;
}

/// Whether a test wants this growth of a vector to fail.
bool GrowthFails() {
  if (!hook_set.load(std::memory_order_relaxed)) [[likely]] {
    return false;
  }
  std::shared_ptr<const std::function<bool()>> fails;
  {
    const std::lock_guard lock(TheGrowthHook().mutex);
    fails = TheGrowthHook().fails;
  }
  return fails != nullptr && (*fails)();
}

/// How many elements to make room for, so that appending one at a time costs few moves.
size_t GrownCapacity(size_t capacity, size_t wanted, size_t max) {
  return std::min(std::max({kMinElems, 2 * capacity, wanted}), max);
}

}  // namespace

void host::FailVectorGrowth(std::function<bool()> fails) {
  auto hook = fails ? std::make_shared<const std::function<bool()>>(std::move(fails)) : nullptr;
  const std::lock_guard lock(TheGrowthHook().mutex);
  hook_set.store(hook != nullptr, std::memory_order_relaxed);
  TheGrowthHook().fails.swap(hook);
}

VectorBase::~VectorBase() = default;

HylErr VectorBase::Resize(size_t new_count, size_t elem_size, HylHeapEnum heap) {
  while (count_ > new_count) {
    DestroyElem(ElemAt(data_, --count_, elem_size));
  }
  if (count_ == new_count) {
    return HylErr::kOk;
  }
  const size_t max_count = elem_size > 0 ? kMaxBytes / elem_size : 0;
  if (heap != HylHeapEnum::kDefault || new_count > max_count || GrowthFails()) {
    return HylErr::kFailed;
  }
  if (new_count > reserved_) {
    const size_t capacity = GrownCapacity(reserved_, new_count, max_count);
    void* const fresh = ::operator new(capacity* elem_size, std::nothrow);
    if (fresh == nullptr) {
      return HylErr::kFailed;
    }
    for (size_t i = 0; i < count_; ++i) {
      MoveElem(ElemAt(data_, i, elem_size), ElemAt(fresh, i, elem_size));
    }
    ::operator delete(data_);
    data_ = fresh;
    reserved_ = capacity;
  }
  char* const end = ElemAt(data_, new_count, elem_size);
  for (char* elem = ElemAt(data_, count_, elem_size); elem != end; elem += elem_size) {
    ConstructElem(elem);
  }
  count_ = new_count;
  return HylErr::kOk;
}

void VectorBase::DestroyVector(size_t elem_size) {
  char* const begin = ElemAt(data_, 0, elem_size);
  for (char* elem = ElemAt(data_, count_, elem_size); elem != begin;) {
    elem -= elem_size;
    DestroyElem(elem);
  }
  ::operator delete(data_);
  data_ = nullptr;
  count_ = 0;
  reserved_ = 0;
}

}  // namespace hyl::v2
