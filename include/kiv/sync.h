/* Sync transforms, and the Kiv names of <pevrin/sync.h>.
 *
 *   PVSyncTransform fromClock, toHost, fromClockToHost;
 *   PVStatus status = KivClockGetTransformRelativeToHostTimeClock(clock, kKivSyncDirection_ToReference, &toHost);
 *   if (status == 0) status = KivSyncCombineTransforms(&fromClock, &toHost, &fromClockToHost);
 *   if (status == 0) fireTime = KivSyncApplyTransform(&fromClockToHost, time);
 *
 * Every function may be called from any thread. An output may be the same record as an input. */
#ifndef KIV_SYNC_H
#define KIV_SYNC_H

#include <pevrin/notification_center.h>
#include <pevrin/sync.h>

PV_BEGIN_DECLS

/* Which way a transform between an object and its reference clock (or a timebase's master) leads. Anything but 0 means
 * FromReference. */
typedef uint32_t KivSyncDirection;
enum {
  kKivSyncDirection_ToReference = 0, /* from the object's times to the reference's */
  kKivSyncDirection_FromReference = 1
};

/* (time - fromAnchor) * rate + toAnchor, by PVTimeSubtract, PVTimeMultiplyByFloat64 and PVTimeAdd, with their rules for
 * timescales, rounding, epochs and overflow. Invalid, and signalled as kPVSyncError_RequiredParameterMissing, when the
 * time or an anchor is not a number or transform is NULL. */
PV_EXPORT PVTime KivSyncApplyTransform(const PVSyncTransform *transform, PVTime time);

/* The transform that applies first, then second: first's fromAnchor, the product of the rates, and second applied to
 * first's toAnchor.
 * Statuses: kPVSyncError_RequiredParameterMissing (a pointer is NULL); kPVSyncError_InvalidParameter (one of the four
 * anchors is not a number). */
PV_EXPORT PVStatus KivSyncCombineTransforms(const PVSyncTransform *first, const PVSyncTransform *second,
                                            PVSyncTransform *combinedOut);

/* The way back: anchors swapped, the rate 1 / rate. A NaN rate stays NaN.
 * Statuses: kPVSyncError_RequiredParameterMissing (a pointer is NULL or an anchor is not a number);
 * kPVSyncError_RateMustBeNonZero. */
PV_EXPORT PVStatus KivSyncInvertTransform(const PVSyncTransform *transform, PVSyncTransform *inverseOut);

/* Where timebases announce their changes: PVNotificationCenterGetDefaultLocalCenter(). */
PV_EXPORT PVNotificationCenterRef KivSyncGetNotificationCenter(void);

/* Twins. */
PV_EXPORT double KivSyncGetRelativeRate(PVClockOrTimebaseRef of, PVClockOrTimebaseRef relativeTo);
PV_EXPORT PVStatus KivSyncGetRelativeRateAndAnchorTime(PVClockOrTimebaseRef of, PVClockOrTimebaseRef relativeTo,
                                                       double *rateOut, PVTime *ofAnchorTimeOut,
                                                       PVTime *relativeToAnchorTimeOut);
PV_EXPORT PVTime KivSyncConvertTime(PVTime time, PVClockOrTimebaseRef from, PVClockOrTimebaseRef to);
PV_EXPORT bool KivSyncMightDrift(PVClockOrTimebaseRef a, PVClockOrTimebaseRef b);
PV_EXPORT PVTime KivSyncGetTime(PVClockOrTimebaseRef clockOrTimebase);

PV_END_DECLS

#endif
