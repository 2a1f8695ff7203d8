/* Block buffers: bytes scattered over memory blocks, and over ranges of other block buffers, as one run of offsets
 * 0 ... length - 1.
 *
 * A block buffer is built by appending: memory blocks, given or still to be allocated, and references to ranges of
 * other block buffers. References share bytes and never copy them. What was appended stays; its bytes may be replaced.
 *
 * Who owns what: a memory block goes back to its block allocator, or to the custom source's freeBlock, when the buffer
 * goes. A block given with kBRAllocatorNull stays the caller's and must outlive the buffer. A buffer retains the
 * buffers it references. A buffer may bear attachments (<pevrin/attachment.h>).
 *
 * Room: a buffer is created for a number of subblocks (the capacity). When more are appended they go into an overflow
 * child, another buffer of the same capacity, and on from there into its child. Lengths and offsets run on, appending
 * takes the same time whatever the length of the chain, and finding an offset takes the logarithm of the number of
 * subblocks. A capacity that fits saves memory.
 *
 * Threads: none of these functions locks. Any number of threads may read a buffer once it is built, and may append it,
 * or ranges of it, to buffers of their own. Appending to a buffer, assuring its memory and writing its bytes need
 * serialising with all other use of it and of the buffers that reference it. Retain and release are always safe.
 *
 * All lengths and offsets are in bytes. Every failure passes through <kiv/error.h>.
 *
 *   PVBlockBufferRef frame;
 *   PVStatus status = PVBlockBufferCreateWithMemoryBlock(NULL, header, 24, kBRAllocatorNull, NULL, 0, 24, 0, &frame);
 *   if (status == 0) status = PVBlockBufferAppendBufferReference(frame, file, payloadOffset, payloadLength, 0);
 *   if (status == 0) status = PVBlockBufferCopyDataBytes(frame, 0, 24 + payloadLength, destination);
 *   BRRelease(frame);
 */
#ifndef PEVRIN_BLOCK_BUFFER_H
#define PEVRIN_BLOCK_BUFFER_H

#include <bedra/allocator.h>
#include <bedra/runtime.h>
#include <pevrin/base.h>

PV_BEGIN_DECLS

/* A block buffer. */
typedef struct PVBlockBuffer *PVBlockBufferRef;

/* Flags of the functions that create and append. */
typedef uint32_t PVBlockBufferFlags;
enum {
  /* Allocate a missing memory block at once. */
  kPVBlockBufferAssureMemoryNowFlag = 1,
  /* Contiguous creation copies even when the range is contiguous already. */
  kPVBlockBufferAlwaysCopyDataFlag = 2,
  /* A reference points at the given buffer, not at the buffers that own its memory. */
  kPVBlockBufferDontOptimizeDepthFlag = 4,
  /* A buffer that is still empty may be referenced. */
  kPVBlockBufferPermitEmptyReferenceFlag = 8
};

/* Statuses. */
enum {
  /* The buffer object, the room for a subblock or the copy of a custom source cannot be allocated. */
  kPVBlockBufferStructureAllocationFailedErr = -12700,
  /* A memory block cannot be allocated, or the null allocator is asked for one. */
  kPVBlockBufferBlockAllocationFailedErr = -12701,
  /* The custom source's version is not 0, or the callback that is needed is missing. */
  kPVBlockBufferBadCustomBlockSourceErr = -12702,
  /* The offset is not below the length it must lie within, or there are no data at the offset. */
  kPVBlockBufferBadOffsetParameterErr = -12703,
  /* The length is zero or too long: the range ends past the end, or a length would exceed SIZE_MAX. */
  kPVBlockBufferBadLengthParameterErr = -12704,
  /* A required pointer is null; or a reference would lead back to the buffer that it is appended to. */
  kPVBlockBufferBadPointerParameterErr = -12705,
  /* The buffer holds no data. */
  kPVBlockBufferEmptyBBufErr = -12706,
  /* The bytes asked for are in a memory block that is not allocated yet. */
  kPVBlockBufferUnallocatedBlockErr = -12707
};

/* Where blocks come from and go to, when it is not an allocator. The buffer keeps a copy of the record. allocateBlock
 * is needed for blocks that the buffer allocates, freeBlock for blocks that the caller gives; a block that the buffer
 * allocated is left alone at the end when there is no freeBlock. allocateBlock may return NULL when memory runs out.
 * Both are called on the thread that assures memory or drops the last reference. */
#pragma pack(push, 4)
typedef struct PVBlockBufferCustomBlockSource {
  uint32_t version; /* must be 0 */
  void *(*allocateBlock)(void *refCon, size_t sizeBytes);
  void (*freeBlock)(void *refCon, void *block, size_t sizeBytes);
  void *refCon;
} PVBlockBufferCustomBlockSource;
#pragma pack(pop)

/* The runtime type "PVBlockBuffer". */
PV_EXPORT BRTypeID PVBlockBufferGetTypeID(void);

/* Creates a buffer without data, with room for subBlockCapacity subblocks (at least one) before it overflows.
 * structureAllocator provides the buffer and its children. No flag has a meaning here.
 * Statuses: BadPointerParameter when bufferOut is null; StructureAllocationFailed. */
PV_EXPORT PVStatus PVBlockBufferCreateEmpty(BRAllocatorRef structureAllocator, uint32_t subBlockCapacity,
                                            PVBlockBufferFlags flags, PVBlockBufferRef *bufferOut);

/* Creates a buffer with room for one subblock and appends a memory block: see PVBlockBufferAppendMemoryBlock, whose
 * statuses these are. On failure *bufferOut is NULL and a given memory block stays the caller's. */
PV_EXPORT PVStatus PVBlockBufferCreateWithMemoryBlock(BRAllocatorRef structureAllocator, void *memoryBlock,
                                                      size_t blockLength, BRAllocatorRef blockAllocator,
                                                      const PVBlockBufferCustomBlockSource *customBlockSource,
                                                      size_t offsetToData, size_t dataLength, PVBlockBufferFlags flags,
                                                      PVBlockBufferRef *bufferOut);

/* Creates a buffer with room for one subblock and appends a reference: see PVBlockBufferAppendBufferReference, whose
 * statuses these are. On failure *bufferOut is NULL. */
PV_EXPORT PVStatus PVBlockBufferCreateWithBufferReference(BRAllocatorRef structureAllocator,
                                                          PVBlockBufferRef targetBuffer, size_t offsetToData,
                                                          size_t dataLength, PVBlockBufferFlags flags,
                                                          PVBlockBufferRef *bufferOut);

/* Creates a buffer whose dataLength bytes, from offsetToData of the source on, stand in one piece. A length of 0 means
 * to the end. When they do already, the new buffer references them, unless kPVBlockBufferAlwaysCopyDataFlag is set;
 * otherwise they are copied into one new block from blockAllocator or customBlockSource.
 * Statuses, in this order: BadPointerParameter (source or bufferOut null), EmptyBBuf, BadOffsetParameter,
 * BadLengthParameter, then those of PVBlockBufferCreateWithMemoryBlock, then UnallocatedBlock when the source's memory
 * is not there yet (it is not assured). On failure *bufferOut is NULL. */
PV_EXPORT PVStatus PVBlockBufferCreateContiguous(BRAllocatorRef structureAllocator, PVBlockBufferRef sourceBuffer,
                                                 BRAllocatorRef blockAllocator,
                                                 const PVBlockBufferCustomBlockSource *customBlockSource,
                                                 size_t offsetToData, size_t dataLength, PVBlockBufferFlags flags,
                                                 PVBlockBufferRef *bufferOut);

/* Appends dataLength bytes, from offsetToData of a memory block of blockLength bytes on.
 *
 * A given memoryBlock belongs to the buffer from now on; it is given back to customBlockSource, or else to
 * blockAllocator (NULL: the default allocator; kBRAllocatorNull: to nobody). With memoryBlock NULL the block comes from
 * there too: at once with kPVBlockBufferAssureMemoryNowFlag, else when the memory is first assured or written.
 *
 * Statuses, in this order: BadPointerParameter (buffer null); BadLengthParameter (blockLength or dataLength 0);
 * BadOffsetParameter (offsetToData not below blockLength); BadLengthParameter (the data end past the block);
 * BlockAllocationFailed (no block, no custom source and the null allocator); BadCustomBlockSource;
 * BadLengthParameter (the buffer's length would exceed SIZE_MAX); StructureAllocationFailed; BlockAllocationFailed.
 * On failure the buffer is as it was and a given memory block stays the caller's. */
PV_EXPORT PVStatus PVBlockBufferAppendMemoryBlock(PVBlockBufferRef buffer, void *memoryBlock, size_t blockLength,
                                                  BRAllocatorRef blockAllocator,
                                                  const PVBlockBufferCustomBlockSource *customBlockSource,
                                                  size_t offsetToData, size_t dataLength, PVBlockBufferFlags flags);

/* Appends a reference to dataLength bytes of another buffer, from offsetToData on. A length of 0 means to the end.
 *
 * The range is resolved: each part becomes a reference to the buffer that owns its memory, so that a reference to a
 * buffer of references costs no more than one to the memory; neighbouring parts of one owner are one reference, also
 * with the reference appended last. A part without memory behind it, since a referenced buffer is shorter than the
 * reference to it, stays a reference to that buffer. With kPVBlockBufferDontOptimizeDepthFlag, and when memory runs out
 * for the parts, the range is one reference to targetBuffer.
 *
 * A target without data needs kPVBlockBufferPermitEmptyReferenceFlag and a length other than 0; offset and length are
 * then taken as they are, and the bytes can be read once the target has grown that far.
 *
 * Statuses, in this order: BadPointerParameter (a buffer is null); BadOffsetParameter, BadLengthParameter (the range
 * does not lie in a target with data); EmptyBBuf, BadLengthParameter (a target without data);
 * BadLengthParameter (the buffer's length would exceed SIZE_MAX); BadPointerParameter (what would be referenced is the
 * buffer itself or leads back to it: such a circle could neither be released nor read); StructureAllocationFailed.
 * On failure the buffer is as it was. */
PV_EXPORT PVStatus PVBlockBufferAppendBufferReference(PVBlockBufferRef buffer, PVBlockBufferRef targetBuffer,
                                                      size_t offsetToData, size_t dataLength,
                                                      PVBlockBufferFlags flags);

/* Allocates every missing block, in order, also those of referenced buffers. The first block that cannot be allocated
 * ends it; those allocated before stay. In a referenced buffer that is still empty there is nothing to allocate.
 * Statuses: BadPointerParameter (null), EmptyBBuf, BlockAllocationFailed. */
PV_EXPORT PVStatus PVBlockBufferAssureBlockMemory(PVBlockBufferRef buffer);

/* Gives a pointer to length bytes in one piece. When the bytes stand in one piece the pointer is into the buffer and
 * nothing is copied; otherwise they are copied into temporaryBlock, which has room for length bytes, and the pointer is
 * temporaryBlock. A pointer into the buffer is good as long as the buffer.
 * Statuses, in this order: BadPointerParameter (buffer, temporaryBlock or pointerOut null), BadLengthParameter (0),
 * BadOffsetParameter or UnallocatedBlock (at the offset), BadLengthParameter (fewer than length bytes follow),
 * UnallocatedBlock. On failure *pointerOut is NULL and temporaryBlock may hold anything. */
PV_EXPORT PVStatus PVBlockBufferAccessDataBytes(PVBlockBufferRef buffer, size_t offset, size_t length,
                                                void *temporaryBlock, char **pointerOut);

/* Copies bytes out. Missing memory is not allocated.
 * Statuses, in this order: BadPointerParameter (buffer or destination null), BadLengthParameter (0), EmptyBBuf,
 * BadOffsetParameter, BadLengthParameter (past the end), UnallocatedBlock; BadOffsetParameter also when a referenced
 * buffer is still shorter than its reference. When it fails part way the bytes before are copied. */
PV_EXPORT PVStatus PVBlockBufferCopyDataBytes(PVBlockBufferRef buffer, size_t offsetToData, size_t dataLength,
                                              void *destination);

/* Copies bytes in, into the memory that the buffer shares with those it references. When memory is missing in the
 * range, all memory of the buffer is assured first.
 * Statuses: those of PVBlockBufferCopyDataBytes, sourceBytes in place of destination; BlockAllocationFailed in place of
 * UnallocatedBlock. */
PV_EXPORT PVStatus PVBlockBufferReplaceDataBytes(const void *sourceBytes, PVBlockBufferRef buffer,
                                                 size_t offsetIntoBuffer, size_t dataLength);

/* Sets bytes to fillByte; a length of 0 means to the end. Memory is assured as for PVBlockBufferReplaceDataBytes.
 * Statuses, in this order: BadPointerParameter (null), BadLengthParameter (negative as a signed number), EmptyBBuf,
 * BadOffsetParameter, BadLengthParameter (past the end), BlockAllocationFailed. */
PV_EXPORT PVStatus PVBlockBufferFillDataBytes(char fillByte, PVBlockBufferRef buffer, size_t offsetIntoBuffer,
                                              size_t dataLength);

/* Points at the byte at an offset and tells how many bytes follow it without a gap (never across the end of a
 * subblock: ask again there for more) and the buffer's total length. Each output may be NULL; they are written only on
 * success. The pointer is good as long as the buffer.
 * Statuses: BadPointerParameter (null), BadOffsetParameter (no data there), UnallocatedBlock. */
PV_EXPORT PVStatus PVBlockBufferGetDataPointer(PVBlockBufferRef buffer, size_t offset, size_t *lengthAtOffsetOut,
                                               size_t *totalLengthOut, char **dataPointerOut);

/* The number of bytes, allocated or not; 0 for NULL. */
PV_EXPORT size_t PVBlockBufferGetDataLength(PVBlockBufferRef buffer);

/* True when length bytes from the offset on (0: to the end) are one piece that PVBlockBufferGetDataPointer gives.
 * False, and the status signalled, when the buffer is null, the range does not lie inside it or its memory is not
 * allocated. */
PV_EXPORT bool PVBlockBufferIsRangeContiguous(PVBlockBufferRef buffer, size_t offset, size_t length);

/* True when nothing was appended, and for NULL. */
PV_EXPORT bool PVBlockBufferIsEmpty(PVBlockBufferRef buffer);

PV_END_DECLS

#endif
