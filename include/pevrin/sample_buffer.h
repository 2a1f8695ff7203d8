/* Sample buffers: media samples of one format, bound to their timing.
 *
 * A sample buffer holds either a block buffer with the bytes of any number of samples, or one image buffer; a format
 * description that says what they are; and for each sample its times and its size, in compact form. It is the unit
 * that demultiplexers hand out, queues order, and decoders and renderers consume. Around this header stand
 * <pevrin/sample_buffer_data.h> (readiness, failure, invalidation, attachments), <pevrin/sample_buffer_pieces.h> (parts
 * of a buffer) and <pevrin/sample_buffer_audio.h>.
 *
 * Compact forms. Of N samples, the timing entries are
 *   none           no times are known;
 *   one            it stands for all: each sample has its duration, and they follow each other from its presentation
 *                  time on;
 *   N              one for each sample, in decode order;
 * and the size entries are none, one (all samples have that size) or N. A buffer of 0 samples, a marker, has at most
 * one timing entry and no size entries. A second of 48 kHz PCM is 48,000 samples with one timing and one size entry;
 * the time of any sample is exact and found in constant time.
 *
 * Who owns what: the buffer retains its data, its format description and what is attached to it; timing, sizes and
 * format never change after creation. Get functions lend.
 *
 * Output times are where the samples come to stand when the edits attached to the buffer are applied: trims at either
 * end, a speed, reversal (kPVSampleBufferAttachmentKey_...). Decoders see the plain times, queues and renderers the
 * output times.
 *
 * Threads: no function here locks. Any number of threads may read a buffer that is ready and that nobody changes;
 * changes of readiness, validity and attachments need serialising with all other use. Retain and release are always
 * safe.
 *
 * Every function that takes a sample buffer first refuses NULL (RequiredParameterMissing) and then an invalidated
 * buffer (Invalidated); this is not said again with each. Every failure passes through <kiv/error.h>. A getter that
 * fails gives 0, NULL or kPVTimeInvalid.
 *
 *   PVSampleTimingInfo timing = {PVTimeMake(1001, 30000), presentation, decode};
 *   PVSampleBufferRef sample;
 *   PVStatus status = PVSampleBufferCreateReady(NULL, bytes, format, 1, 1, &timing, 1, &size, &sample);
 *   if (status == 0) status = PVBufferQueueEnqueue(queue, sample);
 *   BRRelease(sample);
 */
#ifndef PEVRIN_SAMPLE_BUFFER_H
#define PEVRIN_SAMPLE_BUFFER_H

#include <bedra/allocator.h>
#include <bedra/runtime.h>
#include <imlay/image_buffer.h>
#include <pevrin/block_buffer.h>
#include <pevrin/format_description.h>
#include <pevrin/time.h>
#include <tonvik/audio_types.h>

PV_BEGIN_DECLS

/* A sample buffer. */
typedef struct PVSampleBuffer *PVSampleBufferRef;

enum {
  kPVSampleBufferError_AllocationFailed = -12730,
  kPVSampleBufferError_RequiredParameterMissing = -12731, /* also reported, not returned, for data of another size */
  kPVSampleBufferError_AlreadyHasData = -12732,           /* it has a data or image buffer, or is ready already */
  kPVSampleBufferError_DataNotReady = -12733,             /* the data are needed now, or nothing can make them ready */
  kPVSampleBufferError_SampleIndexOutOfRange = -12734,
  kPVSampleBufferError_NoSampleSizes = -12735,
  kPVSampleBufferError_NoSampleTiming = -12736,
  kPVSampleBufferError_ArrayTooSmall = -12737,
  kPVSampleBufferError_InvalidEntryCount = -12738,
  kPVSampleBufferError_TimingNotNumeric = -12740,
  kPVSampleBufferError_InvalidMediaType = -12741,   /* the operation is not for samples of this media type */
  kPVSampleBufferError_InvalidMediaFormat = -12742, /* nor for this format of that media type */
  kPVSampleBufferError_FormatMismatch = -12743,     /* the format description does not say what the data are */
  kPVSampleBufferError_Invalidated = -12744,
  kPVSampleBufferError_DataFailed = -16750
};

/* The times of one sample, or of each of several that follow each other. What is not known is kPVTimeInvalid. */
typedef struct PVSampleTimingInfo {
  PVTime duration;
  PVTime presentationTimeStamp;
  PVTime decodeTimeStamp;
} PVSampleTimingInfo;

/* All three invalid. */
PV_EXPORT extern const PVSampleTimingInfo kPVSampleTimingInfoInvalid;

/* Makes the data ready, before it returns: fills the buffer that PVSampleBufferGetDataBuffer gives, or sets one. 0: the
 * data are there now; anything else is why not. It may fail the buffer (PVSampleBufferSetDataFailed). */
typedef PVStatus (*PVSampleBufferMakeDataReadyCallback)(PVSampleBufferRef buffer, void *refCon);

/* The runtime type "PVSampleBuffer". */
PV_EXPORT BRTypeID PVSampleBufferGetTypeID(void);

/* ---- Creation. On failure *bufferOut is NULL and nothing is retained. */

/* A buffer of numSamples samples in a block buffer.
 *
 * dataBuffer may be NULL and be set later; formatDescription may be NULL for markers. When dataReady is false the
 * callback, if any, is asked by PVSampleBufferMakeDataReady. Entries are copied.
 *
 * Sizes that do not add up to the length of ready data are reported (RequiredParameterMissing is signalled) and
 * accepted: the buffer is made and 0 returned.
 *
 * Statuses, in this order: RequiredParameterMissing (bufferOut); InvalidEntryCount (a count that is none of the compact
 * forms, or negative); RequiredParameterMissing (entries are counted but their array is NULL);
 * kPVFormatDescriptionError_InvalidParameter (an audio description without a stream description); AllocationFailed. */
PV_EXPORT PVStatus PVSampleBufferCreate(BRAllocatorRef allocator, PVBlockBufferRef dataBuffer, bool dataReady,
                                        PVSampleBufferMakeDataReadyCallback makeDataReadyCallback,
                                        void *makeDataReadyRefCon, PVFormatDescriptionRef formatDescription,
                                        int64_t numSamples, int64_t numSampleTimingEntries,
                                        const PVSampleTimingInfo *sampleTimingArray, int64_t numSampleSizeEntries,
                                        const size_t *sampleSizeArray, PVSampleBufferRef *bufferOut);

/* The same with data that are ready. */
PV_EXPORT PVStatus PVSampleBufferCreateReady(BRAllocatorRef allocator, PVBlockBufferRef dataBuffer,
                                             PVFormatDescriptionRef formatDescription, int64_t numSamples,
                                             int64_t numSampleTimingEntries,
                                             const PVSampleTimingInfo *sampleTimingArray, int64_t numSampleSizeEntries,
                                             const size_t *sampleSizeArray, PVSampleBufferRef *bufferOut);

/* A buffer of one sample that is an image buffer. Its format description is a video one that matches the image
 * (PVVideoFormatDescriptionMatchesImageBuffer).
 * Statuses, in this order: RequiredParameterMissing (bufferOut, imageBuffer or formatDescription); InvalidMediaType
 * (not a video description); RequiredParameterMissing (sampleTiming); FormatMismatch; AllocationFailed. */
PV_EXPORT PVStatus PVSampleBufferCreateForImageBuffer(BRAllocatorRef allocator, IMImageBufferRef imageBuffer,
                                                      bool dataReady,
                                                      PVSampleBufferMakeDataReadyCallback makeDataReadyCallback,
                                                      void *makeDataReadyRefCon,
                                                      PVFormatDescriptionRef formatDescription,
                                                      const PVSampleTimingInfo *sampleTiming,
                                                      PVSampleBufferRef *bufferOut);

/* The same with an image that is ready. */
PV_EXPORT PVStatus PVSampleBufferCreateReadyWithImageBuffer(BRAllocatorRef allocator, IMImageBufferRef imageBuffer,
                                                            PVFormatDescriptionRef formatDescription,
                                                            const PVSampleTimingInfo *sampleTiming,
                                                            PVSampleBufferRef *bufferOut);

/* A copy: the same data (shared), readiness, format, timing, sizes and packet descriptions; copies of the per-sample
 * attachments and of the attachments that propagate; the client's output presentation time. Not copied: attachments
 * that do not propagate, callbacks, failure. The copy of a buffer that is not ready retains and tracks it
 * (PVSampleBufferTrackDataReadiness), and so becomes ready, or fails, with it.
 * Statuses: RequiredParameterMissing (source or bufferOut); AllocationFailed. */
PV_EXPORT PVStatus PVSampleBufferCreateCopy(BRAllocatorRef allocator, PVSampleBufferRef source,
                                            PVSampleBufferRef *bufferOut);

/* A copy with other times (0, 1 or N entries), without the client's output presentation time.
 * Statuses: RequiredParameterMissing (source or bufferOut; entries are counted but the array is NULL);
 * InvalidEntryCount (negative, or 2 and more but not the number of samples); AllocationFailed. */
PV_EXPORT PVStatus PVSampleBufferCreateCopyWithNewTiming(BRAllocatorRef allocator, PVSampleBufferRef source,
                                                         int64_t numSampleTimingEntries,
                                                         const PVSampleTimingInfo *sampleTimingArray,
                                                         PVSampleBufferRef *bufferOut);

/* ---- What it holds */

/* The number of samples, 0 for NULL; and what describes them, lent, NULL when nothing does. */
PV_EXPORT int64_t PVSampleBufferGetNumSamples(PVSampleBufferRef buffer);
PV_EXPORT PVFormatDescriptionRef PVSampleBufferGetFormatDescription(PVSampleBufferRef buffer);
/* NULL when there are no data yet, or an image buffer. */
PV_EXPORT PVBlockBufferRef PVSampleBufferGetDataBuffer(PVSampleBufferRef buffer);
/* NULL when the samples are in a block buffer. */
PV_EXPORT IMImageBufferRef PVSampleBufferGetImageBuffer(PVSampleBufferRef buffer);

/* ---- Times, as created */

/* The earliest presentation and the earliest decode time of the samples; invalid without timing. */
PV_EXPORT PVTime PVSampleBufferGetPresentationTimeStamp(PVSampleBufferRef buffer);
PV_EXPORT PVTime PVSampleBufferGetDecodeTimeStamp(PVSampleBufferRef buffer);

/* The durations of all samples together (of a marker: its entry's); 0/1, unlike the time stamps, without timing. */
PV_EXPORT PVTime PVSampleBufferGetDuration(PVSampleBufferRef buffer);

/* The times of one sample. With one entry for several samples the decode time is not known.
 * Statuses: RequiredParameterMissing (timingInfoOut); NoSampleTiming; SampleIndexOutOfRange. */
PV_EXPORT PVStatus PVSampleBufferGetSampleTimingInfo(PVSampleBufferRef buffer, int64_t sampleIndex,
                                                     PVSampleTimingInfo *timingInfoOut);

/* Copies the entries as they are: 0, 1 or N. Either output may be NULL: with timingArrayOut NULL it only counts.
 * *entriesNeededOut is written with every status below.
 * Statuses: NoSampleTiming (not signalled; 0 needed); ArrayTooSmall (nothing copied). */
PV_EXPORT PVStatus PVSampleBufferGetSampleTimingInfoArray(PVSampleBufferRef buffer, int64_t timingArrayEntries,
                                                          PVSampleTimingInfo *timingArrayOut,
                                                          int64_t *entriesNeededOut);

/* ---- Times, after the edits attached to the buffer
 *
 * Presentation: the time set by the client if that is a number; else the presentation time, plus the trim at the start;
 * or reversed, plus the duration, minus the trim at the end.
 * Duration: without the trims, divided by the speed.
 * Decode: as far from the output presentation time as the decode time is from the presentation time, divided by the
 * speed. */
PV_EXPORT PVTime PVSampleBufferGetOutputPresentationTimeStamp(PVSampleBufferRef buffer);
PV_EXPORT PVTime PVSampleBufferGetOutputDecodeTimeStamp(PVSampleBufferRef buffer);
PV_EXPORT PVTime PVSampleBufferGetOutputDuration(PVSampleBufferRef buffer);

/* Sets the client's output presentation time; one that is not a number gives it up again. Status: AllocationFailed. */
PV_EXPORT PVStatus PVSampleBufferSetOutputPresentationTimeStamp(PVSampleBufferRef buffer, PVTime time);

/* The output times of the samples, in the order of the samples, so that they agree with the three above: the earliest
 * presentation time (reversed: the latest) is the buffer's, and the durations add up to the buffer's, but for what a
 * speed rounds. A trim that is longer than the sample at that end goes on into the next ones; a sample that is
 * trimmed away has duration 0 and stands at the end of the output that it was trimmed from. Within the buffer,
 * distances are divided by the speed. The entries are as many as the buffer has; or one for each sample when one
 * stands for several and there is a trim. Arguments and statuses as for PVSampleBufferGetSampleTimingInfoArray. */
PV_EXPORT PVStatus PVSampleBufferGetOutputSampleTimingInfoArray(PVSampleBufferRef buffer, int64_t timingArrayEntries,
                                                                PVSampleTimingInfo *timingArrayOut,
                                                                int64_t *entriesNeededOut);

/* ---- Sizes, in bytes */

/* One sample's size; 0 with NoSampleSizes or SampleIndexOutOfRange signalled. */
PV_EXPORT size_t PVSampleBufferGetSampleSize(PVSampleBufferRef buffer, int64_t sampleIndex);

/* Copies the entries as they are, as PVSampleBufferGetSampleTimingInfoArray does; NoSampleSizes instead of
 * NoSampleTiming. */
PV_EXPORT PVStatus PVSampleBufferGetSampleSizeArray(PVSampleBufferRef buffer, int64_t sizeArrayEntries,
                                                    size_t *sizeArrayOut, int64_t *entriesNeededOut);

/* All sizes together; without sizes, those of the packet descriptions if they are there, else 0. */
PV_EXPORT size_t PVSampleBufferGetTotalSampleSize(PVSampleBufferRef buffer);

PV_END_DECLS

#endif
