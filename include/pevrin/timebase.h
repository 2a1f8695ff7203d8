/* Timebases: what time it is on a media timeline.
 *
 * A timebase maps the time of its master onto a timeline of its own:
 *
 *   time = anchor time + (master time - master anchor time) * rate
 *
 * The master is a clock (<pevrin/clock.h>) or another timebase, so timebases form chains, and each chain ends at one
 * clock, the ultimate master clock. A new timebase stands still at time zero. Setting its rate makes it run, from the
 * time at which it stands; a negative rate runs it backward, and rate 0 stops it. The effective rate is the rate
 * relative to the ultimate master clock: that of a timebase whose master stands still is 0, whatever its own.
 *
 *   static void timeJumped(PVNotificationCenterRef center, void *listener, BRStringRef name, const void *object,
 *                          BRDictionaryRef payload) { playerFlush((Player *)listener); }
 *   PVTimebaseRef timebase;
 *   PVStatus status = PVTimebaseCreateWithMasterClock(NULL, PVClockGetHostTimeClock(), &timebase);
 *   PVNotificationCenterAddListener(center, player, timeJumped, kPVTimebaseNotification_TimeJumped, timebase);
 *   status = PVTimebaseSetTime(timebase, PVTimeMake(90, 1));      // calls timeJumped
 *   status = PVTimebaseSetRate(timebase, 1.0);                    // plays
 *   PVTime now = PVTimebaseGetTime(timebase);
 *
 * <pevrin/timebase_timer.h> calls a program when a timebase reaches a time.
 *
 * Notifications: a timebase says on the default local notification center when its effective rate changes, its time
 * jumps or its master changes. They come on the thread that made the change, after the change and before the function
 * that made it returns, with no lock held: a callback may do anything here, write to the same timebase or set its
 * master included. A timebase follows its master timebase: what is heard of that is passed on for the own timeline. So
 * one change to a master reaches the whole tree below it.
 *
 * Read-only timebases: a read-only timebase is a view of another one, its target. All reads are answered by the target,
 * all writes are refused, and the target's notifications are posted again for the view. Timers of the view are its own.
 *
 * Threads: every function may be called from any thread. Changes to one timebase are made one after another, and a
 * reader sees a timebase before or after a change, never in the middle; a time that is read while the timebase is being
 * stopped is never later than the time at which it then stands. Reading the time of a timebase on the host time clock
 * takes no lock and makes no system call. Where a derived clock is asked for its time during a change, its callback
 * runs with the timebase locked, and must not change masters or targets.
 *
 * A timebase retains its master (a view its target), so the end of a chain lives as long as what hangs on it; a master
 * does not know its followers.
 *
 * Rates are doubles and times exact rationals: a time is computed from the anchors each time anew, by the rules of
 * KivSyncApplyTransform (<kiv/sync.h>), so errors do not add up however long a timebase runs.
 *
 * Every failure passes through <kiv/error.h>. Codes are checked in the order in which they are listed. */
#ifndef PEVRIN_TIMEBASE_H
#define PEVRIN_TIMEBASE_H

#include <bedra/dictionary.h>
#include <bedra/string.h>
#include <pevrin/clock.h>
#include <pevrin/time.h>

PV_BEGIN_DECLS

/* A timebase. */
typedef struct PVTimebase *PVTimebaseRef;

enum {
  /* A required argument is NULL, or a time that has to be a number is not. */
  kPVTimebaseError_RequiredParameterMissing = -12748,
  /* Times of mixed validity; a master or target that would follow itself; what else is said with the function. */
  kPVTimebaseError_InvalidParameter = -12749,
  kPVTimebaseError_AllocationFailed = -12750,
  /* A timer that repeats by itself. */
  kPVTimebaseError_TimerIntervalTooShort = -12751,
  /* The timebase is read-only. */
  kPVTimebaseError_ReadOnly = -12757
};

/* ---- Notifications. The object is the timebase. Except for MasterWillChange of a follower, which has no payload, the
 * payload holds the time of the event on the object's timeline; a view passes its target's payload on as it is. When
 * memory runs out for a payload, the notification comes without. */

PV_EXPORT extern const BRStringRef kPVTimebaseNotification_EffectiveRateChanged; /* "PVTimebaseEffectiveRateChanged" */
PV_EXPORT extern const BRStringRef kPVTimebaseNotification_TimeJumped;           /* "PVTimebaseTimeJumped" */
PV_EXPORT extern const BRStringRef kPVTimebaseNotification_MasterWillChange;     /* "PVTimebaseMasterWillChange" */
PV_EXPORT extern const BRStringRef kPVTimebaseNotification_MasterDidChange;      /* "PVTimebaseMasterDidChange" */
/* The key of the event time in the payload, a dictionary for PVTimeMakeFromDictionary: "PVTimebaseEventTime". */
PV_EXPORT extern const BRStringRef kPVTimebaseNotificationKey_EventTime;

/* The runtime type "KivTimebase". */
PV_EXPORT BRTypeID PVTimebaseGetTypeID(void);

/* ---- Creation. The object and its timers' records come from the allocator. */

/* Creates a timebase on a clock, standing at time zero. The clock is retained.
 * RequiredParameterMissing (masterClock or timebaseOut), AllocationFailed. */
PV_EXPORT PVStatus PVTimebaseCreateWithMasterClock(BRAllocatorRef allocator, PVClockRef masterClock,
                                                   PVTimebaseRef *timebaseOut);

/* Creates a timebase that follows another one, standing at time zero. The master is retained.
 * RequiredParameterMissing (masterTimebase or timebaseOut), AllocationFailed;
 * kPVNotificationCenterError_AllocationFailed when it cannot listen to the master. */
PV_EXPORT PVStatus PVTimebaseCreateWithMasterTimebase(BRAllocatorRef allocator, PVTimebaseRef masterTimebase,
                                                      PVTimebaseRef *timebaseOut);

/* Called on the writing thread each time a write to a read-only timebase is attempted. No lock is held. */
typedef void (*PVTimebaseWriteAttemptCallback)(PVTimebaseRef timebase, void *refCon);

/* Creates a view of a timebase, which is retained and may itself be a view. The callback may be NULL. refCon must live
 * as long as anybody can write to the view.
 * Statuses as with PVTimebaseCreateWithMasterTimebase. */
PV_EXPORT PVStatus PVTimebaseCreateReadOnlyTimebase(BRAllocatorRef allocator, PVTimebaseRef sourceTimebase,
                                                    PVTimebaseWriteAttemptCallback writeAttemptCallback, void *refCon,
                                                    PVTimebaseRef *timebaseOut);

/* ---- Reading. A NULL timebase signals RequiredParameterMissing and gives what is said with the function. */

/* The time now; never flagged as rounded. Invalid for NULL, and when the master has no time to give. */
PV_EXPORT PVTime PVTimebaseGetTime(PVTimebaseRef timebase);

/* The same in another timescale, by PVTimeConvertScale; as it is when the timescale is 0. */
PV_EXPORT PVTime PVTimebaseGetTimeWithTimeScale(PVTimebaseRef timebase, PVTimeScale timescale,
                                                PVTimeRoundingMethod method);

/* The rate that was set, relative to the master; 0.0 for NULL. */
PV_EXPORT double PVTimebaseGetRate(PVTimebaseRef timebase);

/* Both at one moment. Either pointer may be NULL. RequiredParameterMissing (timebase). */
PV_EXPORT PVStatus PVTimebaseGetTimeAndRate(PVTimebaseRef timebase, PVTime *timeOut, double *rateOut);

/* The rate relative to the ultimate master clock; 0.0 for NULL and where it cannot be found. */
PV_EXPORT double PVTimebaseGetEffectiveRate(PVTimebaseRef timebase);

/* The master as it was set: a timebase or a clock. Of the two forms by kind one gives NULL. The caller releases what a
 * Copy function returns; what a Get function returns is good only as long as nobody sets another master. */
PV_EXPORT BRTypeRef PVTimebaseCopyMaster(PVTimebaseRef timebase);
PV_EXPORT PVTimebaseRef PVTimebaseCopyMasterTimebase(PVTimebaseRef timebase);
PV_EXPORT PVClockRef PVTimebaseCopyMasterClock(PVTimebaseRef timebase);
PV_EXPORT PVClockRef PVTimebaseCopyUltimateMasterClock(PVTimebaseRef timebase);
PV_EXPORT BRTypeRef PVTimebaseGetMaster(PVTimebaseRef timebase);
PV_EXPORT PVTimebaseRef PVTimebaseGetMasterTimebase(PVTimebaseRef timebase);
PV_EXPORT PVClockRef PVTimebaseGetMasterClock(PVTimebaseRef timebase);
PV_EXPORT PVClockRef PVTimebaseGetUltimateMasterClock(PVTimebaseRef timebase);

/* ---- Writing. RequiredParameterMissing when the timebase is NULL, then ReadOnly, for every function; other codes
 * stand with the function. On failure nothing has changed. */

/* Moves the timebase to a time, from which it runs on. Posts TimeJumped; nothing when it stands still at that time
 * already. RequiredParameterMissing: the time is not a number. */
PV_EXPORT PVStatus PVTimebaseSetTime(PVTimebaseRef timebase, PVTime time);

/* The same, with the master's time at which the timebase is to be at that time: the past or the future do as well. The
 * times are taken as they are; while one of them is not a number a running timebase has no time to tell. */
PV_EXPORT PVStatus PVTimebaseSetAnchorTime(PVTimebaseRef timebase, PVTime timebaseTime, PVTime immediateMasterTime);

/* Changes the rate; the time runs on from where it is. Posts EffectiveRateChanged if the effective rate has changed,
 * and nothing when the rate is that already. */
PV_EXPORT PVStatus PVTimebaseSetRate(PVTimebaseRef timebase, double rate);

/* Changes rate and anchor at once: two timebases of one master that are given the same values run together. With both
 * times invalid it is PVTimebaseSetRate. Posts EffectiveRateChanged if the effective rate has changed, then TimeJumped,
 * also when all values are as they were: only of a timebase at rate 0 nothing is posted then.
 * InvalidParameter: one time is valid and the other is not. */
PV_EXPORT PVStatus PVTimebaseSetRateAndAnchorTime(PVTimebaseRef timebase, double rate, PVTime timebaseTime,
                                                  PVTime immediateMasterTime);

/* Flags of PVTimebaseSetRateAndAnchorTimeWithFlags. */
typedef uint32_t PVTimebaseAnchorFlags;
enum {
  /* The new anchor corrects a drift: TimeJumped is not posted, and timers whose time has passed are left alone. */
  kPVTimebaseAnchorFlag_TimeDoesNotJump = 1
};

/* The same with flags. */
PV_EXPORT PVStatus PVTimebaseSetRateAndAnchorTimeWithFlags(PVTimebaseRef timebase, PVTimebaseAnchorFlags flags,
                                                           double rate, PVTime timebaseTime,
                                                           PVTime immediateMasterTime);

/* Gives the timebase another master, retained. Rate and time stay: the time does not jump, unless a listener of
 * MasterWillChange moves it. Posts MasterWillChange, then MasterDidChange, then EffectiveRateChanged if the effective
 * rate has changed. Timers are kept in step in any case. RequiredParameterMissing (the master); InvalidParameter: the
 * master is the timebase or follows it, over whatever chain of masters and targets;
 * kPVNotificationCenterError_AllocationFailed: it cannot listen to the new master. When it fails after
 * MasterWillChange, MasterDidChange follows all the same. */
PV_EXPORT PVStatus PVTimebaseSetMasterClock(PVTimebaseRef timebase, PVClockRef masterClock);
PV_EXPORT PVStatus PVTimebaseSetMasterTimebase(PVTimebaseRef timebase, PVTimebaseRef masterTimebase);

/* Returns when every notification of the timebase that was being posted on another thread has been delivered. Later
 * ones are not waited for, nor, from inside a callback, the one that is being delivered to it. Counts as a write. */
PV_EXPORT PVStatus PVTimebaseNotificationBarrier(PVTimebaseRef timebase);

PV_END_DECLS

#endif
