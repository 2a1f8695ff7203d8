/* Weak references: they name an object without keeping it alive. */
#ifndef BEDRA_WEAK_REFERENCE_H
#define BEDRA_WEAK_REFERENCE_H

#include <bedra/base.h>

BR_BEGIN_DECLS

BR_EXPORT BRTypeID BRWeakReferenceGetTypeID(void);
/* A weak reference to a living object (the caller holds a reference to it during the call). */
BR_EXPORT BRWeakReferenceRef BRWeakReferenceCreate(BRAllocatorRef allocator, BRTypeRef object);
/* The object, retained, or NULL when its last reference has gone. Thread-safe. */
BR_EXPORT BRTypeRef BRWeakReferenceCopyObject(BRWeakReferenceRef reference);

BR_END_DECLS

#endif
