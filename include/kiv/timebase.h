/* Timebases, for sibling media layers: their sync transforms, retargeting of read-only timebases, and the Kiv names.
 * Above <pevrin/timebase.h> and <pevrin/timebase_timer.h>, whose rules hold here too.
 *
 *   PVSyncTransform fromClock;
 *   PVStatus status = KivTimebaseGetTransformRelativeToUltimateMasterClock(timebase, kKivSyncDirection_FromReference,
 *                                                                          &fromClock);
 *   PVTime then = KivSyncApplyTransform(&fromClock, clockTime); */
#ifndef KIV_TIMEBASE_H
#define KIV_TIMEBASE_H

#include <kiv/sync.h>
#include <pevrin/timebase_timer.h>

PV_BEGIN_DECLS

/* "KivTimebaseEffectiveRateChanged" and "KivTimebaseTimeJumped". No timebase posts them. */
PV_EXPORT extern const BRStringRef kKivTimebaseNotification_EffectiveRateChanged;
PV_EXPORT extern const BRStringRef kKivTimebaseNotification_TimeJumped;

/* ---- Transforms between a timebase and its masters: kKivSyncDirection_FromReference leads from the master's times to
 * the timebase's, ToReference the other way, which a timebase at rate 0 does not have: kPVSyncError_RateMustBeNonZero.
 * A view answers for its target. Each: RequiredParameterMissing (timebase or transformOut is NULL), and what
 * <kiv/sync.h> says of anchors that are not numbers. */

/* Between the timebase and the master that it follows itself. */
PV_EXPORT PVStatus KivTimebaseGetTransformRelativeToMaster(PVTimebaseRef timebase, KivSyncDirection direction,
                                                           PVSyncTransform *transformOut);

/* Over the whole chain of masters, up to the clock at its end. */
PV_EXPORT PVStatus KivTimebaseGetTransformRelativeToUltimateMasterClock(PVTimebaseRef timebase,
                                                                        KivSyncDirection direction,
                                                                        PVSyncTransform *transformOut);

/* Over as many masters as the height says: 1 is the transform to the master.
 * RequiredParameterMissing also when the height is below 1; InvalidParameter: the chain is shorter. */
PV_EXPORT PVStatus KivTimebaseGetTransformRelativeToMasterAtHeight(PVTimebaseRef timebase, int64_t height,
                                                                   KivSyncDirection direction,
                                                                   PVSyncTransform *transformOut);

/* The clock at the end of the chain, which the caller releases, and the number of masters on the way, the clock
 * included. heightOut may be NULL and is written only when there is a clock. NULL for NULL. */
PV_EXPORT PVClockRef KivTimebaseCopyUltimateMasterClockAndHeight(PVTimebaseRef timebase, int64_t *heightOut);

/* ---- Read-only timebases */

/* Turns a view to another target, which is retained. Posts MasterWillChange, then MasterDidChange, then
 * EffectiveRateChanged if the effective rate has changed and TimeJumped if the new target shows another time. Between
 * targets on one clock and at one rate the time jumps when their anchors say so; between others it always does. The
 * view's timers are kept in step. When this returns, no notification of the old target is being passed on any more, but
 * for one that the calling thread itself is in. RequiredParameterMissing (either); InvalidParameter: the first is not
 * read-only, or the new target is the view or follows it, over whatever chain of masters and targets; AllocationFailed:
 * no memory for the first payload; kPVNotificationCenterError_AllocationFailed: it cannot listen to the new target;
 * what KivTimebaseGetTransformRelativeToUltimateMasterClock says of either target. When it fails after
 * MasterWillChange, MasterDidChange follows all the same, and the target stays. */
PV_EXPORT PVStatus KivReadOnlyTimebaseSetTargetTimebase(PVTimebaseRef readOnlyTimebase, PVTimebaseRef newTarget);

/* ---- References. NULL is allowed; Retain returns its argument. */

/* One reference more, and one fewer. */
PV_EXPORT PVTimebaseRef KivTimebaseRetain(PVTimebaseRef timebase);
PV_EXPORT void KivTimebaseRelease(PVTimebaseRef timebase);

/* ---- The PV functions under the names that sibling layers use. */

PV_EXPORT BRTypeID KivTimebaseGetTypeID(void);
PV_EXPORT PVStatus KivTimebaseCreateWithMasterClock(BRAllocatorRef allocator, PVClockRef masterClock,
                                                    PVTimebaseRef *timebaseOut);
PV_EXPORT PVStatus KivTimebaseCreateWithMasterTimebase(BRAllocatorRef allocator, PVTimebaseRef masterTimebase,
                                                       PVTimebaseRef *timebaseOut);
PV_EXPORT BRTypeRef KivTimebaseGetMaster(PVTimebaseRef timebase);
PV_EXPORT PVClockRef KivTimebaseGetMasterClock(PVTimebaseRef timebase);
PV_EXPORT PVTimebaseRef KivTimebaseGetMasterTimebase(PVTimebaseRef timebase);
PV_EXPORT PVClockRef KivTimebaseGetUltimateMasterClock(PVTimebaseRef timebase);
PV_EXPORT PVTime KivTimebaseGetTime(PVTimebaseRef timebase);
PV_EXPORT PVTime KivTimebaseGetTimeWithTimeScale(PVTimebaseRef timebase, PVTimeScale timescale,
                                                 PVTimeRoundingMethod method);
PV_EXPORT PVStatus KivTimebaseSetTime(PVTimebaseRef timebase, PVTime time);
PV_EXPORT PVStatus KivTimebaseSetAnchorTime(PVTimebaseRef timebase, PVTime timebaseTime, PVTime immediateMasterTime);
PV_EXPORT double KivTimebaseGetRate(PVTimebaseRef timebase);
PV_EXPORT PVStatus KivTimebaseGetTimeAndRate(PVTimebaseRef timebase, PVTime *timeOut, double *rateOut);
PV_EXPORT PVStatus KivTimebaseSetRate(PVTimebaseRef timebase, double rate);
PV_EXPORT PVStatus KivTimebaseSetRateAndAnchorTime(PVTimebaseRef timebase, double rate, PVTime timebaseTime,
                                                   PVTime immediateMasterTime);
PV_EXPORT double KivTimebaseGetEffectiveRate(PVTimebaseRef timebase);
PV_EXPORT PVStatus KivTimebaseSetMasterClock(PVTimebaseRef timebase, PVClockRef masterClock);
PV_EXPORT PVStatus KivTimebaseSetMasterTimebase(PVTimebaseRef timebase, PVTimebaseRef masterTimebase);
PV_EXPORT PVStatus KivTimebaseAddTimer(PVTimebaseRef timebase, BRRunLoopTimerRef timer, BRRunLoopRef runLoop);
PV_EXPORT PVStatus KivTimebaseRemoveTimer(PVTimebaseRef timebase, BRRunLoopTimerRef timer);
PV_EXPORT PVStatus KivTimebaseSetTimerNextFireTime(PVTimebaseRef timebase, BRRunLoopTimerRef timer, PVTime fireTime,
                                                   PVTimebaseTimerFlags flags);
PV_EXPORT PVStatus KivTimebaseSetTimerToFireImmediately(PVTimebaseRef timebase, BRRunLoopTimerRef timer);
PV_EXPORT PVStatus KivTimebaseAddTimerDispatchSource(PVTimebaseRef timebase, BRTimerSourceRef source);
PV_EXPORT PVStatus KivTimebaseRemoveTimerDispatchSource(PVTimebaseRef timebase, BRTimerSourceRef source);
PV_EXPORT PVStatus KivTimebaseSetTimerDispatchSourceNextFireTime(PVTimebaseRef timebase, BRTimerSourceRef source,
                                                                 PVTime fireTime, PVTimebaseTimerFlags flags);
PV_EXPORT PVStatus KivTimebaseSetTimerDispatchSourceToFireImmediately(PVTimebaseRef timebase,
                                                                      BRTimerSourceRef source);

PV_END_DECLS

#endif
