/* Dictionaries: values by key. */
#ifndef BEDRA_DICTIONARY_H
#define BEDRA_DICTIONARY_H

#include <bedra/base.h>

BR_BEGIN_DECLS

/* How a dictionary holds its keys and values. A NULL record, or a NULL member, holds them unretained and compares and
 * hashes identity. */
typedef struct BRDictionaryKeyCallBacks {
  uint32_t version; /* must be 0 */
  const void *(*retain)(BRAllocatorRef allocator, const void *key);
  void (*release)(BRAllocatorRef allocator, const void *key);
  BRStringRef (*copyDescription)(const void *key);
  bool (*equal)(const void *a, const void *b);
  BRHashCode (*hash)(const void *key);
} BRDictionaryKeyCallBacks;

typedef struct BRDictionaryValueCallBacks {
  uint32_t version; /* must be 0 */
  const void *(*retain)(BRAllocatorRef allocator, const void *value);
  void (*release)(BRAllocatorRef allocator, const void *value);
  BRStringRef (*copyDescription)(const void *value);
  bool (*equal)(const void *a, const void *b);
} BRDictionaryValueCallBacks;

BR_EXPORT extern const BRDictionaryKeyCallBacks kBRTypeDictionaryKeyCallBacks;
BR_EXPORT extern const BRDictionaryValueCallBacks kBRTypeDictionaryValueCallBacks;

typedef void (*BRDictionaryApplier)(const void *key, const void *value, void *context);

BR_EXPORT BRTypeID BRDictionaryGetTypeID(void);
BR_EXPORT BRDictionaryRef BRDictionaryCreate(BRAllocatorRef allocator, const void *const *keys,
                                             const void *const *values, size_t count,
                                             const BRDictionaryKeyCallBacks *keyCallbacks,
                                             const BRDictionaryValueCallBacks *valueCallbacks);
BR_EXPORT BRDictionaryRef BRDictionaryCreateCopy(BRAllocatorRef allocator, BRDictionaryRef dictionary);
BR_EXPORT BRMutableDictionaryRef BRDictionaryCreateMutable(BRAllocatorRef allocator, size_t capacity,
                                                           const BRDictionaryKeyCallBacks *keyCallbacks,
                                                           const BRDictionaryValueCallBacks *valueCallbacks);
BR_EXPORT BRMutableDictionaryRef BRDictionaryCreateMutableCopy(BRAllocatorRef allocator, BRDictionaryRef dictionary);
BR_EXPORT size_t BRDictionaryGetCount(BRDictionaryRef dictionary);
BR_EXPORT const void *BRDictionaryGetValue(BRDictionaryRef dictionary, const void *key);
BR_EXPORT bool BRDictionaryGetValueIfPresent(BRDictionaryRef dictionary, const void *key, const void **value);
BR_EXPORT bool BRDictionaryContainsKey(BRDictionaryRef dictionary, const void *key);
/* Writes GetCount keys and values; either array may be NULL. */
BR_EXPORT void BRDictionaryGetKeysAndValues(BRDictionaryRef dictionary, const void **keys, const void **values);
BR_EXPORT void BRDictionaryApply(BRDictionaryRef dictionary, BRDictionaryApplier applier, void *context);
/* Add keeps what is there; Set replaces or adds; Replace only replaces. False when nothing changed. */
BR_EXPORT bool BRDictionaryAddValue(BRMutableDictionaryRef dictionary, const void *key, const void *value);
BR_EXPORT bool BRDictionarySetValue(BRMutableDictionaryRef dictionary, const void *key, const void *value);
BR_EXPORT bool BRDictionaryReplaceValue(BRMutableDictionaryRef dictionary, const void *key, const void *value);
BR_EXPORT bool BRDictionaryRemoveValue(BRMutableDictionaryRef dictionary, const void *key);
BR_EXPORT void BRDictionaryRemoveAllValues(BRMutableDictionaryRef dictionary);

BR_END_DECLS

#endif
