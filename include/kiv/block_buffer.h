/* Block buffers, for sibling media layers. */
#ifndef KIV_BLOCK_BUFFER_H
#define KIV_BLOCK_BUFFER_H

#include <pevrin/block_buffer.h>

PV_BEGIN_DECLS

/* Does what PVBlockBufferGetDataPointer does, and also names the buffer that owns the memory: the one that holds the
 * memory block itself, at the end of all references. *originOut is borrowed: it lives as long as the buffer holds its
 * reference to it, and may be retained. *originOffsetOut is the byte's offset within it: asked for that offset, the
 * origin gives the same pointer.
 *
 * Every output may be NULL, and is written only on success. Statuses and threads are those of
 * PVBlockBufferGetDataPointer. The origin of bytes that a buffer holds in an overflow child is that child, which is a
 * block buffer like any other. */
PV_EXPORT PVStatus KivBlockBufferGetDataPointerAndOrigin(PVBlockBufferRef buffer, size_t offset,
                                                         size_t *lengthAtOffsetOut, size_t *totalLengthOut,
                                                         char **dataPointerOut, PVBlockBufferRef *originOut,
                                                         size_t *originOffsetOut);

/* Appends a copy of the bytes. Appends share memory blocks: each takes the room left behind the last one, or a new
 * block from the buffer's own allocator, at least 4 KiB and growing with the buffer, so that a buffer written in small
 * pieces has few entries. The bytes of one append lie in one block. Statuses: kPVBlockBufferBadPointerParameterErr
 * (null buffer or bytes), kPVBlockBufferBadLengthParameterErr (a length of 0, or a total past the largest size),
 * kPVBlockBufferBlockAllocationFailedErr and kPVBlockBufferStructureAllocationFailedErr; the buffer is then as before.
 * Appends need the caller's lock. */
PV_EXPORT PVStatus KivBlockBufferAppendBytes(PVBlockBufferRef buffer, const void *bytes, size_t length);

/* Adds a reference and returns the buffer. NULL is allowed and gives NULL. Any thread. */
PV_EXPORT PVBlockBufferRef KivBlockBufferRetain(PVBlockBufferRef buffer);

/* Drops a reference; the last one gives back every block. NULL is allowed. Any thread. */
PV_EXPORT void KivBlockBufferRelease(PVBlockBufferRef buffer);

PV_END_DECLS

#endif
