// Closed-caption records, read and written.
#include <bedra/data.h>
#include <bedra/runtime.h>
#include <kiv/sample_description.h>
#include <pevrin/closed_caption_description.h>

#include "formats/sample_description.hpp"
#include "runtime/four_char_code.hpp"
#include "runtime/twin.hpp"

using namespace pv::record;
using namespace pv::literals;

namespace {

bool isCaptionFormat(PVFourCharCode format) {
  return format == kPVClosedCaptionFormatType_CEA608 || format == kPVClosedCaptionFormatType_CEA608Parsed ||
         format == kPVClosedCaptionFormatType_CEA708;
}

// Every atom's first occurrence but for 'free'. An atom that does not fit, or that there is no memory for, is
// the end.
void collectAtoms(pv::ByteReader reader, AtomCollector& collector) {
  ExtensionAtom atom;
  while (reader.remaining() > 8 && nextAtom(reader, &atom) == AtomStep::kAtom)
    if (atom.type != "free"_4cc && !collector.addFirst(atom)) return;
}

}  // namespace

PVStatus PVClosedCaptionFormatDescriptionCreateFromBigEndianClosedCaptionDescriptionData(
    BRAllocatorRef allocator, const uint8_t* bytes, size_t size, BRStringRef,
    PVFormatDescriptionRef* descriptionOut) {
  if (descriptionOut) *descriptionOut = nullptr;
  if (!bytes || size < kHeaderBytes || !descriptionOut)
    return pv::signalError(kPVSampleDescriptionError_InvalidParameter);
  const uint32_t recordSize = kSize.read(bytes);
  if (recordSize < kHeaderBytes || recordSize > size)
    return pv::signalError(kPVSampleDescriptionError_MalformedRecord);
  const PVFourCharCode format = kDataFormat.read(bytes);
  if (!isCaptionFormat(format)) return pv::signalError(kPVSampleDescriptionError_InvalidParameter);
  AtomCollector collector(allocator);
  collectAtoms(pv::ByteReader(bytes + kHeaderBytes, recordSize - kHeaderBytes), collector);
  br::Ref<const BRDictionary> extensions;
  if (collector.atoms()) {
    const void* key = kPVFormatDescriptionExtension_SampleDescriptionExtensionAtoms;
    const void* value = collector.atoms();
    extensions = br::Ref<const BRDictionary>::adopt(BRDictionaryCreate(
        allocator, &key, &value, 1, &kBRTypeDictionaryKeyCallBacks, &kBRTypeDictionaryValueCallBacks));
    if (!extensions) return pv::signalError(kPVSampleDescriptionError_AllocationFailed);
  }
  return PVFormatDescriptionCreate(allocator, kPVMediaType_ClosedCaption, format, extensions.get(),
                                   descriptionOut);
}
PV_TWIN(KivClosedCaptionFormatDescriptionCreateFromBigEndianClosedCaptionDescriptionData,
        PVClosedCaptionFormatDescriptionCreateFromBigEndianClosedCaptionDescriptionData)

PVStatus PVClosedCaptionFormatDescriptionCreateFromBigEndianClosedCaptionDescriptionBlockBuffer(
    BRAllocatorRef allocator, PVBlockBufferRef record, BRStringRef flavor,
    PVFormatDescriptionRef* descriptionOut) {
  if (descriptionOut) *descriptionOut = nullptr;
  if (!descriptionOut) return pv::signalError(kPVSampleDescriptionError_InvalidParameter);
  ContiguousBytes bytes;
  if (PVStatus status = bytes.open(record)) return status;
  return PVClosedCaptionFormatDescriptionCreateFromBigEndianClosedCaptionDescriptionData(
      allocator, bytes.bytes(), bytes.size(), flavor, descriptionOut);
}
PV_TWIN(KivClosedCaptionFormatDescriptionCreateFromBigEndianClosedCaptionDescriptionBlockBuffer,
        PVClosedCaptionFormatDescriptionCreateFromBigEndianClosedCaptionDescriptionBlockBuffer)

PVStatus PVClosedCaptionFormatDescriptionCopyAsBigEndianClosedCaptionDescriptionBlockBuffer(
    BRAllocatorRef allocator, PVFormatDescriptionRef description, BRStringRef, PVBlockBufferRef* recordOut) {
  if (recordOut) *recordOut = nullptr;
  if (!recordOut || !description || BRGetTypeID(description) != PVFormatDescriptionGetTypeID() ||
      PVFormatDescriptionGetMediaType(description) != kPVMediaType_ClosedCaption)
    return pv::signalError(kPVSampleDescriptionError_InvalidParameter);
  return writeRecord(allocator, recordOut, [&](pv::ByteWriter& writer) {
    writer.u32(0).u32(PVFormatDescriptionGetMediaSubType(description)).zeros(6).u16(kUnsetDataReferenceIndex);
    writeAtoms(writer, extensionAtomsOf(description),
               [](PVFourCharCode, BRTypeRef value) { return BRGetTypeID(value) != BRDataGetTypeID(); });
  });
}
PV_TWIN(KivClosedCaptionFormatDescriptionCopyAsBigEndianClosedCaptionDescriptionBlockBuffer,
        PVClosedCaptionFormatDescriptionCopyAsBigEndianClosedCaptionDescriptionBlockBuffer)
