#pragma once

#include <string>
#include <string_view>

#include "interrupt.h"

namespace hyl::v2::tool {

/// Standard output, buffered until Flush. Used by the main thread alone.
class Output {
 public:
  Output(int fd, const Interrupt& interrupt) : fd_(fd), interrupt_(interrupt) {}

  /// Adds `text` to what is to be written.
  void Add(std::string_view text) { pending_ += text; }

  /// Writes what has been added. Throws QuietEnd when the reader has gone, or when the user
  /// interrupts while the reader does not read; throws Failure when it cannot be written.
  void Flush();

  int fd() const { return fd_; }

 private:
  void WaitUntilWritable() const;

  const int fd_;
  const Interrupt& interrupt_;
  std::string pending_;
};

}  // namespace hyl::v2::tool
