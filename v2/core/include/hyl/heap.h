// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>

namespace hyl::v2 {

/// Selects the framework heap that backs a container.
enum class HylHeapEnum : uint8_t {
  kDefault = 1,
};

/// Base of the classes whose objects the framework may place on its own heaps: deleting one gives
/// the storage back to the heap that it came from. Only the framework creates such objects
/// dynamically; everyone else keeps them on the stack or as members, and `new` is refused.
class __attribute__((visibility("default"))) HeapAllocable {
 public:
  static void* operator new(size_t size) = delete;
  static void* operator new(size_t size, void* place) = delete;
  static void operator delete(void* object);
};

}  // namespace hyl::v2
