// Timecode format descriptions: derived storage, creation, getters.
#include "formats/timecode_format_description.hpp"

#include <bedra/string.h>
#include <kiv/format_description.h>

#include <bedra/literal.hpp>
#include <bedra/ref.hpp>

#include "runtime/error.hpp"
#include "runtime/twin.hpp"

using namespace br::literals;

extern "C" {
constinit const BRStringRef kPVTimeCodeFormatDescriptionExtension_SourceReferenceName =
    "TimeCode_SourceReferenceName"_br;
constinit const BRStringRef kPVTimeCodeFormatDescriptionKey_Value = "TimeCode_SourceReferenceName_Value"_br;
constinit const BRStringRef kPVTimeCodeFormatDescriptionKey_LangCode =
    "TimeCode_SourceReferenceName_LangCode"_br;
}

namespace {

struct TimeCodeStorage {
  PVTime frameDuration;
  uint32_t frameQuanta;
  uint32_t flags;
};

TimeCodeStorage& storageOf(PVFormatDescriptionRef description) {
  return *static_cast<TimeCodeStorage*>(KivDerivedFormatDescriptionGetDerivedStorage(description));
}

// Not when somebody else registered the media type first, with less.
bool hasOwnStorage(PVFormatDescriptionRef description) {
  return PVFormatDescriptionGetMediaType(description) == kPVMediaType_TimeCode &&
         KivDerivedFormatDescriptionGetDerivedStorageSize(description) >= sizeof(TimeCodeStorage);
}

// Null, and signalled, when the description is none of timecode.
const TimeCodeStorage* storageForGetter(PVFormatDescriptionRef description) {
  if (hasOwnStorage(description)) return &storageOf(description);
  pv::signalError(kPVFormatDescriptionError_InvalidParameter);
  return nullptr;
}

bool timeCodeEqual(PVFormatDescriptionRef a, PVFormatDescriptionRef b, BRTypeRef keysToIgnore,
                   BRTypeRef atomKeysToIgnore) {
  const TimeCodeStorage &ours = storageOf(a), &theirs = storageOf(b);
  return PVFormatDescriptionGetMediaSubType(a) == PVFormatDescriptionGetMediaSubType(b) &&
         PVTimeCompare(ours.frameDuration, theirs.frameDuration) == 0 &&
         ours.frameQuanta == theirs.frameQuanta && ours.flags == theirs.flags &&
         KivFormatDescriptionExtensionsDictionariesEqualIgnoringKeys(PVFormatDescriptionGetExtensions(a),
                                                                     PVFormatDescriptionGetExtensions(b),
                                                                     keysToIgnore, atomKeysToIgnore);
}

BRStringRef timeCodeCopyDebugDescription(PVFormatDescriptionRef description) {
  const TimeCodeStorage& storage = storageOf(description);
  const auto duration = br::Ref<const BRString>::adopt(PVTimeCopyDescription(nullptr, storage.frameDuration));
  return BRStringCreateWithFormat(nullptr, "\t\tframeDuration: %@\t\tframes/sec: %d\t\ttcFlags: %d",
                                  duration.get(), static_cast<int>(storage.frameQuanta),
                                  static_cast<int>(storage.flags));
}

constexpr KivDerivedFormatDescriptionCallbacks kEntry{.version = 0,
                                                      .derivedStorageSize = sizeof(TimeCodeStorage),
                                                      .equal = timeCodeEqual,
                                                      .copyDebugDescription = timeCodeCopyDebugDescription,
                                                      .finalize = [](PVFormatDescriptionRef) {}};

}  // namespace

bool pv::isTimeCodeFormatType(PVFourCharCode type) {
  return type == kPVTimeCodeFormatType_TimeCode32 || type == kPVTimeCodeFormatType_TimeCode64 ||
         type == kPVTimeCodeFormatType_Counter32 || type == kPVTimeCodeFormatType_Counter64;
}

PVStatus KivTimeCodeFormatDescriptionRegister(void) {
  return KivDerivedFormatDescriptionRegister(kPVMediaType_TimeCode, &kEntry);
}
PV_TWIN(KivTimeCodeFormatDescriptionRegisterOnce, KivTimeCodeFormatDescriptionRegister)

PVStatus PVTimeCodeFormatDescriptionCreate(BRAllocatorRef allocator, PVFourCharCode timeCodeFormatType,
                                           PVTime frameDuration, uint32_t frameQuanta, uint32_t flags,
                                           BRDictionaryRef extensions,
                                           PVFormatDescriptionRef* descriptionOut) {
  if (descriptionOut) *descriptionOut = nullptr;
  if (!descriptionOut || !pv::isTimeCodeFormatType(timeCodeFormatType) || !PVTimeIsValid(frameDuration) ||
      frameQuanta == 0)
    return pv::signalError(kPVFormatDescriptionError_InvalidParameter);
  if (PVStatus status = KivTimeCodeFormatDescriptionRegister()) return status;
  br::Ref<PVFormatDescription> made;
  if (PVStatus status = KivDerivedFormatDescriptionCreate(allocator, kPVMediaType_TimeCode,
                                                          timeCodeFormatType, extensions, made.out()))
    return status;
  if (!hasOwnStorage(made.get())) return pv::signalError(kPVFormatDescriptionError_InvalidParameter);
  storageOf(made.get()) = {frameDuration, frameQuanta, flags};
  *descriptionOut = made.detach();
  return 0;
}

PVTime PVTimeCodeFormatDescriptionGetFrameDuration(PVFormatDescriptionRef description) {
  const TimeCodeStorage* storage = storageForGetter(description);
  return storage ? storage->frameDuration : kPVTimeInvalid;
}

uint32_t PVTimeCodeFormatDescriptionGetFrameQuanta(PVFormatDescriptionRef description) {
  const TimeCodeStorage* storage = storageForGetter(description);
  return storage ? storage->frameQuanta : 0;
}

uint32_t PVTimeCodeFormatDescriptionGetTimeCodeFlags(PVFormatDescriptionRef description) {
  const TimeCodeStorage* storage = storageForGetter(description);
  return storage ? storage->flags : 0;
}
