/* Absolute time, the host's tick counter and its uptime. */
#ifndef BEDRA_TIME_H
#define BEDRA_TIME_H

#include <bedra/base.h>

BR_BEGIN_DECLS

/* Seconds since 2001-01-01 00:00:00 UTC. */
typedef double BRAbsoluteTime;
BR_EXPORT BRAbsoluteTime BRAbsoluteTimeGetCurrent(void);

/* The monotonic tick counter, and the ratio that turns its ticks into nanoseconds. */
BR_EXPORT uint64_t BRHostTimeGetTicks(void);
BR_EXPORT void BRHostTimeGetTicksToNsRatio(uint32_t *numerator, uint32_t *denominator);
/* Nanoseconds since the machine started, time asleep not counted. */
BR_EXPORT uint64_t BRHostTimeGetUptimeNs(void);

BR_END_DECLS

#endif
