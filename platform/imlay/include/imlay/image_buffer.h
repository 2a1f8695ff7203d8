/* Imlay: image and pixel buffers. */
#ifndef IMLAY_IMAGE_BUFFER_H
#define IMLAY_IMAGE_BUFFER_H

#include <bedra/base.h>

BR_BEGIN_DECLS

/* Any buffer that bears attachments; a pixel buffer is the one kind there is. */
typedef struct IMPixelBuffer *IMPixelBufferRef;
typedef IMPixelBufferRef IMImageBufferRef;
typedef IMImageBufferRef IMBufferRef;

BR_EXPORT BRTypeID IMPixelBufferGetTypeID(void);

BR_END_DECLS

#endif
