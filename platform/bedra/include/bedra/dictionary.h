/* Dictionaries: values by key.
 *
 * Keys and values are any pointer-sized words; callback records say how they are held. With the kBRType… records both
 * are objects, retained while they are in the dictionary. A key must not change in a way that its equal and hash
 * callbacks see while it is in a dictionary: a mutable string as a key belongs in a dictionary with
 * kBRCopyStringDictionaryKeyCallBacks.
 *
 * Made for the small ones that hang on buffers and formats: an immutable dictionary is a single block of memory, a
 * mutable one starts with room for a few entries in the same block, and up to 8 entries a search is a scan for the
 * key's own pointer, then for its hash. Larger ones are hash tables. Everything that belongs to a dictionary comes from
 * its own allocator. Entries are walked, copied and described in the order in which their keys were added.
 *
 * A dictionary lends its keys and values: one got from it stays valid while it is in the dictionary. A dictionary must
 * not hold itself, directly or through others: such a ring is never freed, and comparing it may not end.
 *
 * Equal dictionaries have the same count and equal values under equal keys, in any order; mutable and immutable ones
 * compare alike. Dictionaries whose equal or hash callbacks differ are equal only when both are empty. The hash is the
 * count: cheap, and the same for equal dictionaries.
 *
 * Threads: an immutable dictionary may be read from any thread; a mutable one is serialised by its user.
 *
 *   BRMutableDictionaryRef marks = BRDictionaryCreateMutable(NULL, 0, &kBRTypeDictionaryKeyCallBacks,
 *                                                            &kBRTypeDictionaryValueCallBacks);
 *   BRDictionarySetValue(marks, kChapterKey, title);     // retains both
 *   BRStringRef chapter = (BRStringRef)BRDictionaryGetValue(marks, kChapterKey);
 *   BRRelease(marks);
 */
#ifndef BEDRA_DICTIONARY_H
#define BEDRA_DICTIONARY_H

#include <bedra/base.h>

BR_BEGIN_DECLS

/* How a dictionary holds its keys. A NULL record, or a NULL member, holds them unretained and compares and hashes
 * identity. The record is copied. Callbacks get the dictionary's allocator. */
typedef struct BRDictionaryKeyCallBacks {
  uint32_t version; /* must be 0 */
  /* Returns what the dictionary is to hold: the key itself, or an equal copy. NULL says that memory ran out, and makes
   * the function that adds the key fail. Not called for NULL. */
  const void *(*retain)(BRAllocatorRef allocator, const void *key);
  /* Called once for each retained key, after it left the dictionary. Not called for NULL. */
  void (*release)(BRAllocatorRef allocator, const void *key);
  BRStringRef (*copyDescription)(const void *key);
  /* Identical keys are equal without being asked. */
  bool (*equal)(const void *a, const void *b);
  /* Equal keys hash equal. An equal callback without a hash works, but compares with every key. */
  BRHashCode (*hash)(const void *key);
} BRDictionaryKeyCallBacks;

/* How a dictionary holds its values; as above. */
typedef struct BRDictionaryValueCallBacks {
  uint32_t version; /* must be 0 */
  const void *(*retain)(BRAllocatorRef allocator, const void *value);
  void (*release)(BRAllocatorRef allocator, const void *value);
  BRStringRef (*copyDescription)(const void *value);
  bool (*equal)(const void *a, const void *b);
} BRDictionaryValueCallBacks;

/* Keys are objects (or NULL): retained, released, compared with BREqual and BRHash. */
BR_EXPORT extern const BRDictionaryKeyCallBacks kBRTypeDictionaryKeyCallBacks;
/* Keys are strings, of which the dictionary keeps immutable copies: the caller may change its own later. */
BR_EXPORT extern const BRDictionaryKeyCallBacks kBRCopyStringDictionaryKeyCallBacks;
/* Values are objects (or NULL): retained, released, compared with BREqual. */
BR_EXPORT extern const BRDictionaryValueCallBacks kBRTypeDictionaryValueCallBacks;

/* Called with each key and value in turn, and the context that was given to BRDictionaryApply. */
typedef void (*BRDictionaryApplier)(const void *key, const void *value, void *context);

/* The runtime type "BRDictionary". */
BR_EXPORT BRTypeID BRDictionaryGetTypeID(void);

/* An immutable dictionary of `count` pairs. Of equal keys the first one wins, as if the pairs were added in turn. NULL
 * when a record's version is not 0, keys or values is NULL though count is not 0, a retain callback fails, or memory
 * runs out. */
BR_EXPORT BRDictionaryRef BRDictionaryCreate(BRAllocatorRef allocator, const void *const *keys,
                                             const void *const *values, size_t count,
                                             const BRDictionaryKeyCallBacks *keyCallbacks,
                                             const BRDictionaryValueCallBacks *valueCallbacks);

/* An immutable copy with the same callbacks; keys and values are held anew, not copied. An immutable dictionary of the
 * same allocator is retained and returned itself. NULL for NULL, or when memory runs out. */
BR_EXPORT BRDictionaryRef BRDictionaryCreateCopy(BRAllocatorRef allocator, BRDictionaryRef dictionary);

/* An empty dictionary that may change. `capacity` is a hint of the count to come: that many entries fit without another
 * allocation, and more may follow. NULL as for BRDictionaryCreate. */
BR_EXPORT BRMutableDictionaryRef BRDictionaryCreateMutable(BRAllocatorRef allocator, size_t capacity,
                                                           const BRDictionaryKeyCallBacks *keyCallbacks,
                                                           const BRDictionaryValueCallBacks *valueCallbacks);

/* A copy that may change, with the same callbacks. NULL for NULL, or when memory runs out. */
BR_EXPORT BRMutableDictionaryRef BRDictionaryCreateMutableCopy(BRAllocatorRef allocator, BRDictionaryRef dictionary);

/* The number of entries; 0 for NULL. */
BR_EXPORT size_t BRDictionaryGetCount(BRDictionaryRef dictionary);

/* The value of a key, borrowed. NULL when the key is not there (or its value is NULL), or the dictionary is NULL. */
BR_EXPORT const void *BRDictionaryGetValue(BRDictionaryRef dictionary, const void *key);

/* True when the key is there; its value, borrowed, is then written to *value unless value is NULL. */
BR_EXPORT bool BRDictionaryGetValueIfPresent(BRDictionaryRef dictionary, const void *key, const void **value);
BR_EXPORT bool BRDictionaryContainsKey(BRDictionaryRef dictionary, const void *key);

/* Writes BRDictionaryGetCount keys and values, borrowed, in the order of addition; either array may be NULL. */
BR_EXPORT void BRDictionaryGetKeysAndValues(BRDictionaryRef dictionary, const void **keys, const void **values);

/* Calls the applier with each entry, in the order of addition. The applier may remove entries from the dictionary, the
 * present one too, and give present keys other values; it must not add keys. */
BR_EXPORT void BRDictionaryApply(BRDictionaryRef dictionary, BRDictionaryApplier applier, void *context);

/* The functions below change a mutable dictionary. They return false, and the dictionary is as it was, when the
 * dictionary is NULL or immutable, a retain callback fails, or memory runs out. A key that stays keeps its place and
 * the key object first added. */

/* Adds a key that is not there; false when it is. */
BR_EXPORT bool BRDictionaryAddValue(BRMutableDictionaryRef dictionary, const void *key, const void *value);

/* Gives a key the value, whether it is there or not. */
BR_EXPORT bool BRDictionarySetValue(BRMutableDictionaryRef dictionary, const void *key, const void *value);

/* Gives a key that is there the value; false when it is not. */
BR_EXPORT bool BRDictionaryReplaceValue(BRMutableDictionaryRef dictionary, const void *key, const void *value);

/* Takes out a key and its value; false when it is not there. Needs no memory. */
BR_EXPORT bool BRDictionaryRemoveValue(BRMutableDictionaryRef dictionary, const void *key);

/* Empties the dictionary and keeps its room. */
BR_EXPORT void BRDictionaryRemoveAllValues(BRMutableDictionaryRef dictionary);

BR_END_DECLS

#endif
