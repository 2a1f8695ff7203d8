/* Parts of a sample buffer: a range of its samples, or each by itself.
 *
 * A piece is a sample buffer of its own that shares the bytes of the whole: its data are a reference to the range, no
 * media byte is copied. Put one after another, the pieces of a buffer say what the whole says:
 *   - Times: an entry that stands for all samples is moved to the piece's first one; its decode time, too, if it has
 *     one.
 *   - Trims: each piece has its share. A trim at the start belongs to the first piece, and what is longer than that to
 *     the next one, and so on; likewise from the end. A piece without a share has no trim.
 *   - Speed and reversal are those of the whole. Under a speed, or when the client set an output presentation time, the
 *     piece's output presentation time is set to where its first sample stands in the output of the whole.
 *   - Attachments that propagate, and those of its samples, are copied. Others, except the edits, are not.
 *   - Readiness: the piece of a buffer that is not ready tracks it.
 *
 * What <pevrin/sample_buffer.h> says of threads, of NULL and of invalidated buffers holds here.
 *
 *   PVSampleBufferCallBlockForEachSample(frames, [&](PVSampleBufferRef frame, int64_t) { return decode(frame); }); */
#ifndef PEVRIN_SAMPLE_BUFFER_PIECES_H
#define PEVRIN_SAMPLE_BUFFER_PIECES_H

#include <bedra/array.h>
#include <pevrin/handler.h>
#include <pevrin/sample_buffer.h>

PV_BEGIN_DECLS

/* A range of samples, the first one being 0. */
typedef struct PVSampleRange {
  int64_t location;
  int64_t length;
} PVSampleRange;

/* The piece that is a range. Of 0 samples it has neither data nor sizes. A whole that has no data buffer gives pieces
 * without one.
 * Statuses, in this order: RequiredParameterMissing (buffer or pieceOut); NoSampleSizes (neither sizes nor packet
 * descriptions that are filled: where the samples lie is not known; nor is it in an image buffer);
 * SampleIndexOutOfRange (the location is not the index of a sample, or the range ends past the last); DataNotReady (not
 * ready and without a data buffer); those of PVBlockBufferCreateWithBufferReference (the data are shorter than the
 * sizes say); AllocationFailed. On failure *pieceOut is NULL. */
PV_EXPORT PVStatus PVSampleBufferCopySampleBufferForRange(BRAllocatorRef allocator, PVSampleBufferRef buffer,
                                                          PVSampleRange range, PVSampleBufferRef *pieceOut);

/* Called with each sample as a buffer, lent for the call, and its index. Anything but 0 ends the walk. */
typedef PVStatus (*PVSampleBufferEachSampleCallback)(PVSampleBufferRef sample, int64_t index, void *refCon);

/* A closure: see <pevrin/handler.h>. */
typedef struct PVSampleBufferEachSampleHandler {
  PVStatus (*invoke)(void *context, PVSampleBufferRef sample, int64_t index);
  void *context;
  void *(*copy)(void *context);
  void (*dispose)(void *context);
} PVSampleBufferEachSampleHandler;

/* Calls back for each sample, in order: with the buffer itself when it has one sample, else with its pieces of one
 * sample. Not at all for a marker.
 * Statuses: RequiredParameterMissing (buffer or callback); what the callback returned when that was not 0; those of
 * PVSampleBufferCopySampleBufferForRange, also in the middle, when the callback changes the buffer so. */
PV_EXPORT PVStatus PVSampleBufferCallForEachSample(PVSampleBufferRef buffer, PVSampleBufferEachSampleCallback callback,
                                                   void *refCon);
/* The same with a closure, called before this returns. */
PV_EXPORT PVStatus PVSampleBufferCallBlockForEachSample(PVSampleBufferRef buffer,
                                                        const PVSampleBufferEachSampleHandler *handler);

PV_END_DECLS

#ifdef __cplusplus
/* With any callable that takes the sample and its index and returns a status. */
template <pv::Callable<PVSampleBufferRef, int64_t> F>
PVStatus PVSampleBufferCallBlockForEachSample(PVSampleBufferRef buffer, const F &callable) {
  const auto handler = pv::handlerFor<PVSampleBufferEachSampleHandler>(callable);
  return PVSampleBufferCallBlockForEachSample(buffer, &handler);
}
#endif

#endif
