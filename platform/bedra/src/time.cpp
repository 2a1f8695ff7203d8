// Absolute and host time. clock_gettime answers both without entering the kernel.
#include <bedra/time.h>

#include <time.h>

#include <bedra/host_time.hpp>

namespace {

constexpr int64_t kEpochUnixSeconds = 978307200;  // 2001-01-01 00:00:00 UTC

}  // namespace

BRAbsoluteTime BRAbsoluteTimeGetCurrent(void) {
  timespec now;
  clock_gettime(CLOCK_REALTIME, &now);
  return static_cast<double>(now.tv_sec - kEpochUnixSeconds) + static_cast<double>(now.tv_nsec) * 1e-9;
}

uint64_t BRHostTimeGetTicks(void) { return br::hostUptimeNs(); }

void BRHostTimeGetTicksToNsRatio(uint32_t* numerator, uint32_t* denominator) {
  if (numerator) *numerator = 1;
  if (denominator) *denominator = 1;
}

// The monotonic clock starts with the machine and stands still while it sleeps.
uint64_t BRHostTimeGetUptimeNs(void) { return br::hostUptimeNs(); }
