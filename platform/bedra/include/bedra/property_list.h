/* Property lists: trees of strings, numbers, booleans, nulls, data, arrays and dictionaries. */
#ifndef BEDRA_PROPERTY_LIST_H
#define BEDRA_PROPERTY_LIST_H

#include <bedra/base.h>

BR_BEGIN_DECLS

/* A deep immutable copy. NULL when the tree holds anything else, is deeper than 512 levels, or memory runs out. */
BR_EXPORT BRTypeRef BRPropertyListCreateDeepCopy(BRAllocatorRef allocator, BRTypeRef propertyList);

BR_END_DECLS

#endif
