/* Imlay: image buffers.
 *
 * An image buffer holds one picture: as pixels in memory (<imlay/pixel_buffer.h>) or as an encoder left it
 * (<imlay/encoded_image_buffer.h>). BRGetTypeID tells which. Functions here take either kind.
 *
 * Attachments hang on a buffer by key (a string, kept as an immutable copy), each with a value (any object, retained)
 * and a mode that says whether it goes along to a buffer made from this one. A key has one value and one mode. Keys
 * that say how the picture is to be understood are in <imlay/image_buffer_keys.h>.
 *
 * Functions that can fail return an IMStatus: 0 for success. Creating functions write NULL when they fail.
 *
 * Threads: what a buffer is never changes and may be read from any thread, its pixels as their users agree. Attachments
 * may be read from any number of threads; setting and removing them must be serialised with all other use of them.
 *
 *   IMBufferSetAttachment(picture, kCameraKey, cameraName, kIMAttachmentMode_ShouldPropagate);
 *   BRTypeRef camera = IMBufferGetAttachment(picture, kCameraKey, NULL); */
#ifndef IMLAY_IMAGE_BUFFER_H
#define IMLAY_IMAGE_BUFFER_H

#include <bedra/base.h>
#include <imlay/geometry.h>

BR_BEGIN_DECLS

/* 0 is success. */
typedef int32_t IMStatus;
enum {
  kIMStatus_Success = 0,
  kIMStatus_InvalidArgument = -1, /* a required pointer is NULL */
  kIMStatus_InvalidSize = -2,     /* a size or a number of planes is 0, or the picture exceeds SIZE_MAX bytes */
  kIMStatus_AllocationFailed = -3
};

/* An image buffer of any kind. */
typedef struct IMImageBuffer *IMImageBufferRef;
typedef IMImageBufferRef IMBufferRef;

/* Width and height as they are encoded: those of a pixel buffer's pixels, those that an encoded buffer was created
 * with. Zero for NULL. */
BR_EXPORT GRSize IMImageBufferGetEncodedSize(IMImageBufferRef buffer);

/* Whether an attachment goes along to what is made from the buffer. */
typedef uint32_t IMAttachmentMode;
enum { kIMAttachmentMode_ShouldNotPropagate = 0, kIMAttachmentMode_ShouldPropagate = 1 };

/* Sets a key's value and mode. Nothing happens when an argument is NULL, the mode is 2 or more, or memory runs out. */
BR_EXPORT void IMBufferSetAttachment(IMBufferRef buffer, BRStringRef key, BRTypeRef value, IMAttachmentMode mode);

/* A key's value, borrowed until the buffer goes or the key is set again; NULL when there is none. modeOut may be NULL
 * and is written only when there is a value. */
BR_EXPORT BRTypeRef IMBufferGetAttachment(IMBufferRef buffer, BRStringRef key, IMAttachmentMode *modeOut);

/* Removes a key, in whichever mode it is. */
BR_EXPORT void IMBufferRemoveAttachment(IMBufferRef buffer, BRStringRef key);

/* Removes all keys. */
BR_EXPORT void IMBufferRemoveAllAttachments(IMBufferRef buffer);

/* The keys and values of one mode, borrowed and live: the dictionary shows later changes. NULL when there are none. */
BR_EXPORT BRDictionaryRef IMBufferGetAttachments(IMBufferRef buffer, IMAttachmentMode mode);

BR_END_DECLS

#endif
