#include "log.h"

namespace hyl::v2::spectral {

void WriteLog(const char* file, unsigned line, android::base::LogSeverity severity,
              const std::string& message) {
  android::base::LogMessage(file, line, severity, kLogTag, -1).stream()
      << kLogTag << ": HYL_SpAPI: " << message;
}

}  // namespace hyl::v2::spectral
