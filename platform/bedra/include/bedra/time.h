/* Absolute time, the host's tick counter and its uptime.
 *
 * Absolute time is what the calendar says, and jumps when the system's clock is set. Host time never jumps
 * nor runs backward, stands still while the machine sleeps, and means nothing on another machine or after a
 * restart: measure spans and run clocks with it. None of the functions enters the kernel; all may be called
 * from any thread.
 *
 *   uint32_t numerator, denominator;
 *   BRHostTimeGetTicksToNsRatio(&numerator, &denominator);
 *   uint64_t start = BRHostTimeGetTicks();
 *   decodeOneFrame();
 *   uint64_t elapsedNs = (BRHostTimeGetTicks() - start) * numerator / denominator;
 */
#ifndef BEDRA_TIME_H
#define BEDRA_TIME_H

#include <bedra/base.h>

BR_BEGIN_DECLS

/* Seconds since 2001-01-01 00:00:00 UTC, negative before. A double resolves about a tenth of a microsecond
 * today. */
typedef double BRAbsoluteTime;

/* The time now, by the system's calendar clock. */
BR_EXPORT BRAbsoluteTime BRAbsoluteTimeGetCurrent(void);

/* The monotonic tick counter. */
BR_EXPORT uint64_t BRHostTimeGetTicks(void);

/* The ratio that turns ticks into nanoseconds: ticks * numerator / denominator. Constant while the program
 * runs; 1/1 on Linux. Either pointer may be NULL. */
BR_EXPORT void BRHostTimeGetTicksToNsRatio(uint32_t *numerator, uint32_t *denominator);

/* Nanoseconds since the machine started, time asleep not counted. */
BR_EXPORT uint64_t BRHostTimeGetUptimeNs(void);

BR_END_DECLS

#endif
