// Pixel buffers: pictures in memory.
//
// Representation: one or more planes, inline behind the object; a buffer that is not planar is one plane of
// its own size. A buffer's own memory is one block of the buffer's allocator, at the first plane's address.
#include <bedra/allocator.h>
#include <imlay/pixel_buffer.h>

#include <cstring>

#include "src/image_buffer.hpp"

namespace {

using Plane = IMPixelBufferPlane;

constexpr size_t kPlaneAlignment = 16;

struct PixelBuffer : IMImageBuffer {
  static constexpr const char* className = "IMPixelBuffer";

  PixelBuffer(size_t pixelWidth, size_t pixelHeight, uint32_t format, size_t planes)
      : IMImageBuffer({static_cast<GRFloat>(pixelWidth), static_cast<GRFloat>(pixelHeight)}),
        width(pixelWidth),
        height(pixelHeight),
        planeCount(planes),
        pixelFormat(format) {}
  ~PixelBuffer() {
    if (ownsMemory)
      BRAllocatorDeallocate(BRGetAllocator(this), plane(0)->baseAddress);
    else if (releaseBytes)
      releaseBytes(releaseRefCon, plane(0)->baseAddress);
  }

  Plane* plane(size_t index) { return br::extra<Plane>(this) + index; }

  size_t width;
  size_t height;
  size_t planeCount;
  IMPixelBufferReleaseBytes releaseBytes = nullptr;
  void* releaseRefCon = nullptr;
  uint32_t pixelFormat;
  bool isPlanar = false;
  bool ownsMemory = false;
};

// What the creating functions share: what the picture is, without its memory.
struct Picture {
  BRAllocatorRef allocator;
  size_t width;
  size_t height;
  uint32_t pixelFormat;
  size_t planeCount;
  const Plane* planes;
  bool isPlanar;

  // The bytes of all planes, each from an aligned offset on; 0 when a side is 0 or the sum exceeds SIZE_MAX.
  size_t sizeBytes() const {
    if (!width || !height) return 0;
    size_t total = 0;
    for (size_t i = 0; i < planeCount; ++i) {
      const Plane& plane = planes[i];
      size_t bytes;
      if (!plane.width || !plane.height || !plane.bytesPerRow ||
          __builtin_mul_overflow(plane.height, plane.bytesPerRow, &bytes) ||
          total > SIZE_MAX - kPlaneAlignment)
        return 0;
      total = alignedEnd(total);
      if (__builtin_add_overflow(total, bytes, &total)) return 0;
    }
    return total;
  }

  static size_t alignedEnd(size_t offset) {
    return (offset + kPlaneAlignment - 1) / kPlaneAlignment * kPlaneAlignment;
  }

  br::Ref<PixelBuffer> create() const {
    if (planeCount > SIZE_MAX / sizeof(Plane)) return nullptr;
    auto buffer = br::Ref<PixelBuffer>::adopt(br::create<PixelBuffer>(
        allocator, planeCount * sizeof(Plane), width, height, pixelFormat, planeCount));
    if (!buffer) return nullptr;
    std::memcpy(buffer->plane(0), planes, planeCount * sizeof(Plane));
    buffer->isPlanar = isPlanar;
    return buffer;
  }
};

IMStatus createOwning(const Picture& picture, IMPixelBufferRef* bufferOut) {
  const size_t sizeBytes = picture.sizeBytes();
  if (!sizeBytes) return kIMStatus_InvalidSize;
  br::Ref<PixelBuffer> buffer = picture.create();
  if (!buffer) return kIMStatus_AllocationFailed;
  auto* memory = static_cast<char*>(BRAllocatorAllocate(picture.allocator, sizeBytes));
  if (!memory) return kIMStatus_AllocationFailed;
  std::memset(memory, 0, sizeBytes);
  buffer->ownsMemory = true;
  size_t offset = 0;
  for (size_t i = 0; i < picture.planeCount; ++i) {
    Plane& plane = *buffer->plane(i);
    offset = Picture::alignedEnd(offset);
    plane.baseAddress = memory + offset;
    offset += plane.height * plane.bytesPerRow;
  }
  *bufferOut = buffer.detach();
  return kIMStatus_Success;
}

IMStatus createOver(const Picture& picture, IMPixelBufferReleaseBytes releaseBytes, void* releaseRefCon,
                    IMPixelBufferRef* bufferOut) {
  for (size_t i = 0; i < picture.planeCount; ++i)
    if (!picture.planes[i].baseAddress) return kIMStatus_InvalidArgument;
  if (!picture.sizeBytes()) return kIMStatus_InvalidSize;
  br::Ref<PixelBuffer> buffer = picture.create();
  if (!buffer) return kIMStatus_AllocationFailed;
  buffer->releaseBytes = releaseBytes;
  buffer->releaseRefCon = releaseRefCon;
  *bufferOut = buffer.detach();
  return kIMStatus_Success;
}

PixelBuffer* asPixels(IMImageBufferRef buffer) {
  return br::isA<PixelBuffer>(buffer) ? static_cast<PixelBuffer*>(buffer) : nullptr;
}

constexpr Plane kNoPlane{};

const Plane& onlyOrFirstPlane(IMImageBufferRef buffer) {
  PixelBuffer* pixels = asPixels(buffer);
  return pixels ? *pixels->plane(0) : kNoPlane;
}

const Plane& planeOf(IMImageBufferRef buffer, size_t index) {
  return index < IMPixelBufferGetPlaneCount(buffer) ? *asPixels(buffer)->plane(index) : kNoPlane;
}

}  // namespace

BRTypeID IMPixelBufferGetTypeID(void) { return br::typeID<PixelBuffer>(); }

IMStatus IMPixelBufferCreate(BRAllocatorRef allocator, size_t width, size_t height, uint32_t pixelFormat,
                             size_t bytesPerRow, IMPixelBufferRef* bufferOut) {
  if (!bufferOut) return kIMStatus_InvalidArgument;
  *bufferOut = nullptr;
  const Plane plane{nullptr, width, height, bytesPerRow};
  return createOwning({allocator, width, height, pixelFormat, 1, &plane, false}, bufferOut);
}

IMStatus IMPixelBufferCreateWithBytes(BRAllocatorRef allocator, size_t width, size_t height,
                                      uint32_t pixelFormat, void* baseAddress, size_t bytesPerRow,
                                      IMPixelBufferReleaseBytes releaseBytes, void* releaseRefCon,
                                      IMPixelBufferRef* bufferOut) {
  if (!bufferOut) return kIMStatus_InvalidArgument;
  *bufferOut = nullptr;
  const Plane plane{baseAddress, width, height, bytesPerRow};
  return createOver({allocator, width, height, pixelFormat, 1, &plane, false}, releaseBytes, releaseRefCon,
                    bufferOut);
}

IMStatus IMPixelBufferCreatePlanar(BRAllocatorRef allocator, size_t width, size_t height,
                                   uint32_t pixelFormat, size_t planeCount, const IMPixelBufferPlane* planes,
                                   IMPixelBufferRef* bufferOut) {
  if (bufferOut) *bufferOut = nullptr;
  if (!bufferOut || !planes) return kIMStatus_InvalidArgument;
  return createOwning({allocator, width, height, pixelFormat, planeCount, planes, true}, bufferOut);
}

IMStatus IMPixelBufferCreateWithPlanarBytes(BRAllocatorRef allocator, size_t width, size_t height,
                                            uint32_t pixelFormat, size_t planeCount,
                                            const IMPixelBufferPlane* planes,
                                            IMPixelBufferReleaseBytes releaseBytes, void* releaseRefCon,
                                            IMPixelBufferRef* bufferOut) {
  if (bufferOut) *bufferOut = nullptr;
  if (!bufferOut || !planes) return kIMStatus_InvalidArgument;
  return createOver({allocator, width, height, pixelFormat, planeCount, planes, true}, releaseBytes,
                    releaseRefCon, bufferOut);
}

uint32_t IMPixelBufferGetPixelFormatType(IMPixelBufferRef buffer) {
  PixelBuffer* pixels = asPixels(buffer);
  return pixels ? pixels->pixelFormat : 0;
}

size_t IMPixelBufferGetWidth(IMPixelBufferRef buffer) {
  PixelBuffer* pixels = asPixels(buffer);
  return pixels ? pixels->width : 0;
}

size_t IMPixelBufferGetHeight(IMPixelBufferRef buffer) {
  PixelBuffer* pixels = asPixels(buffer);
  return pixels ? pixels->height : 0;
}

size_t IMPixelBufferGetBytesPerRow(IMPixelBufferRef buffer) { return onlyOrFirstPlane(buffer).bytesPerRow; }

void* IMPixelBufferGetBaseAddress(IMPixelBufferRef buffer) { return onlyOrFirstPlane(buffer).baseAddress; }

bool IMPixelBufferIsPlanar(IMPixelBufferRef buffer) {
  PixelBuffer* pixels = asPixels(buffer);
  return pixels && pixels->isPlanar;
}

size_t IMPixelBufferGetPlaneCount(IMPixelBufferRef buffer) {
  return IMPixelBufferIsPlanar(buffer) ? asPixels(buffer)->planeCount : 0;
}

size_t IMPixelBufferGetWidthOfPlane(IMPixelBufferRef buffer, size_t planeIndex) {
  return planeOf(buffer, planeIndex).width;
}

size_t IMPixelBufferGetHeightOfPlane(IMPixelBufferRef buffer, size_t planeIndex) {
  return planeOf(buffer, planeIndex).height;
}

size_t IMPixelBufferGetBytesPerRowOfPlane(IMPixelBufferRef buffer, size_t planeIndex) {
  return planeOf(buffer, planeIndex).bytesPerRow;
}

void* IMPixelBufferGetBaseAddressOfPlane(IMPixelBufferRef buffer, size_t planeIndex) {
  return planeOf(buffer, planeIndex).baseAddress;
}
