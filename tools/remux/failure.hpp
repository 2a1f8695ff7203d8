// What ends a remux: thrown, and told to the user as it is.
#pragma once

#include <fmt/format.h>
#include <kiv/byte_stream.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string_view>

struct RemuxFailure : std::runtime_error {
  using std::runtime_error::runtime_error;
};

inline void check(PVStatus status, std::string_view what) {
  if (status == kKivByteStreamError_WriteFailed)
    throw RemuxFailure(fmt::format("{}: {}", what, std::strerror(errno)));
  if (status != kPVStatus_Success) throw RemuxFailure(fmt::format("{} (status {})", what, status));
}
