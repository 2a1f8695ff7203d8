// The process-wide error counter and the log of errors.
#include "runtime/error.hpp"

#include <bedra/log.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace {

constinit std::atomic<uint64_t> errorCount{0};

bool errorsAreLogged() {
  static const bool logged = [] {
    const char* value = std::getenv("PEVRIN_LOG_ERRORS");
    return value && std::strcmp(value, "1") == 0;
  }();
  return logged;
}

}  // namespace

PVStatus KivSignalErrorAt(PVStatus status, const char* file, int32_t line, const char* function) {
  errorCount.fetch_add(1, std::memory_order_relaxed);
  if (errorsAreLogged()) {
    const int why = errno;
    BRLog(kBRLogLevelError, "%s:%d %s: status %d", file ? file : "?", line, function ? function : "?", status);
    errno = why;
  }
  return status;
}

uint64_t KivGetErrorCount(void) { return errorCount.load(std::memory_order_relaxed); }
