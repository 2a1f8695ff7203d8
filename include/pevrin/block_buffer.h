/* Block buffers: scattered memory as one run of bytes. */
#ifndef PEVRIN_BLOCK_BUFFER_H
#define PEVRIN_BLOCK_BUFFER_H

#include <bedra/allocator.h>
#include <pevrin/base.h>

PV_BEGIN_DECLS

typedef struct PVBlockBuffer *PVBlockBufferRef;

typedef uint32_t PVBlockBufferFlags;
enum {
  kPVBlockBufferAssureMemoryNowFlag = 1,
  kPVBlockBufferAlwaysCopyDataFlag = 2,
  kPVBlockBufferDontOptimizeDepthFlag = 4,
  kPVBlockBufferPermitEmptyReferenceFlag = 8
};

enum {
  kPVBlockBufferStructureAllocationFailedErr = -12700,
  kPVBlockBufferBlockAllocationFailedErr = -12701,
  kPVBlockBufferBadCustomBlockSourceErr = -12702,
  kPVBlockBufferBadOffsetParameterErr = -12703,
  kPVBlockBufferBadLengthParameterErr = -12704,
  kPVBlockBufferBadPointerParameterErr = -12705,
  kPVBlockBufferEmptyBBufErr = -12706,
  kPVBlockBufferUnallocatedBlockErr = -12707
};

#pragma pack(push, 4)
typedef struct PVBlockBufferCustomBlockSource {
  uint32_t version; /* must be 0 */
  void *(*allocateBlock)(void *refCon, size_t sizeBytes);
  void (*freeBlock)(void *refCon, void *block, size_t sizeBytes);
  void *refCon;
} PVBlockBufferCustomBlockSource;
#pragma pack(pop)

PV_EXPORT BRTypeID PVBlockBufferGetTypeID(void);
PV_EXPORT PVStatus PVBlockBufferCreateEmpty(BRAllocatorRef structureAllocator, uint32_t subBlockCapacity,
                                            PVBlockBufferFlags flags, PVBlockBufferRef *bufferOut);
PV_EXPORT PVStatus PVBlockBufferCreateWithMemoryBlock(BRAllocatorRef structureAllocator, void *memoryBlock,
                                                      size_t blockLength, BRAllocatorRef blockAllocator,
                                                      const PVBlockBufferCustomBlockSource *customBlockSource,
                                                      size_t offsetToData, size_t dataLength, PVBlockBufferFlags flags,
                                                      PVBlockBufferRef *bufferOut);
PV_EXPORT PVStatus PVBlockBufferCreateWithBufferReference(BRAllocatorRef structureAllocator,
                                                          PVBlockBufferRef targetBuffer, size_t offsetToData,
                                                          size_t dataLength, PVBlockBufferFlags flags,
                                                          PVBlockBufferRef *bufferOut);
PV_EXPORT PVStatus PVBlockBufferCreateContiguous(BRAllocatorRef structureAllocator, PVBlockBufferRef sourceBuffer,
                                                 BRAllocatorRef blockAllocator,
                                                 const PVBlockBufferCustomBlockSource *customBlockSource,
                                                 size_t offsetToData, size_t dataLength, PVBlockBufferFlags flags,
                                                 PVBlockBufferRef *bufferOut);
PV_EXPORT PVStatus PVBlockBufferAppendMemoryBlock(PVBlockBufferRef buffer, void *memoryBlock, size_t blockLength,
                                                  BRAllocatorRef blockAllocator,
                                                  const PVBlockBufferCustomBlockSource *customBlockSource,
                                                  size_t offsetToData, size_t dataLength, PVBlockBufferFlags flags);
PV_EXPORT PVStatus PVBlockBufferAppendBufferReference(PVBlockBufferRef buffer, PVBlockBufferRef targetBuffer,
                                                      size_t offsetToData, size_t dataLength,
                                                      PVBlockBufferFlags flags);
PV_EXPORT PVStatus PVBlockBufferAssureBlockMemory(PVBlockBufferRef buffer);
PV_EXPORT PVStatus PVBlockBufferAccessDataBytes(PVBlockBufferRef buffer, size_t offset, size_t length,
                                                void *temporaryBlock, char **pointerOut);
PV_EXPORT PVStatus PVBlockBufferCopyDataBytes(PVBlockBufferRef buffer, size_t offsetToData, size_t dataLength,
                                              void *destination);
PV_EXPORT PVStatus PVBlockBufferReplaceDataBytes(const void *sourceBytes, PVBlockBufferRef buffer,
                                                 size_t offsetIntoBuffer, size_t dataLength);
PV_EXPORT PVStatus PVBlockBufferFillDataBytes(char fillByte, PVBlockBufferRef buffer, size_t offsetIntoBuffer,
                                              size_t dataLength);
PV_EXPORT PVStatus PVBlockBufferGetDataPointer(PVBlockBufferRef buffer, size_t offset, size_t *lengthAtOffsetOut,
                                               size_t *totalLengthOut, char **dataPointerOut);
PV_EXPORT size_t PVBlockBufferGetDataLength(PVBlockBufferRef buffer);
PV_EXPORT bool PVBlockBufferIsRangeContiguous(PVBlockBufferRef buffer, size_t offset, size_t length);
PV_EXPORT bool PVBlockBufferIsEmpty(PVBlockBufferRef buffer);

PV_END_DECLS

#endif
