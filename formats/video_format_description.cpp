// Video format descriptions: the entry of their media type, plain creation, dimensions.
#include "formats/video_format_description.hpp"

#include <bedra/string.h>
#include <kiv/format_description.h>

#include <bedra/ref.hpp>

#include "runtime/error.hpp"

using pv::video::Storage;

namespace {

// Of a description whose entry is this one.
Storage& ownStorageOf(PVFormatDescriptionRef description) {
  return *static_cast<Storage*>(KivDerivedFormatDescriptionGetDerivedStorage(description));
}

// Not when somebody else registered the media type first, with less.
bool hasOwnStorage(PVFormatDescriptionRef description) {
  return PVFormatDescriptionGetMediaType(description) == kPVMediaType_Video &&
         KivDerivedFormatDescriptionGetDerivedStorageSize(description) >= sizeof(Storage);
}

bool videoEqual(PVFormatDescriptionRef a, PVFormatDescriptionRef b, BRTypeRef keysToIgnore,
                BRTypeRef atomKeysToIgnore) {
  const Storage &ours = ownStorageOf(a), &theirs = ownStorageOf(b);
  return ours.codecType == theirs.codecType && ours.width == theirs.width && ours.height == theirs.height &&
         KivFormatDescriptionExtensionsDictionariesEqualIgnoringKeys(PVFormatDescriptionGetExtensions(a),
                                                                     PVFormatDescriptionGetExtensions(b),
                                                                     keysToIgnore, atomKeysToIgnore);
}

BRStringRef videoCopyDebugDescription(PVFormatDescriptionRef description) {
  const Storage& storage = ownStorageOf(description);
  const PVFourCharCode code = storage.codecType;
  auto text = br::Ref<BRString>::adopt(BRStringCreateMutable(nullptr, 0));
  // Small codec types are numbers, not characters.
  if (code > 255)
    BRStringAppendFormat(text.get(), "\t\tcodecType: '%c%c%c%c'", code >> 24, code >> 16 & 0xFF,
                         code >> 8 & 0xFF, code & 0xFF);
  else
    BRStringAppendFormat(text.get(), "\t\tcodecType: %d", static_cast<int>(code));
  BRStringAppendFormat(text.get(), "\t\tdimensions: %d x %d", storage.width, storage.height);
  return text.detach();
}

constexpr KivDerivedFormatDescriptionCallbacks kEntry{.version = 0,
                                                      .derivedStorageSize = sizeof(Storage),
                                                      .equal = videoEqual,
                                                      .copyDebugDescription = videoCopyDebugDescription,
                                                      .finalize = [](PVFormatDescriptionRef) {}};

}  // namespace

PVStatus KivVideoFormatDescriptionRegister(void) {
  return KivDerivedFormatDescriptionRegister(kPVMediaType_Video, &kEntry);
}

const Storage* pv::video::storageOf(PVFormatDescriptionRef description) {
  return hasOwnStorage(description) ? &ownStorageOf(description) : nullptr;
}

PVStatus PVVideoFormatDescriptionCreate(BRAllocatorRef allocator, PVVideoCodecType codecType, int32_t width,
                                        int32_t height, BRDictionaryRef extensions,
                                        PVVideoFormatDescriptionRef* descriptionOut) {
  if (descriptionOut) *descriptionOut = nullptr;
  if (!descriptionOut || codecType == 0) return pv::signalError(kPVFormatDescriptionError_InvalidParameter);
  if (PVStatus status = KivVideoFormatDescriptionRegister()) return status;
  br::Ref<PVFormatDescription> made;
  if (PVStatus status =
          KivDerivedFormatDescriptionCreate(allocator, kPVMediaType_Video, codecType, extensions, made.out()))
    return status;
  if (!hasOwnStorage(made.get())) return pv::signalError(kPVFormatDescriptionError_InvalidParameter);
  ownStorageOf(made.get()) = {codecType, width, height};
  *descriptionOut = made.detach();
  return 0;
}

PVVideoDimensions PVVideoFormatDescriptionGetDimensions(PVVideoFormatDescriptionRef description) {
  if (const Storage* storage = pv::video::storageOf(description)) return {storage->width, storage->height};
  pv::signalError(kPVFormatDescriptionError_InvalidParameter);
  return {0, 0};
}
