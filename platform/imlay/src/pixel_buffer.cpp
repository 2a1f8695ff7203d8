// Pixel buffers: pictures in memory, and what hangs on them. A buffer's own memory is a block of the buffer's
// allocator.
#include <bedra/allocator.h>
#include <bedra/dictionary.h>
#include <imlay/image_buffer.h>

#include <bedra/object.hpp>
#include <bedra/ref.hpp>
#include <cstring>

struct IMPixelBuffer : BRObject {
  static constexpr const char* className = "IMPixelBuffer";

  IMPixelBuffer(size_t pixelWidth, size_t pixelHeight, uint32_t format, size_t rowBytes)
      : width(pixelWidth), height(pixelHeight), bytesPerRow(rowBytes), pixelFormat(format) {}
  ~IMPixelBuffer() {
    if (ownsMemory)
      BRAllocatorDeallocate(BRGetAllocator(this), baseAddress);
    else if (releaseBytes)
      releaseBytes(releaseRefCon, baseAddress);
  }

  size_t width;
  size_t height;
  size_t bytesPerRow;
  void* baseAddress = nullptr;
  IMPixelBufferReleaseBytes releaseBytes = nullptr;
  void* releaseRefCon = nullptr;
  uint32_t pixelFormat;
  bool ownsMemory = false;
  br::Ref<BRDictionary> attachments[2];  // one per mode, made when first needed; a key is in at most one
};

namespace {

bool isValidSize(size_t width, size_t height, size_t bytesPerRow) {
  return width && height && bytesPerRow && bytesPerRow <= SIZE_MAX / height;
}

}  // namespace

BRTypeID IMPixelBufferGetTypeID(void) { return br::typeID<IMPixelBuffer>(); }

IMStatus IMPixelBufferCreate(BRAllocatorRef allocator, size_t width, size_t height, uint32_t pixelFormat,
                             size_t bytesPerRow, IMPixelBufferRef* bufferOut) {
  if (!bufferOut) return kIMStatus_InvalidArgument;
  *bufferOut = nullptr;
  if (!isValidSize(width, height, bytesPerRow)) return kIMStatus_InvalidSize;
  auto buffer = br::Ref<IMPixelBuffer>::adopt(
      br::create<IMPixelBuffer>(allocator, 0, width, height, pixelFormat, bytesPerRow));
  if (!buffer) return kIMStatus_AllocationFailed;
  buffer->ownsMemory = true;
  buffer->baseAddress = BRAllocatorAllocate(allocator, height * bytesPerRow);
  if (!buffer->baseAddress) return kIMStatus_AllocationFailed;
  std::memset(buffer->baseAddress, 0, height * bytesPerRow);
  *bufferOut = buffer.detach();
  return 0;
}

IMStatus IMPixelBufferCreateWithBytes(BRAllocatorRef allocator, size_t width, size_t height,
                                      uint32_t pixelFormat, void* baseAddress, size_t bytesPerRow,
                                      IMPixelBufferReleaseBytes releaseBytes, void* releaseRefCon,
                                      IMPixelBufferRef* bufferOut) {
  if (bufferOut) *bufferOut = nullptr;
  if (!bufferOut || !baseAddress) return kIMStatus_InvalidArgument;
  if (!isValidSize(width, height, bytesPerRow)) return kIMStatus_InvalidSize;
  IMPixelBuffer* buffer = br::create<IMPixelBuffer>(allocator, 0, width, height, pixelFormat, bytesPerRow);
  if (!buffer) return kIMStatus_AllocationFailed;
  buffer->baseAddress = baseAddress;
  buffer->releaseBytes = releaseBytes;
  buffer->releaseRefCon = releaseRefCon;
  *bufferOut = buffer;
  return 0;
}

uint32_t IMPixelBufferGetPixelFormatType(IMPixelBufferRef buffer) { return buffer ? buffer->pixelFormat : 0; }

size_t IMPixelBufferGetWidth(IMPixelBufferRef buffer) { return buffer ? buffer->width : 0; }

size_t IMPixelBufferGetHeight(IMPixelBufferRef buffer) { return buffer ? buffer->height : 0; }

size_t IMPixelBufferGetBytesPerRow(IMPixelBufferRef buffer) { return buffer ? buffer->bytesPerRow : 0; }

void* IMPixelBufferGetBaseAddress(IMPixelBufferRef buffer) { return buffer ? buffer->baseAddress : nullptr; }

void IMBufferSetAttachment(IMBufferRef buffer, BRStringRef key, BRTypeRef value, IMAttachmentMode mode) {
  if (!buffer || !key || !value || mode > kIMAttachmentMode_ShouldPropagate) return;
  auto& wanted = buffer->attachments[mode];
  if (!wanted)
    wanted = br::Ref<BRDictionary>::adopt(BRDictionaryCreateMutable(
        BRGetAllocator(buffer), 0, &kBRCopyStringDictionaryKeyCallBacks, &kBRTypeDictionaryValueCallBacks));
  // Into the one before out of the other: when memory runs out the key stays as it was.
  if (BRDictionarySetValue(wanted.get(), key, value))
    BRDictionaryRemoveValue(buffer->attachments[1 - mode].get(), key);
}

BRTypeRef IMBufferGetAttachment(IMBufferRef buffer, BRStringRef key, IMAttachmentMode* modeOut) {
  if (!buffer || !key) return nullptr;
  for (IMAttachmentMode mode : {kIMAttachmentMode_ShouldNotPropagate, kIMAttachmentMode_ShouldPropagate})
    if (BRTypeRef value = BRDictionaryGetValue(buffer->attachments[mode].get(), key)) {
      if (modeOut) *modeOut = mode;
      return value;
    }
  return nullptr;
}

void IMBufferRemoveAttachment(IMBufferRef buffer, BRStringRef key) {
  if (!buffer || !key) return;
  // A key is in one mode only, and may have lived by that entry: it is not looked at again.
  for (auto& attachments : buffer->attachments)
    if (BRDictionaryRemoveValue(attachments.get(), key)) return;
}

void IMBufferRemoveAllAttachments(IMBufferRef buffer) {
  if (!buffer) return;
  for (auto& attachments : buffer->attachments) attachments = nullptr;
}

BRDictionaryRef IMBufferGetAttachments(IMBufferRef buffer, IMAttachmentMode mode) {
  if (!buffer || mode > kIMAttachmentMode_ShouldPropagate) return nullptr;
  BRDictionaryRef attachments = buffer->attachments[mode].get();
  return BRDictionaryGetCount(attachments) ? attachments : nullptr;
}
