/* Data: a run of bytes. */
#ifndef BEDRA_DATA_H
#define BEDRA_DATA_H

#include <bedra/base.h>

BR_BEGIN_DECLS

BR_EXPORT BRTypeID BRDataGetTypeID(void);
BR_EXPORT BRDataRef BRDataCreate(BRAllocatorRef allocator, const void *bytes, size_t lengthBytes);
/* Takes the caller's bytes as they are; bytesDeallocator gives them back (kBRAllocatorNull: never). */
BR_EXPORT BRDataRef BRDataCreateWithBytesNoCopy(BRAllocatorRef allocator, const void *bytes, size_t lengthBytes,
                                                BRAllocatorRef bytesDeallocator);
BR_EXPORT BRDataRef BRDataCreateCopy(BRAllocatorRef allocator, BRDataRef data);
BR_EXPORT BRMutableDataRef BRDataCreateMutable(BRAllocatorRef allocator, size_t capacityBytes);
BR_EXPORT BRMutableDataRef BRDataCreateMutableCopy(BRAllocatorRef allocator, BRDataRef data);
BR_EXPORT size_t BRDataGetLength(BRDataRef data);
BR_EXPORT const uint8_t *BRDataGetBytePtr(BRDataRef data);
BR_EXPORT uint8_t *BRDataGetMutableBytePtr(BRMutableDataRef data);
BR_EXPORT bool BRDataAppendBytes(BRMutableDataRef data, const void *bytes, size_t lengthBytes);
/* Cuts, or grows with zero bytes. */
BR_EXPORT bool BRDataSetLength(BRMutableDataRef data, size_t lengthBytes);

BR_END_DECLS

#endif
