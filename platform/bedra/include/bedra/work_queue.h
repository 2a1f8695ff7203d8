/* Serial work queues: calls run one after another, in the order given, on a shared pool of threads. */
#ifndef BEDRA_WORK_QUEUE_H
#define BEDRA_WORK_QUEUE_H

#include <bedra/base.h>

BR_BEGIN_DECLS

typedef void (*BRWorkFunction)(void *context);

BR_EXPORT BRTypeID BRWorkQueueGetTypeID(void);
BR_EXPORT BRWorkQueueRef BRWorkQueueCreate(BRAllocatorRef allocator, const char *label);
BR_EXPORT const char *BRWorkQueueGetLabel(BRWorkQueueRef queue);
/* Runs function(context) later. False when memory runs out. The queue stays alive until its last call has run. */
BR_EXPORT bool BRWorkQueueAsync(BRWorkQueueRef queue, BRWorkFunction function, void *context);
/* Runs function(context) after all that was queued before, and returns when it has run. Not from the queue itself. */
BR_EXPORT bool BRWorkQueueSync(BRWorkQueueRef queue, BRWorkFunction function, void *context);
/* True while the calling thread runs a call of this queue. */
BR_EXPORT bool BRWorkQueueIsCurrent(BRWorkQueueRef queue);

BR_END_DECLS

#endif
