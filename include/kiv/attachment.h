/* Attachments, for the implementers of types that bear them.
 *
 * A type registers a record of five callbacks, from its own once-only registration; <pevrin/attachment.h> finds the
 * record by the bearer's runtime type. Registrations last for the process unless they are undone.
 *
 *   static const KivAttachmentBearerCallbacks callbacks = {0,          reelSet,       reelGet,
 *                                                          reelRemove, reelRemoveAll, reelCopyAll};
 *   KivRuntimeRegisterAttachmentBearerWithTypeID(&callbacks, reelTypeID);
 *
 * Threads: all three functions are safe on any thread, beside each other and beside all use of attachments. Who
 * unregisters a type sees to it that none of its objects is in use by then. */
#ifndef KIV_ATTACHMENT_H
#define KIV_ATTACHMENT_H

#include <pevrin/attachment.h>

PV_BEGIN_DECLS

/* What a type does with attachments; all five are needed. The record lives as long as it is registered. Keys are not
 * null; the mode that `set` gets is unchecked when it comes from PVSetAttachments. */
typedef struct KivAttachmentBearerCallbacks {
  size_t version; /* must be 0 */
  void (*setAttachment)(PVAttachmentBearerRef bearer, BRStringRef key, BRTypeRef value, PVAttachmentMode mode);
  /* The value, borrowed, or null. modeOut may be null. */
  BRTypeRef (*getAttachment)(PVAttachmentBearerRef bearer, BRStringRef key, PVAttachmentMode *modeOut);
  void (*removeAttachment)(PVAttachmentBearerRef bearer, BRStringRef key);
  void (*removeAllAttachments)(PVAttachmentBearerRef bearer);
  /* A new dictionary that the caller releases, or null. */
  BRDictionaryRef (*copyDictionaryOfAttachments)(BRAllocatorRef allocator, PVAttachmentBearerRef bearer,
                                                 PVAttachmentMode mode);
} KivAttachmentBearerCallbacks;

/* Makes the objects of a runtime type bearers of attachments. Refused, with an error signalled and nothing changed,
 * when the record is null, its version is not 0 or a callback is missing, the type is registered already, or memory
 * runs out. */
PV_EXPORT void KivRuntimeRegisterAttachmentBearerWithTypeID(const KivAttachmentBearerCallbacks *callbacks,
                                                            BRTypeID typeID);

/* The record of a runtime type, or NULL. */
PV_EXPORT const KivAttachmentBearerCallbacks *KivRuntimeGetAttachmentBearerCallbacksWithTypeID(BRTypeID typeID);

/* Ends a registration; the type's objects then have no attachments. Signals an error when there is none. */
PV_EXPORT void KivRuntimeUnregisterAttachmentBearerWithTypeID(BRTypeID typeID);

PV_END_DECLS

#endif
