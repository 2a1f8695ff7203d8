#include "progress.hpp"

#include <fmt/format.h>
#include <unistd.h>

#include <cstdio>

Progress::Progress()
    : isShown_(isatty(STDERR_FILENO) && !isatty(STDOUT_FILENO)),
      next_(Clock::now() + std::chrono::milliseconds(500)) {}

void Progress::update(const char* what, int64_t done, int64_t of) {
  const auto now = Clock::now();
  if (now < next_) return;
  next_ = now + std::chrono::milliseconds(100);
  const double share = of > 0 ? 100.0 * static_cast<double>(done) / static_cast<double>(of) : 100;
  std::fputs(fmt::format("\r{}: {:3.0f} %\x1b[K", what, share).c_str(), stderr);
  std::fflush(stderr);
  isWritten_ = true;
}

void Progress::clear() {
  if (!isWritten_) return;
  std::fputs("\r\x1b[K", stderr);
  std::fflush(stderr);
  isWritten_ = false;
}
