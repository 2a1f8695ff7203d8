// Video format descriptions from configuration atoms and parameter sets, and back.
#include <bedra/array.h>
#include <bedra/dictionary.h>
#include <bedra/string.h>
#include <kiv/h264_bridge.h>
#include <kiv/hevc_bridge.h>
#include <kiv/video_format_description.h>

#include <bedra/literal.hpp>
#include <bedra/ref.hpp>

#include "formats/video_format_description.hpp"
#include "runtime/error.hpp"
#include "runtime/four_char_code.hpp"

using namespace br::literals;
using namespace pv::literals;

namespace {

using Dictionary = br::Ref<const BRDictionary>;
using Data = br::Ref<const BRData>;

Dictionary oneEntry(BRAllocatorRef allocator, const void* key, const void* value) {
  return Dictionary::adopt(BRDictionaryCreate(allocator, &key, &value, 1, &kBRTypeDictionaryKeyCallBacks,
                                              &kBRTypeDictionaryValueCallBacks));
}

// The extensions, if any, with these atoms; null when memory runs out.
Dictionary withAtoms(BRAllocatorRef allocator, BRDictionaryRef extensions, BRDictionaryRef atoms) {
  BRStringRef key = kPVFormatDescriptionExtension_SampleDescriptionExtensionAtoms;
  if (!extensions) return oneEntry(allocator, key, atoms);
  auto extended = br::Ref<BRDictionary>::adopt(BRDictionaryCreateMutableCopy(allocator, extensions));
  if (!extended || !BRDictionarySetValue(extended.get(), key, atoms)) return nullptr;
  return Dictionary::adopt(extended.detach());
}

Dictionary extensionsWithAtom(BRAllocatorRef allocator, BRDictionaryRef extraExtensions,
                              PVFourCharCode atomType, BRDataRef payload) {
  const uint8_t characters[] = {static_cast<uint8_t>(atomType >> 24), static_cast<uint8_t>(atomType >> 16),
                                static_cast<uint8_t>(atomType >> 8), static_cast<uint8_t>(atomType)};
  // an encoding in which every byte is a character
  auto key = br::Ref<const BRString>::adopt(
      BRStringCreateWithBytes(allocator, characters, sizeof characters, kBRStringEncodingWesternRoman));
  if (!key || !payload) return nullptr;
  Dictionary atoms = oneEntry(allocator, key.get(), payload);
  return atoms ? withAtoms(allocator, extraExtensions, atoms.get()) : nullptr;
}

PVStatus createWithAtom(BRAllocatorRef allocator, PVVideoCodecType codecType, PVVideoDimensions size,
                        PVFourCharCode atomType, BRDataRef payload, BRDictionaryRef extraExtensions,
                        PVFormatDescriptionRef* descriptionOut) {
  Dictionary extensions = extensionsWithAtom(allocator, extraExtensions, atomType, payload);
  if (!extensions) return pv::signalError(kKivBridgeError_AllocationFailed);
  if (pv::video::hasParameterSets(codecType)) {
    BRDictionaryRef extended = extensions.detach();
    const PVStatus status = KivBridge_MakeFallbackExtensionsFromVUI(allocator, codecType, &extended);
    extensions = Dictionary::adopt(extended);
    if (status) return status;
  }
  return PVVideoFormatDescriptionCreate(allocator, codecType, size.width, size.height, extensions.get(),
                                        descriptionOut);
}

// What differs between the codecs.
struct Codec {
  PVVideoCodecType type;
  PVFourCharCode atomType;
  BRStringRef atomKey;
  decltype(&KivH264Bridge_CreateAVCCFromH264ParameterSets) createRecord;
  decltype(&KivH264Bridge_GetH264ParameterSetAtIndex) getParameterSet;
};
constexpr Codec kH264{kPVVideoCodecType_H264, "avcC"_4cc, "avcC"_br,
                      KivH264Bridge_CreateAVCCFromH264ParameterSets,
                      KivH264Bridge_GetH264ParameterSetAtIndex};
constexpr Codec kHEVC{kPVVideoCodecType_HEVC, "hvcC"_4cc, "hvcC"_br,
                      KivHEVCBridge_CreateHVCCFromHEVCParameterSets,
                      KivHEVCBridge_GetHEVCParameterSetAtIndex};

PVStatus createFromParameterSets(const Codec& codec, BRAllocatorRef allocator, size_t count,
                                 const uint8_t* const* pointers, const size_t* sizes, int32_t headerLength,
                                 PVFormatDescriptionRef* descriptionOut) {
  if (!descriptionOut) return pv::signalError(kPVFormatDescriptionError_InvalidParameter);
  *descriptionOut = nullptr;
  PVVideoDimensions size{0, 0};
  Data record;
  if (PVStatus status = codec.createRecord(allocator, count, pointers, sizes, headerLength, &size.width,
                                           &size.height, record.out()))
    return status;
  if (size.width == 0 || size.height == 0) return pv::signalError(kPVFormatDescriptionError_InvalidParameter);
  return createWithAtom(allocator, codec.type, size, codec.atomType, record.get(), nullptr, descriptionOut);
}

PVStatus getParameterSet(const Codec& codec, PVFormatDescriptionRef description, size_t index,
                         const uint8_t** pointerOut, size_t* sizeOut, size_t* countOut,
                         int32_t* headerLengthOut) {
  BRDataRef record = nullptr;
  if (BRGetTypeID(description) == PVFormatDescriptionGetTypeID())
    record = pv::video::firstAtom(PVFormatDescriptionGetExtensions(description), codec.atomKey);
  if (record) return codec.getParameterSet(record, index, pointerOut, sizeOut, countOut, headerLengthOut);
  if (pointerOut) *pointerOut = nullptr;
  if (sizeOut) *sizeOut = 0;
  if (countOut) *countOut = 0;
  if (headerLengthOut) *headerLengthOut = 0;
  return pv::signalError(kPVFormatDescriptionError_InvalidParameter);
}

}  // namespace

BRDataRef pv::video::firstAtom(BRDictionaryRef extensions, BRStringRef atomKey) {
  BRTypeRef atoms =
      BRDictionaryGetValue(extensions, kPVFormatDescriptionExtension_SampleDescriptionExtensionAtoms);
  if (BRGetTypeID(atoms) != BRDictionaryGetTypeID()) return nullptr;
  BRTypeRef atom = BRDictionaryGetValue(static_cast<BRDictionaryRef>(atoms), atomKey);
  if (BRGetTypeID(atom) == BRArrayGetTypeID())
    atom = BRArrayGetValueAtIndex(static_cast<BRArrayRef>(atom), 0);
  return BRGetTypeID(atom) == BRDataGetTypeID() ? static_cast<BRDataRef>(atom) : nullptr;
}

PVStatus KivVideoFormatDescriptionCreateWithSampleDescriptionExtensionAtom(
    BRAllocatorRef allocator, PVVideoCodecType codecType, int32_t width, int32_t height,
    PVFourCharCode atomType, const void* atomBytes, size_t atomLength, BRDictionaryRef extraExtensions,
    PVVideoFormatDescriptionRef* descriptionOut) {
  if (descriptionOut) *descriptionOut = nullptr;
  if (!descriptionOut || codecType == 0) return pv::signalError(kPVFormatDescriptionError_InvalidParameter);
  if (atomType == 0 || !atomBytes || atomLength == 0)
    return PVVideoFormatDescriptionCreate(allocator, codecType, width, height, nullptr, descriptionOut);
  Data payload = Data::adopt(BRDataCreate(allocator, atomBytes, atomLength));
  return createWithAtom(allocator, codecType, {width, height}, atomType, payload.get(), extraExtensions,
                        descriptionOut);
}

PVStatus KivVideoFormatDescriptionCreateFromSPSAndPPS(BRAllocatorRef allocator, const uint8_t* sps,
                                                      size_t spsSize, const uint8_t* pps, size_t ppsSize,
                                                      int32_t NALUnitHeaderLength,
                                                      PVVideoFormatDescriptionRef* descriptionOut) {
  if (!descriptionOut) return pv::signalError(kPVFormatDescriptionError_InvalidParameter);
  *descriptionOut = nullptr;
  Data record;
  if (PVStatus status = KivH264Bridge_CreateAVCCFromSPSAndPPS(allocator, sps, spsSize, pps, ppsSize,
                                                              NALUnitHeaderLength, record.out()))
    return status;
  PVVideoDimensions size{0, 0};
  if (PVStatus status = KivH264Bridge_GetSPSWidthAndHeight(sps, spsSize, &size.width, &size.height))
    return status;
  return createWithAtom(allocator, kH264.type, size, kH264.atomType, record.get(), nullptr, descriptionOut);
}

PVStatus PVVideoFormatDescriptionCreateFromH264ParameterSets(BRAllocatorRef allocator,
                                                             size_t parameterSetCount,
                                                             const uint8_t* const* parameterSetPointers,
                                                             const size_t* parameterSetSizes,
                                                             int32_t NALUnitHeaderLength,
                                                             PVVideoFormatDescriptionRef* descriptionOut) {
  return createFromParameterSets(kH264, allocator, parameterSetCount, parameterSetPointers, parameterSetSizes,
                                 NALUnitHeaderLength, descriptionOut);
}

PVStatus KivVideoFormatDescriptionCreateFromHEVCParameterSets(BRAllocatorRef allocator,
                                                              size_t parameterSetCount,
                                                              const uint8_t* const* parameterSetPointers,
                                                              const size_t* parameterSetSizes,
                                                              int32_t NALUnitHeaderLength,
                                                              PVVideoFormatDescriptionRef* descriptionOut) {
  return createFromParameterSets(kHEVC, allocator, parameterSetCount, parameterSetPointers, parameterSetSizes,
                                 NALUnitHeaderLength, descriptionOut);
}

PVStatus PVVideoFormatDescriptionGetH264ParameterSetAtIndex(
    PVVideoFormatDescriptionRef description, size_t parameterSetIndex, const uint8_t** parameterSetPointerOut,
    size_t* parameterSetSizeOut, size_t* parameterSetCountOut, int32_t* NALUnitHeaderLengthOut) {
  return getParameterSet(kH264, description, parameterSetIndex, parameterSetPointerOut, parameterSetSizeOut,
                         parameterSetCountOut, NALUnitHeaderLengthOut);
}

PVStatus KivVideoFormatDescriptionGetHEVCParameterSetAtIndex(
    PVVideoFormatDescriptionRef description, size_t parameterSetIndex, const uint8_t** parameterSetPointerOut,
    size_t* parameterSetSizeOut, size_t* parameterSetCountOut, int32_t* NALUnitHeaderLengthOut) {
  return getParameterSet(kHEVC, description, parameterSetIndex, parameterSetPointerOut, parameterSetSizeOut,
                         parameterSetCountOut, NALUnitHeaderLengthOut);
}
