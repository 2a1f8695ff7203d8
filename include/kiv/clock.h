/* Derived clocks: making clocks of other time sources, and the Kiv names of <pevrin/clock.h>.
 *
 * The creator's callbacks say, when asked, what time the source shows and what its reference clock showed at that
 * instant. Between two questions at least minimumInterval of the reference clock's time passes; in between the
 * clock runs on from the last answer at the rate that getRate then said (1 where that is missing or not a finite
 * number). What the clock asks anew for at once: a discontinuity that was reported, a reference clock that has gone
 * backward, a last answer without a time.
 *
 *   static PVStatus deckTime(PVClockRef clock, PVTime *clockTimeOut, PVTime *referenceTimeOut);
 *   static double deckRate(PVClockRef clock);
 *   static const KivDerivedClockCallbacks deck = {.version = 1, .getRate = deckRate, .getAnchorTime = deckTime};
 *   PVStatus status = KivDerivedClockCreateWithGetTimeCallback(NULL, &deck, PVClockGetHostTimeClock(), false, &clock,
 *                                                              PVTimeMake(1, 10));
 */
#ifndef KIV_CLOCK_H
#define KIV_CLOCK_H

#include <kiv/sync.h>

PV_BEGIN_DECLS

/* The time source of a kind of clocks: a static record that outlives all of them; clocks are of one kind when they
 * share it. A clock's callbacks run with its mutex held, on any thread, except that mightDrift runs with no lock and
 * must cope with clocks that are being invalidated; what it gets from KivDerivedClockGetDerivedStorage stays in place.
 * Only getAnchorTime is required. */
#pragma pack(push, 4)
typedef struct KivDerivedClockCallbacks {
  uint32_t version;                 /* must be 1 */
  uint32_t derivedStorageSizeBytes; /* zero-filled room in each clock for the creator's use */
  int32_t reserved;                 /* 0 */
  /* What a debugger should show beside the clock; the caller releases it. */
  BRStringRef (*copyDebugDesc)(PVClockRef clock);
  /* Lets go of the source: called once, by PVClockInvalidate or the last release. The reference clock is still
   * there. */
  void (*finalize)(PVClockRef clock);
  /* Whether two clocks of this kind may drift apart. They are never the same clock. */
  bool (*mightDrift)(PVClockRef clock, PVClockRef otherClock);
  /* Seconds of the clock per second of its reference clock. Must not ask for a transform of the clock itself. */
  double (*getRate)(PVClockRef clock);
  /* The clock's time now and the reference clock's at the same instant; neither is NULL. A clock time that is not
   * a number says that the source cannot tell at present: the clock then runs on from its last good answer. A
   * reference time that is not a number stands for one read just before the call. A status other than 0, signalled
   * already, becomes that of the reading.
   * May read other clocks that do not depend on this one; what it reads of this clock runs on from the last good
   * answer. May report discontinuities and invalidate the clock. */
  PVStatus (*getAnchorTime)(PVClockRef clock, PVTime *clockTimeOut, PVTime *referenceTimeOut);
} KivDerivedClockCallbacks;
#pragma pack(pop)

/* Creates a clock whose source is asked at most once in minimumInterval of the reference clock's time; at every reading
 * when that is 0 or not a number. The reference clock is retained. It may be NULL: the source is then asked at every
 * reading, and no transform leads to or from the clock. referenceMayDrift is a remark for debugging: the reference
 * clock is not what the source really runs by.
 * Statuses, in this order: kPVClockError_RequiredParameterMissing (callbacks, clockOut or getAnchorTime is NULL);
 * kPVClockError_InvalidClock (version); kPVClockError_AllocationFailed. On failure *clockOut is NULL. */
PV_EXPORT PVStatus KivDerivedClockCreateWithGetTimeCallback(BRAllocatorRef allocator,
                                                            const KivDerivedClockCallbacks *callbacks,
                                                            PVClockRef referenceClock, bool referenceMayDrift,
                                                            PVClockRef *clockOut, PVTime minimumInterval);

/* The clock's own derivedStorageSizeBytes bytes, aligned to 16. They go with the clock, not when it is invalidated.
 * NULL, and signalled as kPVClockError_RequiredParameterMissing, for NULL. */
PV_EXPORT void *KivDerivedClockGetDerivedStorage(PVClockRef clock);

/* Says that the source has jumped: the next reading asks it, whatever the interval. Takes no lock, so that any thread
 * may call it at any time, also from inside the callbacks. A discontinuity during getAnchorTime makes the clock ask
 * again at once; a source that reports one each time is asked 16 times, and again at the next reading.
 * Signals kPVClockError_RequiredParameterMissing: clock is NULL. */
PV_EXPORT void KivDerivedClockDiscontinuityOccurred(PVClockRef clock);

/* True when the clock was created with this very record and has not been invalidated. */
PV_EXPORT bool KivDerivedClockVerifyCallbacksMatch(PVClockRef clock, const KivDerivedClockCallbacks *callbacks);

/* The transform between the clock and its reference clock, as both stand now; the identity for the host time clock.
 * Statuses: kPVClockError_RequiredParameterMissing (a pointer is NULL); those of PVClockGetAnchorTime;
 * kPVClockError_Unimplemented (no getRate); kPVSyncError_RateMustBeNonZero (to the reference from a rate of 0). */
PV_EXPORT PVStatus KivClockGetTransformRelativeToReferenceClock(PVClockRef clock, KivSyncDirection direction,
                                                                PVSyncTransform *transformOut);

/* The same between the clock and the host time clock, link by link.
 * Statuses: those of each link and of KivSyncCombineTransforms; kPVSyncError_InvalidParameter (the chain of reference
 * clocks ends elsewhere). */
PV_EXPORT PVStatus KivClockGetTransformRelativeToHostTimeClock(PVClockRef clock, KivSyncDirection direction,
                                                               PVSyncTransform *transformOut);

/* Adds a reference and returns the clock. NULL is allowed and gives NULL. */
PV_EXPORT PVClockRef KivClockRetain(PVClockRef clock);

/* Drops a reference; the last one invalidates the clock. NULL is allowed. */
PV_EXPORT void KivClockRelease(PVClockRef clock);

/* Twins. */
PV_EXPORT BRTypeID KivClockGetTypeID(void);
PV_EXPORT PVClockRef KivClockGetHostTimeClock(void);
PV_EXPORT uint64_t KivClockConvertHostTimeToSystemUnits(PVTime hostTime);
PV_EXPORT PVTime KivClockMakeHostTimeFromSystemUnits(uint64_t hostTicks);
PV_EXPORT void KivClockInvalidate(PVClockRef clock);
PV_EXPORT PVTime KivClockGetTime(PVClockRef clock);
PV_EXPORT PVStatus KivClockGetAnchorTime(PVClockRef clock, PVTime *clockTimeOut, PVTime *referenceTimeOut);
PV_EXPORT bool KivClockMightDrift(PVClockRef clock, PVClockRef otherClock);

PV_END_DECLS

#endif
