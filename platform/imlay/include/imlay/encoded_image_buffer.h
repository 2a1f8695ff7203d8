/* Encoded image buffers: pictures as an encoder left them.
 *
 * Of such a picture Imlay knows its size and, when it was given them, its bytes; the format is between its users.
 * Threads and attachments are those of all image buffers.
 *
 *   IMEncodedImageBufferRef still;
 *   IMStatus status = IMEncodedImageBufferCreate(NULL, (GRSize){4032, 3024}, bytesOfTheFile, &still);
 *   BRRelease(still); */
#ifndef IMLAY_ENCODED_IMAGE_BUFFER_H
#define IMLAY_ENCODED_IMAGE_BUFFER_H

#include <imlay/image_buffer.h>

BR_BEGIN_DECLS

/* An image buffer that holds an encoded picture. */
typedef IMImageBufferRef IMEncodedImageBufferRef;

/* The runtime type "IMEncodedImageBuffer". */
BR_EXPORT BRTypeID IMEncodedImageBufferGetTypeID(void);

/* Creates a buffer for a picture of a size, both sides above 0 and finite (kIMStatus_InvalidSize). data may be NULL; it
 * is retained. */
BR_EXPORT IMStatus IMEncodedImageBufferCreate(BRAllocatorRef allocator, GRSize encodedSize, BRDataRef data,
                                              IMEncodedImageBufferRef *bufferOut);

/* The bytes, borrowed; NULL when there are none, for NULL and for an image buffer of another kind. */
BR_EXPORT BRDataRef IMEncodedImageBufferGetData(IMEncodedImageBufferRef buffer);

BR_END_DECLS

#endif
