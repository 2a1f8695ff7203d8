/* Weak references: they name an object without keeping it alive.
 *
 * A weak reference is an object itself, with its own references and its own end. It answers with the object, retained,
 * as long as somebody else holds that, and with NULL from the moment when the last reference goes: the object's
 * finalizer already runs unseen. One object may have any number of weak references, and so may an immortal one, whose
 * weak references answer for ever. Two weak references are equal only when they are the same.
 *
 * Threads: all functions may be called from any thread, also while another drops the object's last reference.
 *
 *   BRWeakReferenceRef link = BRWeakReferenceCreate(NULL, listener);
 *   ...
 *   ListenerRef alive = (ListenerRef)BRWeakReferenceCopyObject(link);
 *   if (alive) notify(alive), BRRelease(alive);
 */
#ifndef BEDRA_WEAK_REFERENCE_H
#define BEDRA_WEAK_REFERENCE_H

#include <bedra/base.h>

BR_BEGIN_DECLS

/* The runtime type "BRWeakReference". */
BR_EXPORT BRTypeID BRWeakReferenceGetTypeID(void);

/* A weak reference to an object that the caller holds during the call. Made by the object's own finalizer, it answers
 * NULL from the start. NULL when the object is NULL or memory runs out. */
BR_EXPORT BRWeakReferenceRef BRWeakReferenceCreate(BRAllocatorRef allocator, BRTypeRef object);

/* The object, which the caller then releases; NULL when its last reference has gone, or the reference is NULL. */
BR_EXPORT BRTypeRef BRWeakReferenceCopyObject(BRWeakReferenceRef reference);

BR_END_DECLS

#endif
