#include "output.hpp"

#include <unistd.h>

#include <cerrno>

bool Output::flush() {
  const char* at = buffer_.data();
  size_t left = buffer_.size();
  while (left > 0 && error_ == 0) {
    const ssize_t written = ::write(STDOUT_FILENO, at, left);
    if (written >= 0) {
      at += written;
      left -= static_cast<size_t>(written);
    } else if (errno != EINTR) {
      error_ = errno;
    }
  }
  buffer_.clear();
  return error_ == 0;
}
