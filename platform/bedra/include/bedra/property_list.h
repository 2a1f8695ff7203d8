/* Property lists: trees of strings, numbers, booleans, nulls, data, arrays, and dictionaries whose keys are strings.
 *
 * They describe things: a format's extensions, a buffer's attachments. The deep copy freezes such a tree, so that its
 * new owner may keep it and read it from any thread whatever becomes of the original.
 *
 *   BRDictionaryRef kept = (BRDictionaryRef)BRPropertyListCreateDeepCopy(allocator, extensions);
 *   if (!kept) return kOutOfMemoryOrNotAPropertyList;
 *   ...
 *   BRRelease(kept);
 */
#ifndef BEDRA_PROPERTY_LIST_H
#define BEDRA_PROPERTY_LIST_H

#include <bedra/base.h>

BR_BEGIN_DECLS

/* The most containers within each other, the outermost counted. */
enum { kBRPropertyListMaximumDepth = 512 };

/* An immutable copy of the tree, equal to it and in the same order. What cannot change and is of the same allocator is
 * shared instead of copied: constants and numbers always, immutable strings and data, and immutable arrays and
 * dictionaries that hold nothing else; of such a tree the copy is the tree itself, retained. Containers that are made
 * anew have the kBRType… callbacks. The caller releases the copy and must not change the tree during the call.
 *
 * NULL when the tree holds anything else (another class, a set, NULL, a key that is not a string, an array or
 * dictionary whose callbacks do not compare objects), is deeper than kBRPropertyListMaximumDepth, or memory runs
 * out. */
BR_EXPORT BRTypeRef BRPropertyListCreateDeepCopy(BRAllocatorRef allocator, BRTypeRef propertyList);

/* True when the tree is one that the deep copy takes: tells a copy that was refused from one that ran out of memory. */
BR_EXPORT bool BRPropertyListIsValid(BRTypeRef propertyList);

BR_END_DECLS

#endif
