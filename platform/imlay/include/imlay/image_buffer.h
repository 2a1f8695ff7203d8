/* Imlay: image buffers.
 *
 * A pixel buffer is one picture in memory: rows of bytes, and what they are (width and height in pixels, a four-character
 * pixel format, the distance between rows in bytes). Imlay does not look into pixel formats: how many bytes a row takes
 * its maker says.
 *
 * Attachments hang on a buffer by key (a string, kept as an immutable copy), each with a value (any object, retained)
 * and a mode that says whether it goes along to a buffer made from this one. A key has one value and one mode.
 *
 * Functions that can fail return an IMStatus: 0 for success. Creating functions write NULL when they fail.
 *
 * Threads: what a buffer is never changes and may be read from any thread, its pixels as their users agree. Attachments
 * may be read from any number of threads; setting and removing them must be serialised with all other use of them.
 *
 *   IMPixelBufferRef picture;
 *   IMStatus status = IMPixelBufferCreate(NULL, 1920, 1080, 'BGRA', 1920 * 4, &picture);
 *   char *row = (char *)IMPixelBufferGetBaseAddress(picture) + y * IMPixelBufferGetBytesPerRow(picture);
 *   IMBufferSetAttachment(picture, kCameraKey, cameraName, kIMAttachmentMode_ShouldPropagate);
 *   BRRelease(picture); */
#ifndef IMLAY_IMAGE_BUFFER_H
#define IMLAY_IMAGE_BUFFER_H

#include <bedra/base.h>

BR_BEGIN_DECLS

typedef int32_t IMStatus;
enum {
  kIMStatus_Success = 0,
  kIMStatus_InvalidArgument = -1, /* a required pointer is NULL */
  kIMStatus_InvalidSize = -2,     /* width, height or bytesPerRow is 0, or the picture exceeds SIZE_MAX bytes */
  kIMStatus_AllocationFailed = -3
};

/* Any buffer that bears attachments; a pixel buffer is the one kind there is. */
typedef struct IMPixelBuffer *IMPixelBufferRef;
typedef IMPixelBufferRef IMImageBufferRef;
typedef IMImageBufferRef IMBufferRef;

/* Gives pixels back to who lent them: what was passed to IMPixelBufferCreateWithBytes. Called once, on the thread that
 * drops the last reference. */
typedef void (*IMPixelBufferReleaseBytes)(void *refCon, void *baseAddress);

/* The runtime type "IMPixelBuffer". */
BR_EXPORT BRTypeID IMPixelBufferGetTypeID(void);

/* Creates a buffer with memory of its own: height rows of bytesPerRow bytes, zero-filled, 16-byte aligned. */
BR_EXPORT IMStatus IMPixelBufferCreate(BRAllocatorRef allocator, size_t width, size_t height, uint32_t pixelFormat,
                                       size_t bytesPerRow, IMPixelBufferRef *bufferOut);

/* Creates a buffer over height rows of bytesPerRow bytes of somebody else's memory, which releaseBytes gives back when
 * the buffer goes; it may be NULL when the memory outlives the buffer. On failure the memory stays the caller's and
 * releaseBytes is not called. */
BR_EXPORT IMStatus IMPixelBufferCreateWithBytes(BRAllocatorRef allocator, size_t width, size_t height,
                                                uint32_t pixelFormat, void *baseAddress, size_t bytesPerRow,
                                                IMPixelBufferReleaseBytes releaseBytes, void *releaseRefCon,
                                                IMPixelBufferRef *bufferOut);

/* What a buffer is. 0 and NULL for NULL. */
BR_EXPORT uint32_t IMPixelBufferGetPixelFormatType(IMPixelBufferRef buffer);
BR_EXPORT size_t IMPixelBufferGetWidth(IMPixelBufferRef buffer);
BR_EXPORT size_t IMPixelBufferGetHeight(IMPixelBufferRef buffer);
BR_EXPORT size_t IMPixelBufferGetBytesPerRow(IMPixelBufferRef buffer);
BR_EXPORT void *IMPixelBufferGetBaseAddress(IMPixelBufferRef buffer);

typedef uint32_t IMAttachmentMode;
enum { kIMAttachmentMode_ShouldNotPropagate = 0, kIMAttachmentMode_ShouldPropagate = 1 };

/* Sets a key's value and mode. Nothing happens when an argument is NULL, the mode is 2 or more, or memory runs out. */
BR_EXPORT void IMBufferSetAttachment(IMBufferRef buffer, BRStringRef key, BRTypeRef value, IMAttachmentMode mode);

/* A key's value, borrowed until the buffer goes or the key is set again; NULL when there is none. modeOut may be NULL and
 * is written only when there is a value. */
BR_EXPORT BRTypeRef IMBufferGetAttachment(IMBufferRef buffer, BRStringRef key, IMAttachmentMode *modeOut);

/* Removes a key, in whichever mode it is. */
BR_EXPORT void IMBufferRemoveAttachment(IMBufferRef buffer, BRStringRef key);

/* Removes all keys. */
BR_EXPORT void IMBufferRemoveAllAttachments(IMBufferRef buffer);

/* The keys and values of one mode, borrowed and live: the dictionary shows later changes. NULL when there are none. */
BR_EXPORT BRDictionaryRef IMBufferGetAttachments(IMBufferRef buffer, IMAttachmentMode mode);

BR_END_DECLS

#endif
