// Format descriptions as objects: creation, getters, equality, the text of a description.
//
// Representation: one block, the struct and behind it the derived storage, 16-byte aligned. The extensions
// are a block or more of their own, or shared.
#include <bedra/allocator.h>
#include <bedra/dictionary.h>
#include <bedra/property_list.h>
#include <bedra/string.h>

#include <bedra/literal.hpp>
#include <bedra/object.hpp>
#include <bedra/ref.hpp>

#include "buffers/format_description_registry.hpp"
#include "runtime/error.hpp"

using namespace br::literals;
using pv::format::Entry;

struct PVFormatDescription : BRObject {
  static constexpr const char* className = "PVFormatDescription";

  PVFormatDescription(PVMediaType type, PVFourCharCode subType, br::Ref<const BRDictionary> kept,
                      const Entry* its)
      : mediaType(type), mediaSubType(subType), extensions(std::move(kept)), createdWith(its) {}
  ~PVFormatDescription() {
    if (const Entry* its = entry(); its && its->finalize) its->finalize(this);
  }

  // An instance that was not made here, but by the runtime and the type ID alone, has none of its own.
  const Entry* entry() const {
    return createdWith ? createdWith : pv::format::findEntry(kKivMediaType_Generic);
  }
  PVFormatDescriptionRef ref() const { return const_cast<PVFormatDescriptionRef>(this); }

  bool equals(const PVFormatDescription& other) const { return equals(other, nullptr, nullptr); }
  bool equals(const PVFormatDescription& other, BRTypeRef keysToIgnore, BRTypeRef atomKeysToIgnore) const;
  BRHashCode hash() const { return (uint64_t{mediaType} << 32 | mediaSubType) * 0x9E3779B97F4A7C15u; }
  BRStringRef copyDescription() const;

  PVMediaType mediaType;
  PVFourCharCode mediaSubType;
  br::Ref<const BRDictionary> extensions;
  const Entry* createdWith;
};
static_assert(sizeof(PVFormatDescription) % 16 == 0, "derived storage is 16-byte aligned");

namespace {

struct Kind {
  PVMediaType mediaType;
  BRStringRef word;
};

constexpr Kind kKinds[] = {
    {kPVMediaType_Audio, "Audio"_br},
    {kPVMediaType_Video, "Video"_br},
    {kPVMediaType_Muxed, "Muxed"_br},
    {kPVMediaType_Text, "Text"_br},
    {kPVMediaType_ClosedCaption, "ClosedCaption"_br},
    {kPVMediaType_Subtitle, "Subtitle"_br},
    {kPVMediaType_Metadata, "Metadata"_br},
};

BRStringRef kindOf(PVMediaType mediaType) {
  for (const Kind& kind : kKinds)
    if (kind.mediaType == mediaType) return kind.word;
  return ""_br;
}

PVStatus freeze(BRAllocatorRef allocator, BRDictionaryRef extensions, br::Ref<const BRDictionary>& keptOut) {
  if (!extensions) return 0;
  if (BRGetTypeID(extensions) != BRDictionaryGetTypeID())
    return pv::signalError(kPVFormatDescriptionError_InvalidParameter);
  BRTypeRef copy = BRPropertyListCreateDeepCopy(allocator, extensions);
  if (!copy)
    return pv::signalError(BRPropertyListIsValid(extensions) ? kPVFormatDescriptionError_AllocationFailed
                                                             : kPVFormatDescriptionError_InvalidParameter);
  keptOut = br::Ref<const BRDictionary>::adopt(static_cast<BRDictionaryRef>(copy));
  return 0;
}

}  // namespace

bool PVFormatDescription::equals(const PVFormatDescription& other, BRTypeRef keysToIgnore,
                                 BRTypeRef atomKeysToIgnore) const {
  if (mediaType != other.mediaType || mediaSubType != other.mediaSubType) return false;
  if (mediaType == 0) return true;
  const Entry* its = entry();
  if (its != other.entry()) return false;
  return !its || its->equal(ref(), other.ref(), keysToIgnore, atomKeysToIgnore);
}

BRStringRef PVFormatDescription::copyDescription() const {
  const Entry* its = entry();
  auto specific = br::Ref<const BRString>::adopt(
      mediaType && its && its->copyDebugDescription ? its->copyDebugDescription(ref()) : nullptr);
  auto text = br::Ref<BRString>::adopt(BRStringCreateMutable(nullptr, 0));
  const bool complete = BRStringAppendFormat(
      text.get(),
      "<PV%@FormatDescription %p [%p]> {\n"
      "\tmediaType:'%c%c%c%c' \n"
      "\tmediaSubType:'%c%c%c%c' \n"
      "\tmediaSpecific: {\n%@ \n\t} \n"
      "\textensions: {%@}\n}",
      kindOf(mediaType), static_cast<const void*>(this), static_cast<const void*>(BRGetAllocator(this)),
      mediaType >> 24, mediaType >> 16 & 0xFF, mediaType >> 8 & 0xFF, mediaType & 0xFF, mediaSubType >> 24,
      mediaSubType >> 16 & 0xFF, mediaSubType >> 8 & 0xFF, mediaSubType & 0xFF, specific.get(),
      extensions.get());
  return complete ? text.detach() : nullptr;
}

BRTypeID PVFormatDescriptionGetTypeID(void) { return br::typeID<PVFormatDescription>(); }

PVStatus KivDerivedFormatDescriptionCreate(BRAllocatorRef allocator, PVMediaType mediaType,
                                           PVFourCharCode mediaSubType, BRDictionaryRef extensions,
                                           PVFormatDescriptionRef* descriptionOut) {
  if (descriptionOut) *descriptionOut = nullptr;
  if (!descriptionOut || mediaType == 0) return pv::signalError(kPVFormatDescriptionError_InvalidParameter);
  const Entry* entry;
  if (PVStatus status = pv::format::entryForCreation(mediaType, &entry)) return status;
  br::Ref<const BRDictionary> kept;
  if (PVStatus status = freeze(allocator, extensions, kept)) return status;
  *descriptionOut = br::create<PVFormatDescription>(allocator, entry->derivedStorageSize, mediaType,
                                                    mediaSubType, std::move(kept), entry);
  return *descriptionOut ? 0 : pv::signalError(kPVFormatDescriptionError_AllocationFailed);
}

PVStatus PVFormatDescriptionCreate(BRAllocatorRef allocator, PVMediaType mediaType,
                                   PVFourCharCode mediaSubType, BRDictionaryRef extensions,
                                   PVFormatDescriptionRef* descriptionOut) {
  if (descriptionOut) *descriptionOut = nullptr;
  if (!descriptionOut) return pv::signalError(kPVFormatDescriptionError_InvalidParameter);
  if (PVStatus status = KivGenericFormatDescriptionRegisterOnce()) return status;
  return KivDerivedFormatDescriptionCreate(allocator, mediaType, mediaSubType, extensions, descriptionOut);
}

void* KivDerivedFormatDescriptionGetDerivedStorage(PVFormatDescriptionRef description) {
  if (description) return description + 1;
  pv::signalError(kPVFormatDescriptionError_InvalidParameter);
  return nullptr;
}

size_t KivDerivedFormatDescriptionGetDerivedStorageSize(PVFormatDescriptionRef description) {
  const Entry* its = description ? description->createdWith : nullptr;
  return its ? its->derivedStorageSize : 0;
}

PVMediaType PVFormatDescriptionGetMediaType(PVFormatDescriptionRef description) {
  return description ? description->mediaType : 0;
}

PVFourCharCode PVFormatDescriptionGetMediaSubType(PVFormatDescriptionRef description) {
  return description ? description->mediaSubType : 0;
}

BRDictionaryRef PVFormatDescriptionGetExtensions(PVFormatDescriptionRef description) {
  return description ? description->extensions.get() : nullptr;
}

BRTypeRef PVFormatDescriptionGetExtension(PVFormatDescriptionRef description, BRStringRef key) {
  return description ? BRDictionaryGetValue(description->extensions.get(), key) : nullptr;
}

bool PVFormatDescriptionEqual(PVFormatDescriptionRef a, PVFormatDescriptionRef b) { return BREqual(a, b); }

bool PVFormatDescriptionEqualIgnoringExtensionKeys(PVFormatDescriptionRef a, PVFormatDescriptionRef b,
                                                   BRTypeRef extensionKeysToIgnore,
                                                   BRTypeRef sampleDescriptionExtensionAtomKeysToIgnore) {
  if (!a || !b) return a == b;
  return a->equals(*b, extensionKeysToIgnore, sampleDescriptionExtensionAtomKeysToIgnore);
}

PVFormatDescriptionRef KivFormatDescriptionRetain(PVFormatDescriptionRef description) {
  BRRetain(description);
  return description;
}

void KivFormatDescriptionRelease(PVFormatDescriptionRef description) { BRRelease(description); }
