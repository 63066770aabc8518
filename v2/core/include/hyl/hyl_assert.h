#pragma once

#include <cstdio>
#include <cstdlib>

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

}  // namespace hyl::v2
