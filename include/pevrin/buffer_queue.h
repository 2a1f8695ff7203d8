/* Buffer queues: thread-safe queues of reference-counted buffers that know the timing of what they hold.
 *
 * A queue learns about its buffers through a record of callbacks, so that they may be of any class; the records for
 * sample buffers are ready-made. With a compare callback the queue is kept sorted, equal buffers in the order in which
 * they came; without one it is first in, first out. It keeps totals (duration, size), answers for the least and
 * greatest timestamps, and fires triggers: callbacks that the client installs with a condition.
 *
 *   PVBufferQueueRef queue;
 *   PVBufferQueueTriggerToken low;
 *   PVStatus status =
 *       PVBufferQueueCreate(NULL, 0, PVBufferQueueGetCallbacksForSampleBuffersSortedByOutputPTS(), &queue);
 *   if (status == 0)
 *     status = PVBufferQueueInstallTrigger(queue, refill, reader, kPVBufferQueueTrigger_WhenDurationBecomesLessThan,
 *                                          PVTimeMake(1, 2), &low);
 *   if (status == 0) status = PVBufferQueueEnqueue(queue, sample);
 *   PVBufferRef next = PVBufferQueueDequeueAndRetain(queue);          // and BRRelease(next) when it has been used
 *
 * Who owns what: the queue retains a buffer from its enqueue on; a dequeue hands that reference to the caller. The
 * queue retains the notification name of the record, and nothing behind a refcon.
 *
 * What a buffer says of itself: timestamps, duration and size are asked once, while it is enqueued, and the queue goes
 * by those answers until the buffer leaves. A buffer that changes its mind meanwhile, or is invalidated, neither moves
 * in the queue nor spoils the totals. compare is asked at each enqueue, isDataReady whenever readiness matters.
 *
 * Cost: enqueueing in the usual orders (that of presentation, that of B frames) takes the same time whatever the depth;
 * elsewhere it takes the logarithm of the depth in comparisons. The questions take constant time, averaged over the
 * changes in between. Memory grows with the greatest depth and is given back with the queue.
 *
 * Threads: every function may be called from any thread; each holds the queue's mutex, which is reentrant, for the time
 * of the call. All callbacks but that of a reset are called with the mutex held, on the thread that makes the call:
 * they must not wait for another thread that uses the queue.
 *  - Every callback may read the queue. The callbacks of the record should do no more than that.
 *  - A trigger callback may only read: whatever would change the queue fails with CannotModifyFromTrigger.
 *  - Validation, readiness, trigger, reset and for-each callbacks may release the reference that the caller made the
 *    call with: the queue then lives until the call returns.
 *  - Buffers are released without the mutex, except that a buffer may be released while the queue itself goes.
 *
 * A queue with a WhenDataBecomesReady trigger hears the record's notification from its head buffer through
 * <pevrin/notification_center.h>, on the thread that posts it. Queues are registered there for barriers.
 *
 * The functions check their arguments in the order in which the codes are listed with them; every failure passes
 * through <kiv/error.h>. Codes are named below without kPVBufferQueueError_. */
#ifndef PEVRIN_BUFFER_QUEUE_H
#define PEVRIN_BUFFER_QUEUE_H

#include <bedra/runtime.h>
#include <pevrin/time.h>

PV_BEGIN_DECLS

/* A buffer queue. */
typedef struct PVBufferQueue *PVBufferQueueRef;

/* Any Bedra object. */
typedef BRTypeRef PVBufferRef;

enum {
  kPVBufferQueueError_AllocationFailed = -12760,
  kPVBufferQueueError_RequiredParameterMissing = -12761,
  kPVBufferQueueError_InvalidCallbacks = -12762, /* version above 1, or no getDuration */
  kPVBufferQueueError_EnqueueAfterEndOfData = -12763,
  kPVBufferQueueError_QueueIsFull = -12764,
  kPVBufferQueueError_BadTriggerDuration = -12765, /* not a number, or its epoch is not 0 */
  kPVBufferQueueError_CannotModifyFromTrigger = -12766,
  kPVBufferQueueError_InvalidTriggerCondition = -12767, /* unknown, not for this function, or a callback is missing */
  kPVBufferQueueError_InvalidTriggerToken = -12768
};

/* Questions about one buffer, or about the order of two; refcon is that of the callbacks' record. */
typedef PVTime (*PVBufferGetTimeCallback)(PVBufferRef buffer, void *refcon);
typedef bool (*PVBufferGetBooleanCallback)(PVBufferRef buffer, void *refcon);
typedef BRComparisonResult (*PVBufferCompareCallback)(PVBufferRef buffer1, PVBufferRef buffer2, void *refcon);
typedef size_t (*PVBufferGetSizeCallback)(PVBufferRef buffer, void *refcon);

/* How a queue asks about its buffers. All but getDuration may be NULL. */
typedef struct PVBufferCallbacks {
  uint32_t version; /* 0, or 1 when getSize is there to be read */
  void *refcon;     /* handed to every callback; must be good as long as the queue */
  PVBufferGetTimeCallback getDecodeTimeStamp;
  PVBufferGetTimeCallback getPresentationTimeStamp; /* needed by the triggers for timestamps that change */
  PVBufferGetTimeCallback getDuration;              /* required */
  PVBufferGetBooleanCallback isDataReady;           /* NULL: always ready */
  PVBufferCompareCallback compare;                  /* NULL: first in, first out; else -1, 0, 1 as buffer1 goes first */
  BRStringRef dataBecameReadyNotification;          /* what a buffer posts about itself; NULL: nothing */
  PVBufferGetSizeCallback getSize;                  /* bytes; from version 1 on */
} PVBufferCallbacks;

/* For sample buffers: decode and presentation timestamp, duration, readiness, total sample size, and
 * kPVSampleBufferNotification_DataBecameReady. The second record sorts by output presentation timestamp, invalid ones
 * last. Static; the same at every call. */
PV_EXPORT const PVBufferCallbacks *PVBufferQueueGetCallbacksForUnsortedSampleBuffers(void);
PV_EXPORT const PVBufferCallbacks *PVBufferQueueGetCallbacksForSampleBuffersSortedByOutputPTS(void);

/* The runtime type "PVBufferQueue". */
PV_EXPORT BRTypeID PVBufferQueueGetTypeID(void);

/* Creates an empty queue for at most capacity buffers; 0 or less for any number. The record is copied.
 * RequiredParameterMissing: callbacks or queueOut is NULL. InvalidCallbacks. AllocationFailed; or
 * kPVNotificationCenterError_AllocationFailed when there is no memory for the registration for barriers. */
PV_EXPORT PVStatus PVBufferQueueCreate(BRAllocatorRef allocator, int64_t capacity, const PVBufferCallbacks *callbacks,
                                       PVBufferQueueRef *queueOut);

/* ---- In and out */

/* Puts a buffer in its place: last, or in a sorted queue behind all that compare does not put after it. A duration with
 * an epoch signals -666 and counts with epoch 0.
 * RequiredParameterMissing: queue or buffer is NULL. CannotModifyFromTrigger. EnqueueAfterEndOfData. Then whatever the
 * validation callback returns. AllocationFailed. QueueIsFull. With any of them the queue is as it was. */
PV_EXPORT PVStatus PVBufferQueueEnqueue(PVBufferQueueRef queue, PVBufferRef buffer);

/* Asked before each enqueue; a status other than 0 refuses the buffer and is returned as it is. */
typedef PVStatus (*PVBufferQueueValidationCallback)(PVBufferQueueRef queue, PVBufferRef buffer, void *refcon);

/* Sets the validation callback; NULL for none. RequiredParameterMissing: queue is NULL. CannotModifyFromTrigger. */
PV_EXPORT PVStatus PVBufferQueueSetValidationCallback(PVBufferQueueRef queue, PVBufferQueueValidationCallback callback,
                                                      void *refcon);

/* Takes the head buffer out; the caller releases it. NULL when the queue is empty. NULL, and signalled: queue is NULL
 * (RequiredParameterMissing); CannotModifyFromTrigger. */
PV_EXPORT PVBufferRef PVBufferQueueDequeueAndRetain(PVBufferQueueRef queue);

/* The same; NULL also when the head's data are not ready. */
PV_EXPORT PVBufferRef PVBufferQueueDequeueIfDataReadyAndRetain(PVBufferQueueRef queue);

/* The head, or NULL. Lent: valid as long as the buffer stays in the queue, so only where no other thread dequeues. */
PV_EXPORT PVBufferRef PVBufferQueueGetHead(PVBufferQueueRef queue);

/* A NULL queue signals RequiredParameterMissing and is empty. */
PV_EXPORT bool PVBufferQueueIsEmpty(PVBufferQueueRef queue);
PV_EXPORT int64_t PVBufferQueueGetBufferCount(PVBufferQueueRef queue);

/* From here on enqueues are refused, until a reset. What is in the queue can be dequeued.
 * RequiredParameterMissing: queue is NULL. CannotModifyFromTrigger. */
PV_EXPORT PVStatus PVBufferQueueMarkEndOfData(PVBufferQueueRef queue);

/* Whether end of data is marked; whether it is, and the queue is empty. A NULL queue signals RequiredParameterMissing
 * and answers true. */
PV_EXPORT bool PVBufferQueueContainsEndOfData(PVBufferQueueRef queue);
PV_EXPORT bool PVBufferQueueIsAtEndOfData(PVBufferQueueRef queue);

/* (buffer, refcon): a buffer that a reset removed, lent for the call. */
typedef void (*PVBufferQueueResetCallback)(PVBufferRef buffer, void *refcon);

/* Empties the queue and takes the mark of end of data away. Triggers see that as one change. Then, with the mutex given
 * up by this call, callback (which may be NULL) is called for each removed buffer in queue order, and the buffers are
 * released. By then other threads may have enqueued others; callback may do so itself.
 * RequiredParameterMissing: queue is NULL. CannotModifyFromTrigger. */
PV_EXPORT PVStatus PVBufferQueueReset(PVBufferQueueRef queue);
PV_EXPORT PVStatus PVBufferQueueResetWithCallback(PVBufferQueueRef queue, PVBufferQueueResetCallback callback,
                                                  void *refcon);

/* A status other than 0 ends the walk. */
typedef PVStatus (*PVBufferQueueForEachCallback)(PVBufferRef buffer, void *refcon);

/* Calls callback for each buffer from the head on, with the mutex held. The first status other than 0 is returned as it
 * is, not signalled. A callback that changes the queue goes on at the next place, whichever buffer is there by then.
 * RequiredParameterMissing: queue or callback is NULL. */
PV_EXPORT PVStatus PVBufferQueueCallForEachBuffer(PVBufferQueueRef queue, PVBufferQueueForEachCallback callback,
                                                  void *refcon);

/* ---- Totals and timestamps. A NULL queue signals RequiredParameterMissing and gives kPVTimeInvalid, or 0. */

/* The sum of all durations; 0/1 when the queue is empty. As soon as a sum is not a number, it is replaced by greatest
 * presentation timestamp - least one, and further durations count from there. */
PV_EXPORT PVTime PVBufferQueueGetDuration(PVBufferQueueRef queue);

/* In bytes; 0 without getSize. */
PV_EXPORT size_t PVBufferQueueGetTotalSize(PVBufferQueueRef queue);

/* The least, or greatest, valid timestamp; of equal ones that nearest to the head. kPVTimeInvalid when there is none,
 * as in an empty queue or without the callback. */
PV_EXPORT PVTime PVBufferQueueGetMinDecodeTimeStamp(PVBufferQueueRef queue);
PV_EXPORT PVTime PVBufferQueueGetMinPresentationTimeStamp(PVBufferQueueRef queue);
PV_EXPORT PVTime PVBufferQueueGetMaxPresentationTimeStamp(PVBufferQueueRef queue);

/* Where the contents end: the greatest sum of a buffer's presentation timestamp and duration. kPVTimeInvalid as
 * above. */
PV_EXPORT PVTime PVBufferQueueGetEndPresentationTimeStamp(PVBufferQueueRef queue);

/* The head's timestamp. kPVTimeInvalid for an empty queue or without the callback. */
PV_EXPORT PVTime PVBufferQueueGetFirstDecodeTimeStamp(PVBufferQueueRef queue);
PV_EXPORT PVTime PVBufferQueueGetFirstPresentationTimeStamp(PVBufferQueueRef queue);

/* ---- Triggers
 *
 * A trigger's condition is looked at when it is installed, after every change of the queue and when the head announces
 * that its data became ready; triggers are looked at in the order in which they were installed. The two timestamp
 * conditions fire whenever the timestamp has changed, and are true until the next look. All others fire when they turn
 * from false to true. */
typedef int32_t PVBufferQueueTriggerCondition;
enum {
  /* The total duration, by PVTimeCompare, against the time threshold. */
  kPVBufferQueueTrigger_WhenDurationBecomesLessThan = 1,
  kPVBufferQueueTrigger_WhenDurationBecomesLessThanOrEqualTo = 2,
  kPVBufferQueueTrigger_WhenDurationBecomesGreaterThan = 3,
  kPVBufferQueueTrigger_WhenDurationBecomesGreaterThanOrEqualTo = 4,
  /* By PVTimeCompare with the timestamp at the last look, at first that at installation. */
  kPVBufferQueueTrigger_WhenMinPresentationTimeStampChanges = 5,
  kPVBufferQueueTrigger_WhenMaxPresentationTimeStampChanges = 6,
  kPVBufferQueueTrigger_WhenDataBecomesReady = 7,   /* there is a head and its data are ready */
  kPVBufferQueueTrigger_WhenEndOfDataReached = 8,   /* end of data is marked and the queue is empty */
  kPVBufferQueueTrigger_WhenReset = 9,              /* true from a reset to the next enqueue or mark of end of data */
  kPVBufferQueueTrigger_WhenBufferCountBecomesLessThan = 10, /* against the integer threshold */
  kPVBufferQueueTrigger_WhenBufferCountBecomesGreaterThan = 11
};

/* Names one installed trigger, of any queue and for the life of the process: the token of a removed trigger never names
 * another one. Nothing can be read through it. */
typedef struct PVBufferQueueTrigger *PVBufferQueueTriggerToken;

/* The trigger fired. Called with the mutex held, on the thread that made the change. */
typedef void (*PVBufferQueueTriggerCallback)(void *triggerRefcon, PVBufferQueueTriggerToken token);

/* Installs a trigger. callback may be NULL when the state is only to be tested, tokenOut when the trigger is to stay
 * for the life of the queue; not both. A condition that is true already fires before the function returns; *tokenOut is
 * written before that. Conditions 1-4 use timeThreshold.
 * RequiredParameterMissing: queue is NULL, condition is 0, or callback and tokenOut are both NULL.
 * CannotModifyFromTrigger. BadTriggerDuration: for 1-4. InvalidTriggerCondition: for 5 and 6 without
 * getPresentationTimeStamp, for 10, 11 and others not in the list. AllocationFailed; for 7 also
 * kPVNotificationCenterError_AllocationFailed. With any of them nothing is installed and *tokenOut is left alone. */
PV_EXPORT PVStatus PVBufferQueueInstallTrigger(PVBufferQueueRef queue, PVBufferQueueTriggerCallback callback,
                                               void *triggerRefcon, PVBufferQueueTriggerCondition condition,
                                               PVTime timeThreshold, PVBufferQueueTriggerToken *tokenOut);

/* The same for conditions 10 and 11; InvalidTriggerCondition for all others. */
PV_EXPORT PVStatus PVBufferQueueInstallTriggerWithIntegerThreshold(PVBufferQueueRef queue,
                                                                   PVBufferQueueTriggerCallback callback,
                                                                   void *triggerRefcon,
                                                                   PVBufferQueueTriggerCondition condition,
                                                                   int64_t integerThreshold,
                                                                   PVBufferQueueTriggerToken *tokenOut);

/* Removes a trigger. When this returns, its callback is not running and will not be called; its refcon may be freed.
 * RequiredParameterMissing: queue is NULL. CannotModifyFromTrigger: also for a trigger that would remove itself.
 * InvalidTriggerToken: no trigger of this queue, such as NULL. */
PV_EXPORT PVStatus PVBufferQueueRemoveTrigger(PVBufferQueueRef queue, PVBufferQueueTriggerToken token);

/* Whether the condition was true when it was last looked at. False, and signalled: RequiredParameterMissing (queue is
 * NULL), InvalidTriggerToken. */
PV_EXPORT bool PVBufferQueueTestTrigger(PVBufferQueueRef queue, PVBufferQueueTriggerToken token);

PV_END_DECLS

#endif
