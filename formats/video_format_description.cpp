// Video format descriptions: the entry of their media type.
#include <bedra/string.h>
#include <kiv/format_description.h>

#include <bedra/ref.hpp>

namespace {

struct VideoStorage {
  PVFourCharCode codecType;
  int32_t width;
  int32_t height;
};

VideoStorage& storageOf(PVFormatDescriptionRef description) {
  return *static_cast<VideoStorage*>(KivDerivedFormatDescriptionGetDerivedStorage(description));
}

bool videoEqual(PVFormatDescriptionRef a, PVFormatDescriptionRef b, BRTypeRef keysToIgnore,
                BRTypeRef atomKeysToIgnore) {
  const VideoStorage &ours = storageOf(a), &theirs = storageOf(b);
  return ours.codecType == theirs.codecType && ours.width == theirs.width && ours.height == theirs.height &&
         KivFormatDescriptionExtensionsDictionariesEqualIgnoringKeys(PVFormatDescriptionGetExtensions(a),
                                                                     PVFormatDescriptionGetExtensions(b),
                                                                     keysToIgnore, atomKeysToIgnore);
}

BRStringRef videoCopyDebugDescription(PVFormatDescriptionRef description) {
  const VideoStorage& storage = storageOf(description);
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
                                                      .derivedStorageSize = sizeof(VideoStorage),
                                                      .equal = videoEqual,
                                                      .copyDebugDescription = videoCopyDebugDescription,
                                                      .finalize = [](PVFormatDescriptionRef) {}};

}  // namespace

PVStatus KivVideoFormatDescriptionRegister(void) {
  return KivDerivedFormatDescriptionRegister(kPVMediaType_Video, &kEntry);
}
