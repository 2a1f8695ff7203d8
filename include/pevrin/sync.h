/* Sync: how the time of one clock or timebase runs beside that of another.
 *
 * Every function takes clocks and timebases alike. What it answers rests on the sync transform between the two, an
 * affine map t -> (t - fromAnchor) * rate + toAnchor, which is found as follows:
 *  - between a clock and a timebase that hangs on it: along the timebase's chain of masters;
 *  - between two timebases on one ultimate master clock: along both chains up to the nearest common master, so that
 *    the clock need not be read;
 *  - in all other cases: through the host time clock.
 * A side that stands still (rate 0) has no inverse: nothing can be converted from it.
 *
 * Threads: any thread may call any function. The links of a chain are read one after the other: while another thread
 * changes masters, a conversion may mix what stood before with what stands after.
 *
 *   PVTime fire = PVSyncConvertTime(presentation, timebase, PVClockGetHostTimeClock());   // invalid while paused
 */
#ifndef PEVRIN_SYNC_H
#define PEVRIN_SYNC_H

#include <pevrin/clock.h>

PV_BEGIN_DECLS

/* A clock or a timebase. */
typedef BRTypeRef PVClockOrTimebaseRef;

enum {
  /* A required argument is null, or a time is not a number. */
  kPVSyncError_RequiredParameterMissing = -12752,
  /* An anchor to be combined is not a number; no chain leads to the host time clock; or the object is neither a clock
   * nor a timebase. */
  kPVSyncError_InvalidParameter = -12753,
  /* A rate of 0 where an inverse is needed. */
  kPVSyncError_RateMustBeNonZero = -12755,
  /* A class of clock that has no time yet. */
  kPVSyncError_NotImplemented = -12756
};

/* t -> (t - fromAnchor) * rate + toAnchor, from the times of a source to those of a destination. */
typedef struct PVSyncTransform {
  PVTime fromAnchor; /* a time of the source */
  double rate;       /* seconds of the destination per second of the source */
  PVTime toAnchor;   /* the time of the destination at fromAnchor */
} PVSyncTransform;

/* How fast `of` runs, in its seconds per second of `relativeTo`. NaN when no transform leads from `relativeTo` to `of`;
 * why is signalled. */
PV_EXPORT double PVSyncGetRelativeRate(PVClockOrTimebaseRef of, PVClockOrTimebaseRef relativeTo);

/* The transform from `relativeTo` to `of` in pieces: its rate and the times that both show at one instant, which need
 * not be now. Any of the pointers may be NULL.
 * Statuses: RequiredParameterMissing (of or relativeTo is NULL); InvalidParameter; RateMustBeNonZero; those of
 * PVClockGetAnchorTime and of timebases. */
PV_EXPORT PVStatus PVSyncGetRelativeRateAndAnchorTime(PVClockOrTimebaseRef of, PVClockOrTimebaseRef relativeTo,
                                                      double *rateOut, PVTime *ofAnchorTimeOut,
                                                      PVTime *relativeToAnchorTimeOut);

/* The time that `to` shows when `from` shows `time`; the very time when both are the same object. kPVTimeInvalid when
 * no transform leads there, and, signalled as RequiredParameterMissing, when an object is NULL or the time is not a
 * number. */
PV_EXPORT PVTime PVSyncConvertTime(PVTime time, PVClockOrTimebaseRef from, PVClockOrTimebaseRef to);

/* Whether the two may drift apart: PVClockMightDrift of their ultimate master clocks. True, and
 * RequiredParameterMissing is signalled, when one is NULL; true, signalled as InvalidParameter, when one is neither
 * clock nor timebase. */
PV_EXPORT bool PVSyncMightDrift(PVClockOrTimebaseRef a, PVClockOrTimebaseRef b);

/* The time of the clock or timebase now. kPVTimeInvalid, and RequiredParameterMissing is signalled, for NULL;
 * kPVTimeInvalid, signalled as InvalidParameter, for an object that is neither. */
PV_EXPORT PVTime PVSyncGetTime(PVClockOrTimebaseRef clockOrTimebase);

PV_END_DECLS

#endif
