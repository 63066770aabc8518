#pragma once

#include "file_descriptor.h"

namespace hyl::v2::tool {

/// Turns SIGINT, SIGTERM and SIGHUP, as far as they are not ignored, into something to wait for.
/// While it lives they end nothing: they stay pending, so that a request is never lost and never
/// cuts an operation short. Has to be made before the first thread is started, which inherits the
/// blocked signals.
class Interrupt {
 public:
  Interrupt();

  /// Readable for good once the user has asked the tool to end; for poll.
  int fd() const { return signals_.get(); }

 private:
  FileDescriptor signals_;
};

}  // namespace hyl::v2::tool
