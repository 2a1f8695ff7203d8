/* Data: a run of bytes.
 *
 * Immutable data is one block of memory, its bytes 16-byte aligned behind the object; the no-copy kind refers
 * to bytes that the caller hands over. Mutable data keeps its bytes in a block of the object's allocator that
 * grows by half, so appending is linear. Both are of one class: equal when their bytes are, in whatever way
 * they are held. The description is "<5 bytes: 0102030405>" and shows the first 32 bytes.
 *
 * Threads: immutable data from any thread, mutable data serialised by its user.
 *
 *   BRMutableDataRef data = BRDataCreateMutable(NULL, 0);
 *   BRDataAppendBytes(data, header, sizeof header);
 *   BRDataAppendBytes(data, payload, payloadBytes);
 *   fwrite(BRDataGetBytePtr(data), 1, BRDataGetLength(data), file);
 *   BRRelease(data);
 */
#ifndef BEDRA_DATA_H
#define BEDRA_DATA_H

#include <bedra/base.h>

BR_BEGIN_DECLS

/* The runtime type "BRData". */
BR_EXPORT BRTypeID BRDataGetTypeID(void);

/* Makes immutable data with a copy of the bytes. NULL when bytes is NULL and the length is not 0, or memory
 * runs out. */
BR_EXPORT BRDataRef BRDataCreate(BRAllocatorRef allocator, const void *bytes, size_t lengthBytes);

/* Makes immutable data of the caller's bytes, which must not change from then on. When the data goes,
 * bytesDeallocator gives them back: NULL means the default allocator (free), kBRAllocatorNull leaves them
 * alone. The deallocator is retained. NULL under the conditions of BRDataCreate; the bytes are then still the
 * caller's. */
BR_EXPORT BRDataRef BRDataCreateWithBytesNoCopy(BRAllocatorRef allocator, const void *bytes,
                                                size_t lengthBytes, BRAllocatorRef bytesDeallocator);

/* An immutable copy: the same object, retained, when it is immutable, holds its own bytes and comes from the
 * same allocator. NULL for NULL or when memory runs out. */
BR_EXPORT BRDataRef BRDataCreateCopy(BRAllocatorRef allocator, BRDataRef data);

/* Makes empty mutable data with room for so many bytes; it grows beyond as needed. NULL when memory runs out.
 */
BR_EXPORT BRMutableDataRef BRDataCreateMutable(BRAllocatorRef allocator, size_t capacityBytes);

/* A mutable copy, never the same object. NULL for NULL or when memory runs out. */
BR_EXPORT BRMutableDataRef BRDataCreateMutableCopy(BRAllocatorRef allocator, BRDataRef data);

/* The number of bytes; 0 for NULL. */
BR_EXPORT size_t BRDataGetLength(BRDataRef data);

/* The bytes, borrowed until the data goes or changes. May be NULL when there are none. */
BR_EXPORT const uint8_t *BRDataGetBytePtr(BRDataRef data);

/* The same for writing; NULL when the data is not mutable. */
BR_EXPORT uint8_t *BRDataGetMutableBytePtr(BRMutableDataRef data);

/* Appends a copy of the bytes, which may be the data's own. False, with the data unchanged, when it is not
 * mutable, bytes is NULL and the length is not 0, or memory runs out. */
BR_EXPORT bool BRDataAppendBytes(BRMutableDataRef data, const void *bytes, size_t lengthBytes);

/* Cuts, or grows with zero bytes. False, with the data unchanged, when it is not mutable or memory runs out.
 */
BR_EXPORT bool BRDataSetLength(BRMutableDataRef data, size_t lengthBytes);

BR_END_DECLS

#endif
