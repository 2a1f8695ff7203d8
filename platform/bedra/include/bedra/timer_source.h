/* Timer sources: timers that call on a serial work queue.
 *
 * A source is made for a queue, set to fire once or again and again, and may be set anew at any time. When its time has
 * come its handler runs on the queue, in turn with the queue's other calls. Until that call begins, setting the source
 * anew or cancelling it takes the fire back: a handler is never called for a setting that was replaced before.
 *
 * Fires that come while the queue is busy are merged: the handler is told how many there were since it was last called.
 * Times are nanoseconds of the host's monotonic clock (BRHostTimeGetUptimeNs). No source fires early.
 *
 * The creator owns the source. While it is set and waits to fire it also keeps itself alive: set it to
 * kBRTimerSourceStartForever or cancel it to be rid of it. The source retains its queue.
 *
 *   static void tick(BRTimerSourceRef source, uint64_t fires, void *meter) { meterAdvance((Meter *)meter, fires); }
 *   static void ended(BRTimerSourceRef source, void *meter) { meterFree((Meter *)meter); }
 *   BRTimerSourceContext context = {.info = meter, .cancelled = ended};
 *   BRTimerSourceRef source = BRTimerSourceCreate(NULL, queue, tick, &context);
 *   BRTimerSourceSetTimer(source, BRTimerSourceNowNs() + 5000000, 40000000, 1000000); // in 5 ms, then each 40 ms
 *   ...
 *   BRTimerSourceCancel(source);      // ended() runs on the queue when tick() will run no more
 *   BRRelease(source);
 *
 * Handlers run on the threads that all queues share, one of which is added for the first source: it waits for the
 * earliest time of all sources. It mostly runs the handler itself, which then is as prompt as the machine's own timers.
 *
 * Threads: every function may be called from any thread, from handlers included. */
#ifndef BEDRA_TIMER_SOURCE_H
#define BEDRA_TIMER_SOURCE_H

#include <bedra/base.h>

BR_BEGIN_DECLS

/* Runs on the queue. `fires` is 1, or more when fires were merged. */
typedef void (*BRTimerSourceHandler)(BRTimerSourceRef source, uint64_t fires, void *info);

/* What a source hands to its handlers, and how it holds it. */
typedef struct BRTimerSourceContext {
  uint32_t version; /* must be 0 */
  void *info;       /* handed to the handlers */
  const void *(*retain)(const void *info); /* may be NULL; called once, when the source is made */
  void (*release)(const void *info);       /* may be NULL; called once, after the cancel handler or with the source */
  void (*cancelled)(BRTimerSourceRef source, void *info); /* may be NULL; see BRTimerSourceCancel */
} BRTimerSourceContext;

/* Start times of BRTimerSourceSetTimer. */
#define kBRTimerSourceStartNow UINT64_C(0)
#define kBRTimerSourceStartForever UINT64_MAX /* not at all */

/* The runtime type "BRTimerSource". */
BR_EXPORT BRTypeID BRTimerSourceGetTypeID(void);

/* The time now on the clock of start times. */
BR_EXPORT uint64_t BRTimerSourceNowNs(void);

/* A source that fires on the queue, not set yet. The context is copied (NULL is one of zeros) and its info retained.
 * NULL, with nothing retained, when queue or handler is NULL, the context's version is not 0, or memory, threads or
 * file descriptors run out. Nothing below needs memory. */
BR_EXPORT BRTimerSourceRef BRTimerSourceCreate(BRAllocatorRef allocator, BRWorkQueueRef queue,
                                               BRTimerSourceHandler handler, const BRTimerSourceContext *context);

/* Sets the source to fire at startNs and, when intervalNs is not 0, at every startNs + k * intervalNs after it. A start
 * in the past fires at once, and its passed ticks count as fires; kBRTimerSourceStartNow starts at this moment; from
 * 2^63 on, as kBRTimerSourceStartForever, it never fires. leewayNs is how late it may fire so that the machine wakes
 * once for several timers: a repeating source uses at most half its interval. Ticks do not move when they come late.
 * Nothing happens to a cancelled source. */
BR_EXPORT void BRTimerSourceSetTimer(BRTimerSourceRef source, uint64_t startNs, uint64_t intervalNs, uint64_t leewayNs);

/* Ends the source for good: no call of the handler begins any more. The cancel handler is then called on the queue,
 * once, after a call that is running; after it nothing of the source runs, and the info is released there too.
 *
 * True when a call of the handler is running at this moment, on another thread or because this is called from it: what
 * it uses must stay until the cancel handler runs. False when it is not running, and for NULL. Cancelling again does
 * nothing more, and answers as well. */
BR_EXPORT bool BRTimerSourceCancel(BRTimerSourceRef source);

/* True from the moment the source is cancelled; false for NULL. */
BR_EXPORT bool BRTimerSourceIsCancelled(BRTimerSourceRef source);

BR_END_DECLS

#endif
