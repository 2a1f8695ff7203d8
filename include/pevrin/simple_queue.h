/* Simple queues: pointers handed from one thread to another, first in, first out, without a lock.
 *
 * A simple queue has a fixed capacity and holds pointers that are not NULL. It does not retain what they point at: who
 * enqueues an object keeps it alive until it is dequeued, or hands its reference along with it. Apart from creation and
 * the last release no function allocates, locks, waits or enters the system.
 *
 * Threads: one thread at a time produces (enqueues), one thread at a time consumes (dequeues, looks at the head); they
 * need no arrangement with each other. What the producer wrote before it enqueued an element is seen by the consumer
 * that dequeues it. Several producers, or several consumers, need a lock among themselves. Resetting needs serialising
 * with both sides. Either side may ask for the debug description, any thread for capacity and count; retain and release
 * are always safe.
 *
 * A consumer that goes to sleep when the queue is empty needs a semaphore or the like beside it: the queue wakes
 * nobody, and enqueueing is no full memory fence.
 *
 *   // producer                                              // consumer
 *   while (PVSimpleQueueEnqueue(queue, frame) ==             const void *frame;
 *          kPVSimpleQueueError_QueueIsFull) waitForRoom();   while ((frame = PVSimpleQueueDequeue(queue))) show(frame);
 */
#ifndef PEVRIN_SIMPLE_QUEUE_H
#define PEVRIN_SIMPLE_QUEUE_H

#include <kiv/error.h>
#include <kiv/simple_queue_ring.h>
#include <pevrin/base.h>

PV_BEGIN_DECLS

/* A simple queue. */
typedef struct PVSimpleQueue *PVSimpleQueueRef;

enum {
  /* Memory for the queue cannot be had. */
  kPVSimpleQueueError_AllocationFailed = -12770,
  /* A required pointer is NULL, or the capacity is 0. */
  kPVSimpleQueueError_RequiredParameterMissing = -12771,
  /* The capacity is negative. */
  kPVSimpleQueueError_ParameterOutOfRange = -12772,
  /* The queue holds as many elements as it has room for. */
  kPVSimpleQueueError_QueueIsFull = -12773
};

/* The runtime type "PVSimpleQueue". */
PV_EXPORT BRTypeID PVSimpleQueueGetTypeID(void);

/* Creates an empty queue with room for capacity elements: one block of capacity + 1 pointers and a few cache lines. The
 * pointers' memory is not touched before it is used, so a capacity that is never reached costs address space alone.
 * Statuses, in this order: RequiredParameterMissing (queueOut is NULL, capacity is 0); ParameterOutOfRange;
 * AllocationFailed. On failure *queueOut is NULL. */
PV_EXPORT PVStatus PVSimpleQueueCreate(BRAllocatorRef allocator, int32_t capacity, PVSimpleQueueRef *queueOut);

/* Puts an element behind the others. The producer's.
 * RequiredParameterMissing: queue or element is NULL. QueueIsFull: the element stays outside; there is room again once
 * the consumer has dequeued one. */
PV_EXPORT PVStatus PVSimpleQueueEnqueue(PVSimpleQueueRef queue, const void *element);

/* Takes the oldest element out; NULL when the queue is empty. The consumer's.
 * A NULL queue signals RequiredParameterMissing and is empty. */
PV_EXPORT const void *PVSimpleQueueDequeue(PVSimpleQueueRef queue);

/* The oldest element, which stays; NULL when the queue is empty. The consumer's. A NULL queue as above. */
PV_EXPORT const void *PVSimpleQueueGetHead(PVSimpleQueueRef queue);

/* Empties the queue. Its elements are not released. Neither side may be using the queue.
 * RequiredParameterMissing: queue is NULL. */
PV_EXPORT PVStatus PVSimpleQueueReset(PVSimpleQueueRef queue);

/* The number of elements that the queue has room for. A NULL queue signals RequiredParameterMissing and has 0. */
PV_EXPORT int32_t PVSimpleQueueGetCapacity(PVSimpleQueueRef queue);

/* The number of elements in the queue. Exact while neither side moves; otherwise, asked by the producer, no fewer than
 * there are, and asked by the consumer, no more. From a third thread it is an estimate between 0 and the capacity. A
 * NULL queue signals RequiredParameterMissing and has 0. */
PV_EXPORT int32_t PVSimpleQueueGetCount(PVSimpleQueueRef queue);

#ifndef PV_SIMPLE_QUEUE_NO_INLINES
/* The same functions for the compiler to put in place; their addresses, and calls that are not inlined, are the
 * library's. */
extern inline __attribute__((gnu_inline)) PVStatus PVSimpleQueueEnqueue(PVSimpleQueueRef queue, const void *element) {
  PVStatus status = kPVSimpleQueueError_RequiredParameterMissing;
  if (queue && element) {
    if (KivSimpleQueueRingPut((KivSimpleQueueRing *)((char *)queue + kBRObjectHeaderBytes), element)) return 0;
    status = kPVSimpleQueueError_QueueIsFull;
  }
  return KivSignalErrorAt(status, __FILE__, __LINE__, __func__);
}

extern inline __attribute__((gnu_inline)) const void *PVSimpleQueueDequeue(PVSimpleQueueRef queue) {
  if (queue) return KivSimpleQueueRingTake((KivSimpleQueueRing *)((char *)queue + kBRObjectHeaderBytes));
  KivSignalErrorAt(kPVSimpleQueueError_RequiredParameterMissing, __FILE__, __LINE__, __func__);
  return NULL;
}
#endif

PV_END_DECLS

#endif
