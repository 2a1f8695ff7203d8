/* Sample buffers, for sibling media layers. */
#ifndef KIV_SAMPLE_BUFFER_H
#define KIV_SAMPLE_BUFFER_H

#include <pevrin/sample_buffer.h>

PV_BEGIN_DECLS

/* A copy as PVSampleBufferCreateCopy makes it, but without the data or image buffer: timing, sizes, format and
 * attachments. Statuses: those of PVSampleBufferCreateCopy. */
PV_EXPORT PVStatus KivSampleBufferCreateCopyWithNoData(BRAllocatorRef allocator, PVSampleBufferRef source,
                                                       PVSampleBufferRef *bufferOut);

/* Adds a reference and returns the buffer. NULL is allowed and gives NULL. Any thread. */
PV_EXPORT PVSampleBufferRef KivSampleBufferRetain(PVSampleBufferRef buffer);

/* Drops a reference. NULL is allowed. Any thread. */
PV_EXPORT void KivSampleBufferRelease(PVSampleBufferRef buffer);

PV_END_DECLS

#endif
