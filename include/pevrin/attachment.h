/* Attachments: values that hang on an object by key, each with a mode that says whether it goes along when the object's
 * content is turned into another object.
 *
 * Objects that can bear attachments are those whose type registered for it (<kiv/attachment.h>): block buffers, sample
 * buffers, and the image buffers of Imlay. On any other object, and on NULL, setting does nothing and there is nothing
 * to get. A key has one value and one mode; setting it again replaces both.
 *
 * Bearers of this library hold keys (strings, of which they keep immutable copies) and values retained. They take a
 * value of NULL as "remove".
 *
 * Errors: nothing is returned. Misuse does nothing and is signalled with status 0 (<kiv/error.h>).
 *
 * Threads: an object's attachments are serialised by whoever uses it, as its other content is; any number of threads
 * may read them.
 *
 *   PVSetAttachment(frame, kCameraKey, cameraName, kPVAttachmentMode_ShouldPropagate);
 *   PVPropagateAttachments(frame, scaledFrame);
 *   PVAttachmentMode mode;
 *   BRStringRef name = (BRStringRef)PVGetAttachment(scaledFrame, kCameraKey, &mode); */
#ifndef PEVRIN_ATTACHMENT_H
#define PEVRIN_ATTACHMENT_H

#include <pevrin/base.h>

PV_BEGIN_DECLS

/* An object that may bear attachments. */
typedef BRTypeRef PVAttachmentBearerRef;

/* Whether an attachment goes along to what is made from its bearer. */
typedef uint32_t PVAttachmentMode;
enum { kPVAttachmentMode_ShouldNotPropagate = 0, kPVAttachmentMode_ShouldPropagate = 1 };

/* Sets a key's value and mode. Misuse: key is NULL, mode is 2 or more. */
PV_EXPORT void PVSetAttachment(PVAttachmentBearerRef bearer, BRStringRef key, BRTypeRef value, PVAttachmentMode mode);

/* A key's value, borrowed until the bearer goes or the key is set again; NULL when there is none. modeOut may be NULL
 * and is written only when there is a value. Misuse: key is NULL. */
PV_EXPORT BRTypeRef PVGetAttachment(PVAttachmentBearerRef bearer, BRStringRef key, PVAttachmentMode *modeOut);

/* Removes a key, in whichever mode it is. Misuse: key is NULL. */
PV_EXPORT void PVRemoveAttachment(PVAttachmentBearerRef bearer, BRStringRef key);

/* Removes all keys. */
PV_EXPORT void PVRemoveAllAttachments(PVAttachmentBearerRef bearer);

/* The keys and values of one mode, as an immutable dictionary that the caller releases; NULL when there are none or
 * memory runs out. Misuse: mode is 2 or more. */
PV_EXPORT BRDictionaryRef PVCopyDictionaryOfAttachments(BRAllocatorRef allocator, PVAttachmentBearerRef bearer,
                                                        PVAttachmentMode mode);

/* Sets every key and value of a dictionary with the mode. The mode is the bearer's to check: this library's and Imlay's
 * bearers set nothing when it is 2 or more. A NULL dictionary is an empty one. */
PV_EXPORT void PVSetAttachments(PVAttachmentBearerRef bearer, BRDictionaryRef attachments, PVAttachmentMode mode);

/* Sets the source's attachments of mode ShouldPropagate on the destination, with that mode. Others on the destination
 * stay. */
PV_EXPORT void PVPropagateAttachments(PVAttachmentBearerRef source, PVAttachmentBearerRef destination);

PV_END_DECLS

#endif
