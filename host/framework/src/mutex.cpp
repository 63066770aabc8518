#include <hyl/mutex.h>

#include <hyl/hyl_assert.h>

namespace hyl::v2 {

Mutex::Mutex() {
  Assert(pthread_mutex_init(&native_, nullptr) == 0, "pthread_mutex_init", __PRETTY_FUNCTION__);
}

Mutex::~Mutex() {
  pthread_mutex_destroy(&native_);
}

void Mutex::lock() {
  Assert(pthread_mutex_lock(&native_) == 0, "pthread_mutex_lock", __PRETTY_FUNCTION__);
}

void Mutex::unlock() {
  Assert(pthread_mutex_unlock(&native_) == 0, "pthread_mutex_unlock", __PRETTY_FUNCTION__);
}

bool Mutex::try_lock() {
  return pthread_mutex_trylock(&native_) == 0;
}

}  // namespace hyl::v2
