// Video format descriptions of image buffers: creation and matching.
#include <bedra/dictionary.h>
#include <bedra/number.h>
#include <imlay/pixel_buffer.h>
#include <kiv/video_format_description.h>

#include <bedra/ref.hpp>

#include "formats/video_format_description.hpp"
#include "runtime/error.hpp"

namespace {

// What of an image buffer a description tells. Sizes too large for one do not compare equal to any.
struct Picture {
  bool isPixels;
  uint32_t pixelFormat;
  uint64_t width;
  uint64_t height;
  uint64_t bytesPerRow;
};

// A side of an encoded picture: finite and above 0, but of any size.
uint64_t rounded(GRFloat side) { return side < INT32_MAX ? static_cast<uint64_t>(side + 0.5) : UINT64_MAX; }

Picture describe(IMImageBufferRef buffer) {
  if (BRGetTypeID(buffer) == IMPixelBufferGetTypeID())
    return {true, IMPixelBufferGetPixelFormatType(buffer), IMPixelBufferGetWidth(buffer),
            IMPixelBufferGetHeight(buffer), IMPixelBufferGetBytesPerRow(buffer)};
  const GRSize size = IMImageBufferGetEncodedSize(buffer);
  return {false, 0, rounded(size.width), rounded(size.height), 0};
}

bool setNumber(BRAllocatorRef allocator, BRMutableDictionaryRef extensions, BRStringRef key, int32_t value) {
  auto number = br::Ref<const BRNumber>::adopt(BRNumberCreate(allocator, kBRNumberTypeSInt32, &value));
  return number && BRDictionarySetValue(extensions, key, number.get());
}

bool fill(BRAllocatorRef allocator, BRMutableDictionaryRef extensions, IMImageBufferRef buffer,
          const Picture& picture) {
  if (picture.isPixels && !setNumber(allocator, extensions, kPVFormatDescriptionExtension_BytesPerRow,
                                     static_cast<int32_t>(picture.bytesPerRow)))
    return false;
  for (const BRStringRef* key : pv::video::keysCommonWithImageBuffers())
    if (BRTypeRef value = IMBufferGetAttachment(buffer, *key, nullptr))
      if (!BRDictionarySetValue(extensions, *key, value)) return false;
  return setNumber(allocator, extensions, kPVFormatDescriptionExtension_Version, 2);
}

bool hasBytesPerRow(BRTypeRef extension, uint64_t bytesPerRow) {
  int32_t value = 0;
  if (BRGetTypeID(extension) != BRNumberGetTypeID()) return false;
  BRNumberGetValue(static_cast<BRNumberRef>(extension), kBRNumberTypeSInt32, &value);
  return value >= 0 && static_cast<uint64_t>(value) == bytesPerRow;
}

}  // namespace

PVStatus PVVideoFormatDescriptionCreateForImageBuffer(BRAllocatorRef allocator, IMImageBufferRef imageBuffer,
                                                      PVVideoFormatDescriptionRef* descriptionOut) {
  if (descriptionOut) *descriptionOut = nullptr;
  if (!descriptionOut || !imageBuffer) return pv::signalError(kPVFormatDescriptionError_InvalidParameter);
  const Picture picture = describe(imageBuffer);
  if (picture.width > INT32_MAX || picture.height > INT32_MAX || picture.bytesPerRow > INT32_MAX)
    return pv::signalError(kPVFormatDescriptionError_InvalidParameter);
  constexpr size_t kOwnKeys = 2;
  auto extensions = br::Ref<BRDictionary>::adopt(
      BRDictionaryCreateMutable(allocator, pv::video::keysCommonWithImageBuffers().size() + kOwnKeys,
                                &kBRTypeDictionaryKeyCallBacks, &kBRTypeDictionaryValueCallBacks));
  if (!extensions || !fill(allocator, extensions.get(), imageBuffer, picture))
    return pv::signalError(kPVFormatDescriptionError_AllocationFailed);
  return PVVideoFormatDescriptionCreate(allocator, picture.pixelFormat, static_cast<int32_t>(picture.width),
                                        static_cast<int32_t>(picture.height), extensions.get(),
                                        descriptionOut);
}

bool PVVideoFormatDescriptionMatchesImageBuffer(PVVideoFormatDescriptionRef description,
                                                IMImageBufferRef imageBuffer) {
  const pv::video::Storage* storage = pv::video::storageOf(description);
  if (!storage || !imageBuffer) {
    pv::signalError(kPVFormatDescriptionError_InvalidParameter);
    return false;
  }
  const Picture picture = describe(imageBuffer);
  if (PVFormatDescriptionGetMediaSubType(description) != picture.pixelFormat ||
      static_cast<int64_t>(picture.width) != storage->width ||
      static_cast<int64_t>(picture.height) != storage->height)
    return false;
  if (picture.isPixels)
    if (BRTypeRef extension =
            PVFormatDescriptionGetExtension(description, kPVFormatDescriptionExtension_BytesPerRow);
        extension && !hasBytesPerRow(extension, picture.bytesPerRow))
      return false;
  for (const BRStringRef* key : pv::video::keysCommonWithImageBuffers())
    if (!BREqual(PVFormatDescriptionGetExtension(description, *key),
                 IMBufferGetAttachment(imageBuffer, *key, nullptr)))
      return false;
  return true;
}
