// Audio format descriptions: the entry of their media type, creation, and what they were created with.
#include "formats/audio_format_description.hpp"

#include <bedra/allocator.h>

#include <bedra/ref.hpp>
#include <cstring>
#include <new>

#include "runtime/error.hpp"

using pv::audio::Storage;

namespace {

// Of a description whose entry is the one below.
Storage& ownStorageOf(PVFormatDescriptionRef description) {
  return *static_cast<Storage*>(KivDerivedFormatDescriptionGetDerivedStorage(description));
}

// Not when somebody else registered the media type first, with less.
bool hasOwnStorage(PVFormatDescriptionRef description) {
  return PVFormatDescriptionGetMediaType(description) == kPVMediaType_Audio &&
         KivDerivedFormatDescriptionGetDerivedStorageSize(description) >= sizeof(Storage);
}

void finalize(PVFormatDescriptionRef description) {
  const Storage& storage = ownStorageOf(description);
  const BRAllocatorRef allocator = BRGetAllocator(description);
  BRAllocatorDeallocate(allocator, storage.formatList.load(std::memory_order_acquire));
  BRAllocatorDeallocate(allocator, const_cast<uint8_t*>(storage.cookie.data()));
  BRAllocatorDeallocate(allocator, const_cast<AudioChannelLayout*>(storage.layout.header));
}

constexpr KivDerivedFormatDescriptionCallbacks kEntry{
    .version = 0,
    .derivedStorageSize = sizeof(Storage),
    .equal =
        [](PVFormatDescriptionRef a, PVFormatDescriptionRef b, BRTypeRef, BRTypeRef) {
          return PVAudioFormatDescriptionEqual(a, b, PVAudioFormatDescriptionMask_All, nullptr);
        },
    .copyDebugDescription = pv::audio::copyDebugDescription,
    .finalize = finalize};

// A copy of the bytes; null when there are none, or memory runs out: then the status is not 0.
PVStatus copyBytes(BRAllocatorRef allocator, const void* bytes, size_t size, void** copyOut) {
  *copyOut = nullptr;
  if (!bytes || size == 0) return 0;
  *copyOut = BRAllocatorAllocate(allocator, size);
  if (!*copyOut) return pv::signalError(kPVFormatDescriptionError_AllocationFailed);
  std::memcpy(*copyOut, bytes, size);
  return 0;
}

}  // namespace

PVStatus KivAudioFormatDescriptionRegister(void) {
  return KivDerivedFormatDescriptionRegister(kPVMediaType_Audio, &kEntry);
}

Storage* pv::audio::storageOf(PVFormatDescriptionRef description, const char* file, int32_t line,
                              const char* function) {
  if (hasOwnStorage(description)) return &ownStorageOf(description);
  KivSignalErrorAt(kPVFormatDescriptionError_InvalidParameter, file, line, function);
  return nullptr;
}

PVStatus PVAudioFormatDescriptionCreate(BRAllocatorRef allocator,
                                        const AudioStreamBasicDescription* streamBasicDescription,
                                        size_t layoutSize, const AudioChannelLayout* layout,
                                        size_t magicCookieSize, const void* magicCookie,
                                        BRDictionaryRef extensions,
                                        PVAudioFormatDescriptionRef* descriptionOut) {
  if (descriptionOut) *descriptionOut = nullptr;
  if (!streamBasicDescription || !descriptionOut || streamBasicDescription->sampleRate == 0)
    return pv::signalError(kPVFormatDescriptionError_InvalidParameter);
  if (PVStatus status = KivAudioFormatDescriptionRegister()) return status;
  br::Ref<PVFormatDescription> made;
  if (PVStatus status = KivDerivedFormatDescriptionCreate(
          allocator, kPVMediaType_Audio, streamBasicDescription->formatID, extensions, made.out()))
    return status;
  if (!hasOwnStorage(made.get())) return pv::signalError(kPVFormatDescriptionError_InvalidParameter);
  Storage& storage = *new (&ownStorageOf(made.get())) Storage{};
  storage.description = *streamBasicDescription;
  void* copy;
  if (PVStatus status = copyBytes(allocator, layout, layoutSize, &copy)) return status;
  if (copy) storage.layout = {static_cast<AudioChannelLayout*>(copy), layoutSize};
  if (PVStatus status = copyBytes(allocator, magicCookie, magicCookieSize, &copy)) return status;
  if (copy) storage.cookie = {static_cast<uint8_t*>(copy), magicCookieSize};
  *descriptionOut = made.detach();
  return 0;
}

const AudioStreamBasicDescription* PVAudioFormatDescriptionGetStreamBasicDescription(
    PVAudioFormatDescriptionRef description) {
  const Storage* storage = pv::audio::storageOf(description);
  return storage ? &storage->description : nullptr;
}

const void* PVAudioFormatDescriptionGetMagicCookie(PVAudioFormatDescriptionRef description, size_t* sizeOut) {
  const Storage* storage = pv::audio::storageOf(description);
  if (sizeOut) *sizeOut = storage ? storage->cookie.size() : 0;
  return storage ? storage->cookie.data() : nullptr;
}

const AudioChannelLayout* PVAudioFormatDescriptionGetChannelLayout(PVAudioFormatDescriptionRef description,
                                                                   size_t* sizeOut) {
  const Storage* storage = pv::audio::storageOf(description);
  if (sizeOut) *sizeOut = storage ? storage->layout.sizeBytes : 0;
  return storage ? storage->layout.header : nullptr;
}

uint32_t PVAudioFormatDescriptionGetChannelCount(PVAudioFormatDescriptionRef description) {
  const Storage* storage = pv::audio::storageOf(description);
  return storage ? storage->description.channelsPerFrame : 0;
}
