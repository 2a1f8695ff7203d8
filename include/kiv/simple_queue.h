/* Simple queues, for sibling media layers. */
#ifndef KIV_SIMPLE_QUEUE_H
#define KIV_SIMPLE_QUEUE_H

#include <pevrin/simple_queue.h>

PV_BEGIN_DECLS

/* Adds a reference and returns the queue. NULL is allowed and gives NULL. Any thread. */
PV_EXPORT PVSimpleQueueRef KivSimpleQueueRetain(PVSimpleQueueRef queue);

/* Drops a reference; the last one frees the queue, and leaves alone what its elements point at. NULL is allowed. Any
 * thread. */
PV_EXPORT void KivSimpleQueueRelease(PVSimpleQueueRef queue);

PV_END_DECLS

#endif
