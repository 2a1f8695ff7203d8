/* Clocks: objects that say what time it is by some time source.
 *
 * There is one host time clock: the time since the machine started, in nanoseconds, time asleep not counted. It is
 * the time of BRHostTimeGetUptimeNs, which run loops and timers go by as well. Every other clock states its time
 * relative to a reference clock, and chains of reference clocks end at the host time clock; <kiv/clock.h> makes them
 * and <pevrin/sync.h> converts between them.
 *
 * Who owns what: a clock retains its reference clock until it is invalidated or goes. The host time clock lives as long
 * as the process; retain and release leave it alone.
 *
 * Threads: any thread may call any function. Reading the host time clock takes no lock and does not enter the kernel.
 * Reading another clock holds its mutex, then that of its reference clock, and so on; a client's callbacks run with
 * them held.
 *
 * Failures pass through <kiv/error.h>. Besides the codes below, a reading returns what the clock's callbacks return.
 *
 *   PVClockRef clock = PVClockGetHostTimeClock();
 *   PVTime start = PVClockGetTime(clock);
 *   decodeOneFrame();
 *   double seconds = PVTimeGetSeconds(PVTimeSubtract(PVClockGetTime(clock), start));
 */
#ifndef PEVRIN_CLOCK_H
#define PEVRIN_CLOCK_H

#include <bedra/runtime.h>
#include <pevrin/time.h>

PV_BEGIN_DECLS

/* A clock. */
typedef struct PVClock *PVClockRef;

enum {
  /* A required argument is null. */
  kPVClockError_RequiredParameterMissing = -12745,
  /* The clock has been invalidated; or the version of a callbacks record is not 1. */
  kPVClockError_InvalidClock = -12746,
  kPVClockError_AllocationFailed = -12747,
  /* The clock's callbacks record has no getRate. */
  kPVClockError_Unimplemented = -4
};

/* The runtime type "KivClock". */
PV_EXPORT BRTypeID PVClockGetTypeID(void);

/* The host time clock. The caller need not retain it. */
PV_EXPORT PVClockRef PVClockGetHostTimeClock(void);

/* A time of the host time clock in ticks of the host's counter (BRHostTimeGetTicks): rounded to the nearest nanosecond,
 * half away from zero, and from there to ticks. 0 for a time that is negative or not a number. */
PV_EXPORT uint64_t PVClockConvertHostTimeToSystemUnits(PVTime hostTime);

/* The time of the host time clock at that tick, in timescale 1000000000. Ticks of more than 2^63 - 1 ns give that. */
PV_EXPORT PVTime PVClockMakeHostTimeFromSystemUnits(uint64_t hostTicks);

/* The clock's time now; kPVTimeInvalid when PVClockGetAnchorTime fails, or while the source has not said any time
 * yet. */
PV_EXPORT PVTime PVClockGetTime(PVClockRef clock);

/* The clock's time and its reference clock's at one instant: now, or when the source last looked. Both are the same for
 * the host time clock. Either pointer may be NULL. While the source has not said any time yet, the status is 0 and
 * the clock time kPVTimeInvalid.
 * Statuses, in this order: RequiredParameterMissing (clock is NULL); InvalidClock; kPVSyncError_NotImplemented (a clock
 * of external sync events; standard error says so too); those of reading the reference clock; those of the source. */
PV_EXPORT PVStatus PVClockGetAnchorTime(PVClockRef clock, PVTime *clockTimeOut, PVTime *referenceTimeOut);

/* Whether the two may drift apart although both keep their rates. Never for the same clock; always for clocks of two
 * kinds, for clocks of a kind that does not say, and for an invalidated one. Also true, and RequiredParameterMissing is
 * signalled, when an argument is NULL. */
PV_EXPORT bool PVClockMightDrift(PVClockRef clock, PVClockRef otherClock);

/* Ends the clock: the source is told to let go (once in a clock's life, here or when the last reference goes) and the
 * reference clock is released. From then on the clock has no time. Again does nothing. Callable from inside the clock's
 * callbacks, too. The host time clock must not be invalidated: the process crashes.
 * Signals RequiredParameterMissing: clock is NULL. */
PV_EXPORT void PVClockInvalidate(PVClockRef clock);

PV_END_DECLS

#endif
