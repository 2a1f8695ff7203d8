// Pixel buffers.
#include <bedra/object.hpp>
#include <imlay/image_buffer.h>

struct IMPixelBuffer : BRObject {
  static constexpr const char* className = "IMPixelBuffer";
};

BRTypeID IMPixelBufferGetTypeID(void) { return br::typeID<IMPixelBuffer>(); }
