/* Serial work queues: calls run one after another, in the order given, on threads that all queues share.
 *
 * A queue is an object; its creator owns it. It stays alive by itself until its last call has run, so it may be
 * released right after the calls are given. Two calls of one queue never run at the same time, and a call sees all
 * that the calls before it did; calls of different queues run side by side. What the context points to is the
 * caller's affair: the queue hands it on and never looks at it.
 *
 * The shared threads are made with the first call of the process: as many as the machine has processors, but at least
 * 4 and at most 16; timer sources add one. They are never ended, block all signals, and are named "bedra-work". A call
 * that blocks keeps one of them busy; one that has to wait for another queue does so in BRWorkQueueSync, which works
 * even when every shared thread is taken.
 *
 *   static void writeReel(void *reel) { ...; BRRelease(reel); }
 *   BRWorkQueueRef queue = BRWorkQueueCreate(NULL, "com.example.writer");
 *   BRWorkQueueAsync(queue, writeReel, (void *)BRRetain(reel));
 *   BRRelease(queue);    // writeReel still runs
 *
 * Threads: every function may be called from any thread, from calls of any queue included. */
#ifndef BEDRA_WORK_QUEUE_H
#define BEDRA_WORK_QUEUE_H

#include <bedra/base.h>

BR_BEGIN_DECLS

/* A piece of work; context is what was handed in with it. */
typedef void (*BRWorkFunction)(void *context);

/* The runtime type "BRWorkQueue". */
BR_EXPORT BRTypeID BRWorkQueueGetTypeID(void);

/* A queue with a label for debuggers; the label is copied, NULL is the empty one. NULL when memory runs out. The
 * records of waiting calls come from the same allocator, which is then used from any thread. */
BR_EXPORT BRWorkQueueRef BRWorkQueueCreate(BRAllocatorRef allocator, const char *label);

/* The label, as long as the queue lives. */
BR_EXPORT const char *BRWorkQueueGetLabel(BRWorkQueueRef queue);

/* Runs function(context) later, on a shared thread or on one that waits in BRWorkQueueSync. False, with nothing
 * queued, when memory runs out or queue or function is NULL. */
BR_EXPORT bool BRWorkQueueAsync(BRWorkQueueRef queue, BRWorkFunction function, void *context);

/* Runs function(context) after all that was given to the queue before, and returns when it has run. Where nothing else
 * runs the queue's calls at that moment, this thread does: those that wait first, then its own. Needs no memory.
 *
 * False, with nothing run, when queue or function is NULL, or when the calling thread is inside a call of this queue,
 * which would wait for itself. Two queues whose calls wait for each other in this way wait for ever. */
BR_EXPORT bool BRWorkQueueSync(BRWorkQueueRef queue, BRWorkFunction function, void *context);

/* True while the calling thread runs a call of this queue. When that call waits in BRWorkQueueSync and so runs one of
 * a second queue, both are current. */
BR_EXPORT bool BRWorkQueueIsCurrent(BRWorkQueueRef queue);

BR_END_DECLS

#endif
