// The uptime for C++ programs that read it so often that a call counts: what BRHostTimeGetUptimeNs answers.
#ifndef BEDRA_HOST_TIME_HPP
#define BEDRA_HOST_TIME_HPP

#include <time.h>

#include <cstdint>

namespace br {

inline uint64_t hostUptimeNs() {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<uint64_t>(now.tv_sec) * 1'000'000'000u + static_cast<uint64_t>(now.tv_nsec);
}

}  // namespace br

#endif
