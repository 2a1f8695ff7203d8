/* Sets: values, each once. */
#ifndef BEDRA_SET_H
#define BEDRA_SET_H

#include <bedra/dictionary.h>

BR_BEGIN_DECLS

/* A set holds its values as a dictionary holds its keys. */
typedef BRDictionaryKeyCallBacks BRSetCallBacks;
BR_EXPORT extern const BRSetCallBacks kBRTypeSetCallBacks;

BR_EXPORT BRTypeID BRSetGetTypeID(void);
BR_EXPORT BRSetRef BRSetCreate(BRAllocatorRef allocator, const void *const *values, size_t count,
                               const BRSetCallBacks *callbacks);
BR_EXPORT BRSetRef BRSetCreateCopy(BRAllocatorRef allocator, BRSetRef set);
BR_EXPORT BRMutableSetRef BRSetCreateMutable(BRAllocatorRef allocator, size_t capacity,
                                             const BRSetCallBacks *callbacks);
BR_EXPORT BRMutableSetRef BRSetCreateMutableCopy(BRAllocatorRef allocator, BRSetRef set);
BR_EXPORT size_t BRSetGetCount(BRSetRef set);
BR_EXPORT bool BRSetContainsValue(BRSetRef set, const void *value);
BR_EXPORT const void *BRSetGetValue(BRSetRef set, const void *value);
BR_EXPORT void BRSetGetValues(BRSetRef set, const void **values);
BR_EXPORT bool BRSetAddValue(BRMutableSetRef set, const void *value);
BR_EXPORT bool BRSetRemoveValue(BRMutableSetRef set, const void *value);
BR_EXPORT void BRSetRemoveAllValues(BRMutableSetRef set);

BR_END_DECLS

#endif
