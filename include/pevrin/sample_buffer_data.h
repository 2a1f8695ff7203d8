/* Sample buffers whose data come later, go bad or are taken back; and what is attached to them.
 *
 * A sample buffer may be made before its data are there: while they are being read, or as the copy of one that is not
 * filled yet. It then becomes ready, or fails, once and for good:
 *
 *   not ready ---> ready     SetDataReady, MakeDataReady (by the callback), or the tracked buffer is found ready
 *       |
 *       +--------> failed    SetDataFailed, or the tracked buffer is found failed
 *
 * Nobody polls: a buffer that tracks another one looks at it when it is asked itself. Invalidation is apart from
 * this: it takes a buffer back from everyone who holds it, for good.
 *
 * What <pevrin/sample_buffer.h> says of threads, of NULL and of invalidated buffers holds here. Callbacks and
 * notifications come on the calling thread; the buffer is kept alive meanwhile.
 *
 *   while (!PVSampleBufferDataIsReady(sample)) {
 *     PVStatus why = PVSampleBufferMakeDataReady(sample);
 *     if (why != 0) return why;
 *   } */
#ifndef PEVRIN_SAMPLE_BUFFER_DATA_H
#define PEVRIN_SAMPLE_BUFFER_DATA_H

#include <bedra/array.h>
#include <bedra/string.h>
#include <pevrin/handler.h>
#include <pevrin/sample_buffer.h>

PV_BEGIN_DECLS

/* ---- Notifications, posted to the default local center with the sample buffer as the object. */

/* By PVSampleBufferSetDataReady, once; no payload. */
PV_EXPORT extern const BRStringRef kPVSampleBufferNotification_DataBecameReady; /* "KivSampleBufferDataBecameReady" */
/* By PVSampleBufferSetDataFailed, once; the payload has the status. */
PV_EXPORT extern const BRStringRef kPVSampleBufferNotification_DataFailed; /* "PVSampleBufferDataFailed" */
/* The status with which the data failed: a 32-bit number. */
PV_EXPORT extern const BRStringRef kPVSampleBufferNotificationParameter_Selvat; /* "Selvat" */

/* ---- Data and readiness */

/* Gives a buffer its data; retained. It does not become ready by this.
 * Statuses: RequiredParameterMissing (dataBuffer), AlreadyHasData (a data or image buffer). */
PV_EXPORT PVStatus PVSampleBufferSetDataBuffer(PVSampleBufferRef buffer, PVBlockBufferRef dataBuffer);

/* Says that the data are there; the first time, posts DataBecameReady. Sizes that do not add up to the length of the
 * data are reported as at creation. Status: why the data failed, if they did. */
PV_EXPORT PVStatus PVSampleBufferSetDataReady(PVSampleBufferRef buffer);

/* True when the data are there. When the tracked buffer turns out to be ready, this one becomes so, and posts. */
PV_EXPORT bool PVSampleBufferDataIsReady(PVSampleBufferRef buffer);

/* Says that the data will never come, for the reason given (0 stands for DataFailed), and posts DataFailed.
 * Statuses: AlreadyHasData (ready); DataFailed (failed already: the first reason stays); AllocationFailed (no memory
 * for the notification's payload; nothing has changed). */
PV_EXPORT PVStatus PVSampleBufferSetDataFailed(PVSampleBufferRef buffer, PVStatus status);

/* True when the data failed; *statusOut, which may be NULL, is then why. When the tracked buffer turns out to have
 * failed, this one fails for the same reason, and posts. */
PV_EXPORT bool PVSampleBufferHasDataFailed(PVSampleBufferRef buffer, PVStatus *statusOut);

/* Makes the data ready now: by the tracked buffer if there is one, else by the callback. Posts nothing.
 * Statuses: what the tracked buffer or the callback returns; why the data failed (not signalled when they had failed
 * before); DataNotReady (no callback). */
PV_EXPORT PVStatus PVSampleBufferMakeDataReady(PVSampleBufferRef buffer);

/* Lets a buffer become ready, or fail, with another one, which is retained until then; the one that was tracked before
 * is released. With NULL, itself, or a buffer that itself waits for this one, nothing is tracked. When the other one is
 * ready already, so is the buffer, and nothing is posted.
 * Statuses: AlreadyHasData (ready); why the data failed, if they did. */
PV_EXPORT PVStatus PVSampleBufferTrackDataReadiness(PVSampleBufferRef buffer, PVSampleBufferRef bufferToTrack);

/* ---- Validity */

/* Called once, with the buffer that has just become invalid. */
typedef void (*PVSampleBufferInvalidateCallback)(PVSampleBufferRef buffer, void *refCon);

/* A closure: see <pevrin/handler.h>. */
typedef struct PVSampleBufferInvalidateHandler {
  void (*invoke)(void *context, PVSampleBufferRef buffer);
  void *context;
  void *(*copy)(void *context);
  void (*dispose)(void *context);
} PVSampleBufferInvalidateHandler;

/* Takes the buffer back: calls the invalidate callback or handler while the buffer is still valid, and from then on
 * every function fails with Invalidated. */
PV_EXPORT PVStatus PVSampleBufferInvalidate(PVSampleBufferRef buffer);

/* False for NULL, too; signals nothing. */
PV_EXPORT bool PVSampleBufferIsValid(PVSampleBufferRef buffer);

/* Sets what is called at invalidation: for instance to cancel the reading of the data. There is one, and it is not
 * replaced: NULL clears it first.
 * Statuses: RequiredParameterMissing (there is one already); AllocationFailed. */
PV_EXPORT PVStatus PVSampleBufferSetInvalidateCallback(PVSampleBufferRef buffer,
                                                       PVSampleBufferInvalidateCallback callback, void *refCon);

/* The same with a closure, of which the buffer keeps a copy until it is cleared or the buffer goes. */
PV_EXPORT PVStatus PVSampleBufferSetInvalidateHandler(PVSampleBufferRef buffer,
                                                      const PVSampleBufferInvalidateHandler *handler);

/* ---- Attachments
 *
 * A sample buffer bears attachments (<pevrin/attachment.h>) for itself as a whole, and a dictionary for each sample. */

/* Edits; they decide about the output times as soon as they are set. A value of another kind, or a trim that is not a
 * number, is no edit. */
PV_EXPORT extern const BRStringRef kPVSampleBufferAttachmentKey_TrimDurationAtStart; /* PVTimeCopyAsDictionary */
PV_EXPORT extern const BRStringRef kPVSampleBufferAttachmentKey_TrimDurationAtEnd;   /* PVTimeCopyAsDictionary */
PV_EXPORT extern const BRStringRef kPVSampleBufferAttachmentKey_SpeedMultiplier;     /* number: 2.0 is twice as fast */
PV_EXPORT extern const BRStringRef kPVSampleBufferAttachmentKey_Reverse;             /* boolean */

/* Keys for the samples' dictionaries; each value is a boolean. */
PV_EXPORT extern const BRStringRef kPVSampleAttachmentKey_NotSync;     /* decoding cannot begin here */
PV_EXPORT extern const BRStringRef kPVSampleAttachmentKey_PartialSync; /* it can, with some samples around missing */
PV_EXPORT extern const BRStringRef kPVSampleAttachmentKey_HasRedundantCoding;
PV_EXPORT extern const BRStringRef kPVSampleAttachmentKey_IsDependedOnByOthers; /* false: it may be dropped */
PV_EXPORT extern const BRStringRef kPVSampleAttachmentKey_DependsOnOthers;      /* false: an intra picture */
PV_EXPORT extern const BRStringRef kPVSampleAttachmentKey_EarlierDisplayTimesAllowed;
PV_EXPORT extern const BRStringRef kPVSampleAttachmentKey_DisplayImmediately;
PV_EXPORT extern const BRStringRef kPVSampleAttachmentKey_DoNotDisplay;

/* An immutable array with a mutable dictionary for each sample, borrowed. When there is none yet it is made, if that is
 * asked for and the buffer has samples; else NULL. AllocationFailed is signalled. */
PV_EXPORT BRArrayRef PVSampleBufferGetSampleAttachmentsArray(PVSampleBufferRef buffer, bool createIfNecessary);

PV_END_DECLS

#ifdef __cplusplus
/* With any callable that takes the buffer: a lambda, a functor. */
template <pv::Callable<PVSampleBufferRef> F>
PVStatus PVSampleBufferSetInvalidateHandler(PVSampleBufferRef buffer, const F &callable) {
  const auto handler = pv::handlerFor<PVSampleBufferInvalidateHandler>(callable);
  return PVSampleBufferSetInvalidateHandler(buffer, &handler);
}
#endif

#endif
