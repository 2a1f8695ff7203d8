/* Run loops: a thread waits in one for its timers.
 *
 * Every thread has one run loop, made on first use. Timers are added to a loop in one or more modes, which are names;
 * running the loop in a mode calls the timers of that mode when their time has come, on the thread that runs, earliest
 * first, and those of equal time in the order in which they were set. Callbacks run with no lock held and may do
 * anything here, run the loop again included.
 *
 * A timer fires once and is then invalid. It serves one loop: the first it is added to. The loop retains it while it is
 * in any of its modes. Fire dates are absolute times, but are turned into the host's monotonic clock when they are set:
 * setting the wall clock later moves no timer. A date in the past is due at once; one that is not a number or thousands
 * of years away never comes.
 *
 *   static void ended(BRRunLoopTimerRef timer, void *info) { playerEnded((Player *)info); }
 *   BRRunLoopTimerContext context = {0, player, BRRetain, BRRelease};
 *   BRRunLoopTimerRef timer = BRRunLoopTimerCreate(NULL, BRAbsoluteTimeGetCurrent() + 0.5, ended, &context);
 *   BRRunLoopAddTimer(BRRunLoopGetCurrent(), timer, kBRRunLoopDefaultMode);
 *   BRRunLoopRunInMode(kBRRunLoopDefaultMode, 10.0, false);      // returns after half a second: nothing is left
 *
 * Threads: every function that takes a loop or a timer may be called from any thread. When a loop's thread ends, the
 * loop lets go of its timers, which will not fire. */
#ifndef BEDRA_RUN_LOOP_H
#define BEDRA_RUN_LOOP_H

#include <bedra/time.h>

BR_BEGIN_DECLS

typedef void (*BRRunLoopTimerCallback)(BRRunLoopTimerRef timer, void *info);

typedef struct BRRunLoopTimerContext {
  uint32_t version; /* must be 0 */
  void *info;       /* handed to the callback */
  const void *(*retain)(const void *info); /* may be NULL; called once, when the timer is made */
  void (*release)(const void *info);       /* may be NULL; called once, see BRRunLoopTimerCreate */
} BRRunLoopTimerContext;

typedef int32_t BRRunLoopResult;
enum {
  kBRRunLoopFinished = 1,     /* the mode has no timers */
  kBRRunLoopStopped = 2,      /* BRRunLoopStop */
  kBRRunLoopTimedOut = 3,     /* the seconds have passed */
  kBRRunLoopHandledSource = 4 /* a timer was called, and the caller asked to return then */
};

/* The mode for ordinary work. Its text is its name. */
BR_EXPORT extern const BRStringRef kBRRunLoopDefaultMode;

BR_EXPORT BRTypeID BRRunLoopGetTypeID(void);
BR_EXPORT BRTypeID BRRunLoopTimerGetTypeID(void);

/* The calling thread's loop, made on first use. Borrowed; the thread holds it until it ends, and whoever retains it for
 * longer finds it empty then. NULL when memory runs out or the thread is already being taken down. */
BR_EXPORT BRRunLoopRef BRRunLoopGetCurrent(void);

/* Runs the calling thread's loop in a mode: calls what is due, waits for what is next, until one of the results above
 * comes about; when several do, the first of handled, stopped, finished, timed out is told. With 0.0 seconds (or less,
 * or not a number) it calls what is due at that moment and returns; with INFINITY it has no time limit. Timers that
 * become due during a round of calls are called in the next, when there is time for one. */
BR_EXPORT BRRunLoopResult BRRunLoopRunInMode(BRStringRef mode, double seconds, bool returnAfterSourceHandled);

/* Has a waiting loop look again at what there is to do. All functions here do so by themselves. */
BR_EXPORT void BRRunLoopWakeUp(BRRunLoopRef runLoop);

/* Ends the innermost run in progress, after the callback that is running. When no run is in progress, the next one ends
 * before it calls anything: a stop that comes a moment early is not lost. */
BR_EXPORT void BRRunLoopStop(BRRunLoopRef runLoop);

/* Adds the timer in a mode. True also when it was there already. False when it is invalid, serves another loop, the
 * loop's thread has ended, the loop has no room for another mode (it has for 32), memory runs out, or an argument is
 * NULL. */
BR_EXPORT bool BRRunLoopAddTimer(BRRunLoopRef runLoop, BRRunLoopTimerRef timer, BRStringRef mode);

BR_EXPORT bool BRRunLoopContainsTimer(BRRunLoopRef runLoop, BRRunLoopTimerRef timer, BRStringRef mode);

/* Takes the timer out of a mode; it stays valid and in its other modes. Does not wait for a callback in progress. */
BR_EXPORT void BRRunLoopRemoveTimer(BRRunLoopRef runLoop, BRRunLoopTimerRef timer, BRStringRef mode);

/* A timer that calls callback(timer, info) once, at the date. The context is copied (NULL is one of zeros) and its info
 * retained; the info is released when the timer has fired, is invalidated, or goes. The caller owns the timer. NULL,
 * with nothing retained, when the callback is NULL, the context's version is not 0, or memory runs out. */
BR_EXPORT BRRunLoopTimerRef BRRunLoopTimerCreate(BRAllocatorRef allocator, BRAbsoluteTime fireDate,
                                                 BRRunLoopTimerCallback callback,
                                                 const BRRunLoopTimerContext *context);

/* Takes the timer out of its loop for good, and releases its info unless the callback is running, after which it is
 * released. On another thread than the loop's, that callback may still be running when this returns. */
BR_EXPORT void BRRunLoopTimerInvalidate(BRRunLoopTimerRef timer);

/* False from the moment the timer is called or invalidated, in its own callback too, and for NULL. */
BR_EXPORT bool BRRunLoopTimerIsValid(BRRunLoopTimerRef timer);

/* The date last set; 0 for NULL. */
BR_EXPORT BRAbsoluteTime BRRunLoopTimerGetNextFireDate(BRRunLoopTimerRef timer);

/* Moves a valid timer, in its loop too. Nothing happens to an invalid one. */
BR_EXPORT void BRRunLoopTimerSetNextFireDate(BRRunLoopTimerRef timer, BRAbsoluteTime fireDate);

BR_END_DECLS

#endif
