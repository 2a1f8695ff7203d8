// Encoded image buffers.
#include <bedra/data.h>
#include <imlay/encoded_image_buffer.h>

#include <cmath>

#include "src/image_buffer.hpp"

namespace {

struct EncodedImageBuffer : IMImageBuffer {
  static constexpr const char* className = "IMEncodedImageBuffer";

  EncodedImageBuffer(GRSize size, br::Ref<const BRData> bytes)
      : IMImageBuffer(size), data(std::move(bytes)) {}

  br::Ref<const BRData> data;
};

bool isValidSide(GRFloat side) { return side > 0 && std::isfinite(side); }

}  // namespace

BRTypeID IMEncodedImageBufferGetTypeID(void) { return br::typeID<EncodedImageBuffer>(); }

IMStatus IMEncodedImageBufferCreate(BRAllocatorRef allocator, GRSize encodedSize, BRDataRef data,
                                    IMEncodedImageBufferRef* bufferOut) {
  if (!bufferOut) return kIMStatus_InvalidArgument;
  *bufferOut = nullptr;
  if (!isValidSide(encodedSize.width) || !isValidSide(encodedSize.height)) return kIMStatus_InvalidSize;
  *bufferOut = br::create<EncodedImageBuffer>(allocator, 0, encodedSize, br::Ref<const BRData>::retain(data));
  return *bufferOut ? kIMStatus_Success : kIMStatus_AllocationFailed;
}

BRDataRef IMEncodedImageBufferGetData(IMEncodedImageBufferRef buffer) {
  return br::isA<EncodedImageBuffer>(buffer) ? static_cast<EncodedImageBuffer*>(buffer)->data.get() : nullptr;
}
