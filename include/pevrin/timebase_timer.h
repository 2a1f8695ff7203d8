/* Timers of a timebase: to be called when a timebase (<pevrin/timebase.h>) reaches a time on its own timeline.
 *
 * The program makes a platform timer, a run-loop timer (<bedra/run_loop.h>) or a timer source of a work queue
 * (<bedra/timer_source.h>), and hands it to the timebase with the time to fire at. The timebase sets the timer's date,
 * and sets it anew whenever its rate, its time or its master changes; it fires nothing itself. So the callback runs
 * where the program has put the timer, with no lock held, and sets the next time if it wants to be called again.
 *
 *   static void showNext(BRRunLoopTimerRef timer, void *player) {
 *     playerShowFrame((Player *)player);
 *     PVTimebaseSetTimerNextFireTime(timebase, timer, playerNextFrameTime((Player *)player), 0);
 *   }
 *   BRRunLoopTimerRef timer = BRRunLoopTimerCreate(NULL, INFINITY, 86400.0, showNext, &context);
 *   BRRunLoopAddTimer(BRRunLoopGetCurrent(), timer, kBRRunLoopDefaultMode);
 *   PVStatus status = PVTimebaseAddTimer(timebase, timer, BRRunLoopGetCurrent());
 *   status = PVTimebaseSetTimerNextFireTime(timebase, timer, firstFrameTime, 0);
 *
 * When a timer fires: while the effective rate is 0 no timer does. A fire time that is not a number parks the timer: it
 * stays with the timebase and does not fire. Otherwise the date is when the timebase will be at the fire time if all
 * goes on as it does now, and
 *  - a fire time that has passed already when it is set fires at once;
 *  - a change of rate in the same direction leaves a timer alone whose fire time has passed: it has fired, or is about
 *    to;
 *  - a jump, or a change of direction, parks a timer whose fire time is behind afterwards, seen in the direction of
 *    play; it stays parked until time jumps or turns again, or a fire time is set.
 * Passed means earlier than the current time when playing forward, and later when playing backward.
 *
 * A timer belongs to the program: the timebase retains it (and its run loop) until it is removed, found invalid or
 * cancelled, or the timebase goes. Setting the timer's date on one's own works until the next change. A timer that
 * a change catches while it is being called may be called once more than expected: its callback should ask the timebase
 * what time it is.
 *
 * A view (PVTimebaseCreateReadOnlyTimebase) has timers of its own, which keep with it when its target changes. Nothing
 * here counts as a write.
 *
 * Threads: as for timebases. Every failure passes through <kiv/error.h>; codes are checked in the order listed. */
#ifndef PEVRIN_TIMEBASE_TIMER_H
#define PEVRIN_TIMEBASE_TIMER_H

#include <bedra/run_loop.h>
#include <bedra/timer_source.h>
#include <pevrin/timebase.h>

PV_BEGIN_DECLS

/* Flags of the functions that set a fire time. */
typedef uint32_t PVTimebaseTimerFlags;
enum {
  /* A fire time that has passed is scheduled all the same, by every change: the timer then fires at once. */
  kPVTimebaseTimerFlag_FireEvenIfPassed = 1
};

/* ---- Run-loop timers. Each function: RequiredParameterMissing when an argument is NULL. */

/* Adds a timer, parked, which must not repeat by itself within a day: an interval of at least 86400.0 seconds. A timer
 * that fires once and is invalid then can be added, but serves for one fire time only. A timer should belong to one
 * timebase, and be added to the run loop by the program.
 * TimerIntervalTooShort; InvalidParameter: it was added with another run loop (with this one: success, and nothing
 * happens); AllocationFailed. */
PV_EXPORT PVStatus PVTimebaseAddTimer(PVTimebaseRef timebase, BRRunLoopTimerRef timer, BRRunLoopRef runLoop);

/* Parks the timer and forgets it. InvalidParameter: it was not added. */
PV_EXPORT PVStatus PVTimebaseRemoveTimer(PVTimebaseRef timebase, BRRunLoopTimerRef timer);

/* Sets when the timer is to fire, in place of the time set before.
 * InvalidParameter: it was not added, or is invalid and thereby removed. */
PV_EXPORT PVStatus PVTimebaseSetTimerNextFireTime(PVTimebaseRef timebase, BRRunLoopTimerRef timer, PVTime fireTime,
                                                  PVTimebaseTimerFlags flags);

/* Has the timer fire now, whatever the timebase does; no change moves it until a fire time is set.
 * InvalidParameter as above. */
PV_EXPORT PVStatus PVTimebaseSetTimerToFireImmediately(PVTimebaseRef timebase, BRRunLoopTimerRef timer);

/* ---- Timer sources of work queues: the same, to the nanosecond of the host time clock, and with no leeway. */

/* InvalidParameter: the source is cancelled; AllocationFailed. A source that was added already: success, and nothing
 * happens. */
PV_EXPORT PVStatus PVTimebaseAddTimerDispatchSource(PVTimebaseRef timebase, BRTimerSourceRef source);

/* InvalidParameter: it was not added. */
PV_EXPORT PVStatus PVTimebaseRemoveTimerDispatchSource(PVTimebaseRef timebase, BRTimerSourceRef source);

/* InvalidParameter: it was not added, or is cancelled and thereby removed. */
PV_EXPORT PVStatus PVTimebaseSetTimerDispatchSourceNextFireTime(PVTimebaseRef timebase, BRTimerSourceRef source,
                                                                PVTime fireTime, PVTimebaseTimerFlags flags);

/* InvalidParameter as above. */
PV_EXPORT PVStatus PVTimebaseSetTimerDispatchSourceToFireImmediately(PVTimebaseRef timebase, BRTimerSourceRef source);

PV_END_DECLS

#endif
