/* Sets: values, each once.
 *
 * A set holds its values as a dictionary holds its keys, and what bedra/dictionary.h says of keys, memory, order,
 * equality, rings and threads goes for a set's values too. The hash is the count.
 *
 *   BRMutableSetRef seen = BRSetCreateMutable(NULL, 0, &kBRTypeSetCallBacks);
 *   if (BRSetAddValue(seen, name)) announce(name);       // only the first time
 *   BRRelease(seen);
 */
#ifndef BEDRA_SET_H
#define BEDRA_SET_H

#include <bedra/dictionary.h>

BR_BEGIN_DECLS

/* How a set holds its values. A NULL record, or a NULL member, holds them unretained and compares and hashes
 * identity. */
typedef BRDictionaryKeyCallBacks BRSetCallBacks;

/* Values are objects (or NULL): retained, released, compared with BREqual and BRHash. */
BR_EXPORT extern const BRSetCallBacks kBRTypeSetCallBacks;

/* Called with each value in turn, and the context that was given to BRSetApply. */
typedef void (*BRSetApplier)(const void *value, void *context);

/* The runtime type "BRSet". */
BR_EXPORT BRTypeID BRSetGetTypeID(void);

/* An immutable set of `count` values; of equal values the first one stays. NULL when the record's version is not 0,
 * values is NULL though count is not 0, a retain callback fails, or memory runs out. */
BR_EXPORT BRSetRef BRSetCreate(BRAllocatorRef allocator, const void *const *values, size_t count,
                               const BRSetCallBacks *callbacks);

/* An immutable copy with the same callbacks. An immutable set of the same allocator is retained and returned itself.
 * NULL for NULL, or when memory runs out. */
BR_EXPORT BRSetRef BRSetCreateCopy(BRAllocatorRef allocator, BRSetRef set);

/* An empty set that may change. `capacity` is a hint of the count to come: that many values fit without another
 * allocation, and more may follow. NULL as for BRSetCreate. */
BR_EXPORT BRMutableSetRef BRSetCreateMutable(BRAllocatorRef allocator, size_t capacity,
                                             const BRSetCallBacks *callbacks);

/* A copy that may change, with the same callbacks. NULL for NULL, or when memory runs out. */
BR_EXPORT BRMutableSetRef BRSetCreateMutableCopy(BRAllocatorRef allocator, BRSetRef set);

/* The number of values; 0 for NULL. */
BR_EXPORT size_t BRSetGetCount(BRSetRef set);

/* True when the value or an equal one is in the set. */
BR_EXPORT bool BRSetContainsValue(BRSetRef set, const void *value);

/* The set's own value that equals the value, borrowed; NULL when there is none. */
BR_EXPORT const void *BRSetGetValue(BRSetRef set, const void *value);

/* Writes all values, borrowed, in the order of addition to `values`, which has room for BRSetGetCount of them. */
BR_EXPORT void BRSetGetValues(BRSetRef set, const void **values);

/* Calls the applier with each value, in the order of addition. It may remove values from the set, but must not add. */
BR_EXPORT void BRSetApply(BRSetRef set, BRSetApplier applier, void *context);

/* The functions below change a mutable set. They return false, and the set is as it was, when the set is NULL or
 * immutable, a retain callback fails, or memory runs out. */

/* Adds a value; false when an equal one is there. */
BR_EXPORT bool BRSetAddValue(BRMutableSetRef set, const void *value);

/* Takes out the value that equals the value; false when there is none. Needs no memory. */
BR_EXPORT bool BRSetRemoveValue(BRMutableSetRef set, const void *value);

/* Empties the set and keeps its room. */
BR_EXPORT void BRSetRemoveAllValues(BRMutableSetRef set);

BR_END_DECLS

#endif
