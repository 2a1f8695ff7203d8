/* Run loops: a thread waits in one for its timers.
 *
 * Every thread has one run loop, made on first use. Timers are added to a loop in one or more modes, which are names;
 * running the loop in a mode calls the timers of that mode when their time has come, on the thread that runs, earliest
 * first, and those of equal time in the order in which they were set. Callbacks run with no lock held and may do
 * anything here, run the loop again included; a timer is not called again while its callback runs.
 *
 * A timer with an interval is called again and again; one without fires once and is then invalid. A timer serves one
 * loop: the first it is added to. The loop retains it while it is in any of its modes. Fire dates are absolute times,
 * but are turned into the host's monotonic clock when they are set: setting the wall clock later moves no timer. A date
 * in the past is due at once; one that is not a number or thousands of years away never comes. No timer is called
 * early.
 *
 *   static void ended(BRRunLoopTimerRef timer, void *info) { playerEnded((Player *)info); }
 *   BRRunLoopTimerContext context = {0, player, BRRetain, BRRelease};
 *   BRRunLoopTimerRef timer = BRRunLoopTimerCreate(NULL, BRAbsoluteTimeGetCurrent() + 0.5, 0, ended, &context);
 *   BRRunLoopAddTimer(BRRunLoopGetCurrent(), timer, kBRRunLoopDefaultMode);
 *   BRRunLoopRunInMode(kBRRunLoopDefaultMode, 10.0, false);      // returns after half a second: nothing is left
 *
 * A program that has an event loop of its own (epoll, GLib, libuv, Asio, Qt...) does not run the run loop of its
 * thread, but watches its descriptor and dispatches when it can be read; so both wait in one place:
 *
 *   int descriptor = BRRunLoopGetPollDescriptor(BRRunLoopGetCurrent());
 *   struct pollfd polled = {descriptor, POLLIN, 0};
 *   while (poll(&polled, 1, -1) > 0) BRRunLoopDispatchPending(BRRunLoopGetCurrent(), kBRRunLoopDefaultMode);
 *
 * Threads: every function that takes a loop or a timer may be called from any thread, except that a loop is run and
 * dispatched by its own thread alone. When a loop's thread ends, the loop lets go of its timers: they will not fire. */
#ifndef BEDRA_RUN_LOOP_H
#define BEDRA_RUN_LOOP_H

#include <bedra/time.h>

BR_BEGIN_DECLS

/* Called on the loop's thread when a timer fires; info is that of its context. */
typedef void (*BRRunLoopTimerCallback)(BRRunLoopTimerRef timer, void *info);

/* What a timer hands to its callback, and how it holds it. */
typedef struct BRRunLoopTimerContext {
  uint32_t version; /* must be 0 */
  void *info;       /* handed to the callback */
  const void *(*retain)(const void *info); /* may be NULL; called once, when the timer is made */
  void (*release)(const void *info);       /* may be NULL; called once, see BRRunLoopTimerCreate */
} BRRunLoopTimerContext;

/* Why a run of the loop returned. */
typedef int32_t BRRunLoopResult;
enum {
  kBRRunLoopRefused = 0,      /* only from BRRunLoopDispatchPending */
  kBRRunLoopFinished = 1,     /* the mode has no timers */
  kBRRunLoopStopped = 2,      /* BRRunLoopStop */
  kBRRunLoopTimedOut = 3,     /* the seconds have passed */
  kBRRunLoopHandledSource = 4 /* a timer was called, and the caller asked to return then */
};

/* The mode for ordinary work. Its text is its name. */
BR_EXPORT extern const BRStringRef kBRRunLoopDefaultMode;

/* The runtime types "BRRunLoop" and "BRRunLoopTimer". */
BR_EXPORT BRTypeID BRRunLoopGetTypeID(void);
BR_EXPORT BRTypeID BRRunLoopTimerGetTypeID(void);

/* The calling thread's loop, made on first use. Borrowed; the thread holds it until it ends, and whoever retains it for
 * longer finds it empty then. NULL when memory or file descriptors (each loop has one) run out, or the thread is
 * already being taken down. */
BR_EXPORT BRRunLoopRef BRRunLoopGetCurrent(void);

/* Runs the calling thread's loop in a mode: calls what is due, waits for what is next, until one of the results above
 * comes about; when several do, the first of handled, stopped, finished, timed out is told. With 0.0 seconds (or less,
 * or not a number) it calls what is due at that moment and returns; with INFINITY it has no time limit. Timers that
 * become due during a round of calls are called in the next, when there is time for one. */
BR_EXPORT BRRunLoopResult BRRunLoopRunInMode(BRStringRef mode, double seconds, bool returnAfterSourceHandled);

/* The same until a date, however many timers are called before it. INFINITY sets no limit. */
BR_EXPORT BRRunLoopResult BRRunLoopRunUntilDate(BRStringRef mode, BRAbsoluteTime date);

/* The loop's descriptor, for a poll, epoll or select of the program: it is readable when BRRunLoopDispatchPending has
 * something to do in the mode that it was last called for, the default mode before the first call. Timers that are
 * added, moved or removed meanwhile, on whichever thread, are taken into account; it may be readable for nothing at
 * times. Poll it on any thread, edge-triggered only if callbacks never run the event loop; do not read, set or close
 * it. -1 for NULL, when the loop's thread has ended, which closes it, or when memory runs out. */
BR_EXPORT int BRRunLoopGetPollDescriptor(BRRunLoopRef runLoop);

/* Calls what is due in the mode at this moment, without waiting; the results are those of BRRunLoopRunInMode with 0.0
 * seconds. Afterwards the descriptor is readable when the next timer of the mode is due. It is also how the program's
 * loop hears of BRRunLoopStop: by kBRRunLoopStopped. Callbacks may dispatch again, or run an event loop that does.
 * kBRRunLoopRefused, with nothing done, on another thread than the loop's own, for NULL, and when memory runs out. */
BR_EXPORT BRRunLoopResult BRRunLoopDispatchPending(BRRunLoopRef runLoop, BRStringRef mode);

/* Has a waiting loop look again at what there is to do, and makes the descriptor readable. All functions here do so by
 * themselves when it is needed. */
BR_EXPORT void BRRunLoopWakeUp(BRRunLoopRef runLoop);

/* Ends the innermost run in progress, after the callback that is running. When no run is in progress, the next one ends
 * before it calls anything: a stop that comes a moment early is not lost. */
BR_EXPORT void BRRunLoopStop(BRRunLoopRef runLoop);

/* Adds the timer in a mode. True also when it was there already. False when it is invalid, serves another loop, the
 * loop's thread has ended, the loop has no room for another mode (it has for 32), memory runs out, or an argument is
 * NULL. */
BR_EXPORT bool BRRunLoopAddTimer(BRRunLoopRef runLoop, BRRunLoopTimerRef timer, BRStringRef mode);

/* True when the timer is in the mode of the loop; false for a NULL argument. */
BR_EXPORT bool BRRunLoopContainsTimer(BRRunLoopRef runLoop, BRRunLoopTimerRef timer, BRStringRef mode);

/* Takes the timer out of a mode; it stays valid and in its other modes. Does not wait for a callback in progress. */
BR_EXPORT void BRRunLoopRemoveTimer(BRRunLoopRef runLoop, BRRunLoopTimerRef timer, BRStringRef mode);

/* A timer that calls callback(timer, info) at the date and, with an interval above 0 (in seconds), at every date +
 * k * interval after it: counted from the date last set, so that nothing adds up. Of ticks that passed while the loop
 * was busy, the first is called late and the others are skipped. An interval of 0, less or not a number is none.
 *
 * The context is copied (NULL is one of zeros) and its info retained; the info is released when a timer without an
 * interval has fired, when the timer is invalidated, or when it goes. The caller owns the timer. NULL, with nothing
 * retained, when the callback is NULL, the context's version is not 0, or memory runs out. */
BR_EXPORT BRRunLoopTimerRef BRRunLoopTimerCreate(BRAllocatorRef allocator, BRAbsoluteTime fireDate, double interval,
                                                 BRRunLoopTimerCallback callback,
                                                 const BRRunLoopTimerContext *context);

/* Takes the timer out of its loop for good, and releases its info unless the callback is running, after which it is
 * released. On another thread than the loop's, that callback may still be running when this returns. */
BR_EXPORT void BRRunLoopTimerInvalidate(BRRunLoopTimerRef timer);

/* False once the timer is invalidated, or is called and has no interval (in its own callback too), and for NULL. A
 * timer that is to be set again from its callback needs an interval, however long. */
BR_EXPORT bool BRRunLoopTimerIsValid(BRRunLoopTimerRef timer);

/* Seconds; 0 for a timer that fires once, and for NULL. */
BR_EXPORT double BRRunLoopTimerGetInterval(BRRunLoopTimerRef timer);

/* When the timer is due next: the date last set, or the tick after the one for which it was last called; the callback
 * sees that tick already. 0 for NULL. */
BR_EXPORT BRAbsoluteTime BRRunLoopTimerGetNextFireDate(BRRunLoopTimerRef timer);

/* Moves a valid timer, in its loop too; its ticks are counted from the new date. In its callback this replaces the next
 * tick. Nothing happens to an invalid one. Needs no memory, and no system call unless a waiting loop has to wake
 * earlier for it. */
BR_EXPORT void BRRunLoopTimerSetNextFireDate(BRRunLoopTimerRef timer, BRAbsoluteTime fireDate);

/* How many seconds late the timer may be called, so that the machine wakes once for several timers; 0.0 at first. A
 * repeating timer uses at most half its interval, and being late does not move its later ticks. What is less than 0 or
 * not a number is 0. The order of calls is by the latest time: the date plus the tolerance. */
BR_EXPORT void BRRunLoopTimerSetTolerance(BRRunLoopTimerRef timer, double seconds);

/* The tolerance as it was set; 0 for NULL. */
BR_EXPORT double BRRunLoopTimerGetTolerance(BRRunLoopTimerRef timer);

BR_END_DECLS

#endif
