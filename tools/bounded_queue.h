#pragma once

#include <sys/eventfd.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>
#include <new>
#include <optional>
#include <utility>

#include "failure.h"
#include "file_descriptor.h"

namespace hyl::v2::tool {

/// Hands data from the framework's threads to the main thread. A full queue drops its oldest entry
/// and counts it, so that a held-up output neither grows memory nor holds up the framework.
template <typename T>
class BoundedQueue {
 public:
  explicit BoundedQueue(size_t capacity)
      : capacity_(capacity), filled_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (filled_.get() < 0) {
      throw Failure(ExitCode::kInternal, "cannot make a queue: close some files and try again");
    }
  }

  /// Adds the entry that `make` returns. Any thread; waits only for another Push or a Pop. An entry
  /// for which there is no memory is dropped: nothing may be thrown through a callback.
  template <typename Make>
  void Push(Make make) noexcept {
    try {
      Add(make());
    } catch (const std::bad_alloc&) {
      const std::lock_guard lock(mutex_);
      ++dropped_;
    }
  }

  /// The oldest entry, or none. Does not wait.
  std::optional<T> Pop() {
    const std::lock_guard lock(mutex_);
    if (entries_.empty()) {
      return std::nullopt;
    }
    std::optional<T> entry(std::move(entries_.front()));
    entries_.pop_front();
    if (entries_.empty()) {
      eventfd_t ignored = 0;
      eventfd_read(filled_.get(), &ignored);
    }
    return entry;
  }

  /// Entries lost so far.
  uint64_t Dropped() const {
    const std::lock_guard lock(mutex_);
    return dropped_;
  }

  /// Readable while the queue holds an entry; for poll.
  int fd() const { return filled_.get(); }

 private:
  void Add(T&& entry) {
    const std::lock_guard lock(mutex_);
    entries_.push_back(std::move(entry));
    if (entries_.size() > capacity_) {
      entries_.pop_front();
      ++dropped_;
    }
    eventfd_write(filled_.get(), 1);
  }

  const size_t capacity_;
  mutable std::mutex mutex_;  // guards entries_ and dropped_
  std::deque<T> entries_;
  uint64_t dropped_ = 0;
  const FileDescriptor filled_;
};

}  // namespace hyl::v2::tool
