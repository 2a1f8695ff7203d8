// Absolute and host time. clock_gettime answers both without entering the kernel.
#include <bedra/time.h>

#include <time.h>

#include <bedra/host_time.hpp>

#include "src/clock_offset.hpp"

namespace {

constexpr int64_t kEpochUnixSeconds = 978307200;  // 2001-01-01 00:00:00 UTC

int64_t nanosecondsOf(clockid_t clock) {
  timespec now;
  clock_gettime(clock, &now);
  return int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
}

}  // namespace

// The coarse clocks show the last tick of the kernel's timekeeping, both the same one unless it comes between
// the two readings. Of the fine clocks the second is always read a little after the first.
br::ClockOffset br::readClockOffset() {
  int64_t tickNs = nanosecondsOf(CLOCK_MONOTONIC_COARSE);
  for (;;) {
    const int64_t calendarNs = nanosecondsOf(CLOCK_REALTIME_COARSE) - kEpochUnixSeconds * 1'000'000'000;
    const int64_t againNs = nanosecondsOf(CLOCK_MONOTONIC_COARSE);
    if (againNs == tickNs) return {calendarNs - tickNs, tickNs};
    tickNs = againNs;
  }
}

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
