/* Pixel buffers: pictures in memory.
 *
 * A pixel buffer is rows of bytes, and what they are: width and height in pixels, a four-character pixel format, the
 * distance between rows in bytes. A planar one is several such fields of rows, a plane each, as for luma and chroma.
 * Imlay does not look into pixel formats: how many bytes a row takes its maker says. Threads and attachments are those
 * of all image buffers.
 *
 *   IMPixelBufferRef picture;
 *   IMStatus status = IMPixelBufferCreate(NULL, 1920, 1080, 'BGRA', 1920 * 4, &picture);
 *   char *row = (char *)IMPixelBufferGetBaseAddress(picture) + y * IMPixelBufferGetBytesPerRow(picture);
 *   BRRelease(picture); */
#ifndef IMLAY_PIXEL_BUFFER_H
#define IMLAY_PIXEL_BUFFER_H

#include <imlay/image_buffer.h>

BR_BEGIN_DECLS

/* An image buffer that holds pixels. */
typedef IMImageBufferRef IMPixelBufferRef;

/* Gives pixels back to who lent them: what was passed to the creating function, for planes the address of the first
 * one. Called once, on the thread that drops the last reference. */
typedef void (*IMPixelBufferReleaseBytes)(void *refCon, void *baseAddress);

/* One plane of a planar buffer: height rows of width samples, a row every bytesPerRow bytes. baseAddress is ignored
 * where the buffer has memory of its own. */
typedef struct IMPixelBufferPlane {
  void *baseAddress;
  size_t width;
  size_t height;
  size_t bytesPerRow;
} IMPixelBufferPlane;

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

/* The same with planes, of which there is at least one. In memory of the buffer's own they follow each other in one
 * block, each 16-byte aligned. The records are copied. */
BR_EXPORT IMStatus IMPixelBufferCreatePlanar(BRAllocatorRef allocator, size_t width, size_t height,
                                             uint32_t pixelFormat, size_t planeCount,
                                             const IMPixelBufferPlane *planes, IMPixelBufferRef *bufferOut);
BR_EXPORT IMStatus IMPixelBufferCreateWithPlanarBytes(BRAllocatorRef allocator, size_t width, size_t height,
                                                      uint32_t pixelFormat, size_t planeCount,
                                                      const IMPixelBufferPlane *planes,
                                                      IMPixelBufferReleaseBytes releaseBytes, void *releaseRefCon,
                                                      IMPixelBufferRef *bufferOut);

/* What a buffer is; bytes per row and base address of a planar one are its first plane's. 0 and NULL for NULL and for
 * an image buffer of another kind. */
BR_EXPORT uint32_t IMPixelBufferGetPixelFormatType(IMPixelBufferRef buffer);
BR_EXPORT size_t IMPixelBufferGetWidth(IMPixelBufferRef buffer);
BR_EXPORT size_t IMPixelBufferGetHeight(IMPixelBufferRef buffer);
BR_EXPORT size_t IMPixelBufferGetBytesPerRow(IMPixelBufferRef buffer);
BR_EXPORT void *IMPixelBufferGetBaseAddress(IMPixelBufferRef buffer);

/* The planes. A buffer that was created without them is not planar and has none; an index that is too high gives 0 and
 * NULL. */
BR_EXPORT bool IMPixelBufferIsPlanar(IMPixelBufferRef buffer);
BR_EXPORT size_t IMPixelBufferGetPlaneCount(IMPixelBufferRef buffer);
BR_EXPORT size_t IMPixelBufferGetWidthOfPlane(IMPixelBufferRef buffer, size_t planeIndex);
BR_EXPORT size_t IMPixelBufferGetHeightOfPlane(IMPixelBufferRef buffer, size_t planeIndex);
BR_EXPORT size_t IMPixelBufferGetBytesPerRowOfPlane(IMPixelBufferRef buffer, size_t planeIndex);
BR_EXPORT void *IMPixelBufferGetBaseAddressOfPlane(IMPixelBufferRef buffer, size_t planeIndex);

BR_END_DECLS

#endif
