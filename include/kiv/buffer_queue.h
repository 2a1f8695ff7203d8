/* Buffer queues, for sibling media layers. */
#ifndef KIV_BUFFER_QUEUE_H
#define KIV_BUFFER_QUEUE_H

#include <pevrin/buffer_queue.h>

PV_BEGIN_DECLS

/* Takes the head buffer out when it is this very object; the caller releases it. NULL when it is not. NULL, and
 * signalled: queue or buffer is NULL (kPVBufferQueueError_RequiredParameterMissing), or the call comes from inside a
 * trigger callback (kPVBufferQueueError_CannotModifyFromTrigger). Any thread. */
PV_EXPORT PVBufferRef KivBufferQueueDequeueIfMatchingAndRetain(PVBufferQueueRef queue, PVBufferRef buffer);

/* Adds a reference and returns the queue. NULL is allowed and gives NULL. Any thread. */
PV_EXPORT PVBufferQueueRef KivBufferQueueRetain(PVBufferQueueRef queue);

/* Drops a reference; the last one releases the buffers, triggers and all. NULL is allowed. Any thread. */
PV_EXPORT void KivBufferQueueRelease(PVBufferQueueRef queue);

PV_END_DECLS

#endif
