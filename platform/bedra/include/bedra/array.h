/* Arrays: values in order.
 *
 * A value is any pointer-sized word; the callback record says how it is held. With kBRTypeArrayCallBacks values are
 * objects, retained while they are in the array. An immutable array is a single block of memory; a mutable one starts
 * with a little room in the same block. Everything that belongs to an array comes from the array's own allocator.
 *
 * An array owns a reference to each value (when its callbacks retain) and lends it: a value got from it stays valid
 * while it is in the array. An array must not hold itself, directly or through others: such a ring is never freed, and
 * comparing it may not end.
 *
 * Equal arrays have equal values at each index; mutable and immutable ones compare alike. Arrays whose equal callbacks
 * differ are equal only when both are empty. The hash is the count: cheap, and the same for equal arrays.
 *
 * Threads: an immutable array may be read from any thread; a mutable one is serialised by its user.
 *
 *   BRMutableArrayRef reels = BRArrayCreateMutable(NULL, 0, &kBRTypeArrayCallBacks);
 *   BRArrayAppendValue(reels, reel);                     // retains it
 *   BRArrayRef snapshot = BRArrayCreateCopy(NULL, reels);
 *   for (size_t i = 0; i < BRArrayGetCount(snapshot); ++i) play((ReelRef)BRArrayGetValueAtIndex(snapshot, i));
 *   BRRelease(snapshot), BRRelease(reels);
 */
#ifndef BEDRA_ARRAY_H
#define BEDRA_ARRAY_H

#include <bedra/base.h>

BR_BEGIN_DECLS

/* How an array holds its values. A NULL record, or a NULL member, holds values unretained and compares identity. The
 * record is copied. Callbacks get the array's allocator. */
typedef struct BRArrayCallBacks {
  uint32_t version; /* must be 0 */
  /* Returns what the array is to hold: the value itself, or a copy. NULL says that memory ran out, and makes the
   * function that adds the value fail. Not called for NULL. */
  const void *(*retain)(BRAllocatorRef allocator, const void *value);
  /* Called once for each retained value, after it left the array. Not called for NULL. */
  void (*release)(BRAllocatorRef allocator, const void *value);
  BRStringRef (*copyDescription)(const void *value);
  /* Identical values are equal without being asked. */
  bool (*equal)(const void *a, const void *b);
} BRArrayCallBacks;

/* Values are objects (or NULL): retained, released, compared with BREqual. */
BR_EXPORT extern const BRArrayCallBacks kBRTypeArrayCallBacks;

/* Called with each value in turn, and the context that was given to BRArrayApply. */
typedef void (*BRArrayApplier)(const void *value, void *context);

/* The runtime type "BRArray". */
BR_EXPORT BRTypeID BRArrayGetTypeID(void);

/* An immutable array of `count` values. NULL when the record's version is not 0, values is NULL though count is not 0,
 * a retain callback fails, or memory runs out. */
BR_EXPORT BRArrayRef BRArrayCreate(BRAllocatorRef allocator, const void *const *values, size_t count,
                                   const BRArrayCallBacks *callbacks);

/* An immutable copy with the same callbacks; the values are held anew, not copied. An immutable array of the same
 * allocator is retained and returned itself. NULL for NULL, or when memory runs out. */
BR_EXPORT BRArrayRef BRArrayCreateCopy(BRAllocatorRef allocator, BRArrayRef array);

/* An empty array that may change. `capacity` is a hint of the count to come: that many values fit without another
 * allocation, and more may follow. NULL as for BRArrayCreate. */
BR_EXPORT BRMutableArrayRef BRArrayCreateMutable(BRAllocatorRef allocator, size_t capacity,
                                                 const BRArrayCallBacks *callbacks);

/* A copy that may change, with the same callbacks. NULL for NULL, or when memory runs out. */
BR_EXPORT BRMutableArrayRef BRArrayCreateMutableCopy(BRAllocatorRef allocator, BRArrayRef array);

/* The number of values; 0 for NULL. */
BR_EXPORT size_t BRArrayGetCount(BRArrayRef array);

/* The value at an index, borrowed. NULL when the index is out of range. */
BR_EXPORT const void *BRArrayGetValueAtIndex(BRArrayRef array, size_t index);

/* Writes all values, borrowed, to `values`, which has room for BRArrayGetCount of them. */
BR_EXPORT void BRArrayGetValues(BRArrayRef array, const void **values);

/* True when a value of the array is the value or equal to it. */
BR_EXPORT bool BRArrayContainsValue(BRArrayRef array, const void *value);

/* The first index with the value or an equal one; SIZE_MAX when there is none. */
BR_EXPORT size_t BRArrayGetFirstIndexOfValue(BRArrayRef array, const void *value);

/* Calls the applier with each value, in order. The applier must not change the array. */
BR_EXPORT void BRArrayApply(BRArrayRef array, BRArrayApplier applier, void *context);

/* The functions below change a mutable array. They return false, and the array is as it was, when the array is NULL or
 * immutable, the index is out of range, a retain callback fails, or memory runs out. */

/* Adds a value at the end. */
BR_EXPORT bool BRArrayAppendValue(BRMutableArrayRef array, const void *value);

/* Adds a value before the one at the index; an index equal to the count appends. */
BR_EXPORT bool BRArrayInsertValueAtIndex(BRMutableArrayRef array, size_t index, const void *value);

/* Puts a value in the place of the one at the index; an index equal to the count appends. */
BR_EXPORT bool BRArraySetValueAtIndex(BRMutableArrayRef array, size_t index, const void *value);

/* Takes out the value at the index; those behind it move up. */
BR_EXPORT bool BRArrayRemoveValueAtIndex(BRMutableArrayRef array, size_t index);

/* Empties the array and keeps its room. */
BR_EXPORT void BRArrayRemoveAllValues(BRMutableArrayRef array);

BR_END_DECLS

#endif
