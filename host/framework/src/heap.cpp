#include <hyl/heap.h>

#include <new>

namespace hyl::v2 {

// NOLINTNEXTLINE(cert-dcl54-cpp): creating such objects is the framework's own affair
void HeapAllocable::operator delete(void* object) {
  ::operator delete(object);
}

}  // namespace hyl::v2
