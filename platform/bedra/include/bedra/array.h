/* Arrays: ordered values. */
#ifndef BEDRA_ARRAY_H
#define BEDRA_ARRAY_H

#include <bedra/base.h>

BR_BEGIN_DECLS

/* How an array holds its values. A NULL record, or a NULL member, holds values unretained and compares identity. */
typedef struct BRArrayCallBacks {
  uint32_t version; /* must be 0 */
  const void *(*retain)(BRAllocatorRef allocator, const void *value);
  void (*release)(BRAllocatorRef allocator, const void *value);
  BRStringRef (*copyDescription)(const void *value);
  bool (*equal)(const void *a, const void *b);
} BRArrayCallBacks;

/* Values are objects: retained, released, compared with BREqual. */
BR_EXPORT extern const BRArrayCallBacks kBRTypeArrayCallBacks;

BR_EXPORT BRTypeID BRArrayGetTypeID(void);
BR_EXPORT BRArrayRef BRArrayCreate(BRAllocatorRef allocator, const void *const *values, size_t count,
                                   const BRArrayCallBacks *callbacks);
BR_EXPORT BRArrayRef BRArrayCreateCopy(BRAllocatorRef allocator, BRArrayRef array);
BR_EXPORT BRMutableArrayRef BRArrayCreateMutable(BRAllocatorRef allocator, size_t capacity,
                                                 const BRArrayCallBacks *callbacks);
BR_EXPORT BRMutableArrayRef BRArrayCreateMutableCopy(BRAllocatorRef allocator, BRArrayRef array);
BR_EXPORT size_t BRArrayGetCount(BRArrayRef array);
/* NULL when the index is out of range. */
BR_EXPORT const void *BRArrayGetValueAtIndex(BRArrayRef array, size_t index);
BR_EXPORT bool BRArrayContainsValue(BRArrayRef array, const void *value);
/* SIZE_MAX when there is none. */
BR_EXPORT size_t BRArrayGetFirstIndexOfValue(BRArrayRef array, const void *value);
BR_EXPORT bool BRArrayAppendValue(BRMutableArrayRef array, const void *value);
BR_EXPORT bool BRArrayInsertValueAtIndex(BRMutableArrayRef array, size_t index, const void *value);
BR_EXPORT bool BRArraySetValueAtIndex(BRMutableArrayRef array, size_t index, const void *value);
BR_EXPORT bool BRArrayRemoveValueAtIndex(BRMutableArrayRef array, size_t index);
BR_EXPORT void BRArrayRemoveAllValues(BRMutableArrayRef array);

BR_END_DECLS

#endif
