// Timecode records, read and written.
#include <bedra/data.h>
#include <bedra/number.h>
#include <bedra/string.h>
#include <kiv/sample_description.h>

#include "formats/sample_description.hpp"
#include "formats/timecode_format_description.hpp"
#include "runtime/four_char_code.hpp"
#include "runtime/twin.hpp"

using namespace pv::record;
using namespace pv::literals;

namespace {

// A subtype, and how a record says it.
struct Form {
  PVFourCharCode subType;
  PVFourCharCode dataFormat;
  bool counter;
};
constexpr Form kForms[] = {{kPVTimeCodeFormatType_TimeCode32, "tmcd"_4cc, false},
                           {kPVTimeCodeFormatType_Counter32, "tmcd"_4cc, true},
                           {kPVTimeCodeFormatType_TimeCode64, "tc64"_4cc, false},
                           {kPVTimeCodeFormatType_Counter64, "tc64"_4cc, true}};

// A source's name as a 'name' atom has it.
struct Name {
  const uint8_t* text = nullptr;
  size_t length = 0;
  int16_t language = 0;
  bool found = false;
};

// Looks for the first 'name' among the atoms.
PVStatus findName(pv::ByteReader atoms, Name* name) {
  ExtensionAtom atom;
  for (AtomStep step; (step = nextAtom(atoms, &atom)) != AtomStep::kEnd;) {
    if (step == AtomStep::kMalformed) return pv::signalError(kPVSampleDescriptionError_MalformedRecord);
    if (atom.type != "name"_4cc) continue;
    if (atom.length < 4) return 0;
    pv::ByteReader reader(atom.payload, atom.length);
    name->length = reader.u16();
    name->language = reader.s16();
    name->text = reader.take(name->length);
    if (!reader.ok()) return pv::signalError(kPVSampleDescriptionError_MalformedRecord);
    name->found = true;
    return 0;
  }
  return 0;
}

// {"TimeCode_SourceReferenceName_Value", "…_LangCode"}; null when memory runs out.
br::Ref<const BRDictionary> copySourceReference(BRAllocatorRef allocator, const Name& name) {
  const auto text = br::Ref<const BRString>::adopt(
      BRStringCreateWithBytes(allocator, name.text, name.length, kBRStringEncodingWesternRoman));
  const auto language =
      br::Ref<const BRNumber>::adopt(BRNumberCreate(allocator, kBRNumberTypeSInt16, &name.language));
  if (!text || !language) return nullptr;
  const void* keys[] = {kPVTimeCodeFormatDescriptionKey_Value, kPVTimeCodeFormatDescriptionKey_LangCode};
  const void* values[] = {text.get(), language.get()};
  return br::Ref<const BRDictionary>::adopt(BRDictionaryCreate(
      allocator, keys, values, 2, &kBRTypeDictionaryKeyCallBacks, &kBRTypeDictionaryValueCallBacks));
}

PVStatus copyExtensions(BRAllocatorRef allocator, const uint8_t* bytes, size_t size, const Name& name,
                        br::Ref<const BRDictionary>* out) {
  const auto verbatim = br::Ref<const BRData>::adopt(BRDataCreate(allocator, bytes, size));
  const auto source = name.found ? copySourceReference(allocator, name) : nullptr;
  if (!verbatim || (name.found && !source))
    return pv::signalError(kPVSampleDescriptionError_AllocationFailed);
  const void* keys[] = {kPVFormatDescriptionExtension_VerbatimSampleDescription,
                        kPVTimeCodeFormatDescriptionExtension_SourceReferenceName};
  const void* values[] = {verbatim.get(), source.get()};
  *out = br::Ref<const BRDictionary>::adopt(BRDictionaryCreate(allocator, keys, values, name.found ? 2 : 1,
                                                               &kBRTypeDictionaryKeyCallBacks,
                                                               &kBRTypeDictionaryValueCallBacks));
  return *out ? 0 : pv::signalError(kPVFormatDescriptionError_AllocationFailed);
}

// The name's bytes and language, when the extensions have both; an empty reference when not.
PVStatus copyNameBytes(BRAllocatorRef allocator, PVFormatDescriptionRef description,
                       br::Ref<BRData>* bytesOut, int16_t* languageOut) {
  BRTypeRef source =
      PVFormatDescriptionGetExtension(description, kPVTimeCodeFormatDescriptionExtension_SourceReferenceName);
  if (!source || BRGetTypeID(source) != BRDictionaryGetTypeID()) return 0;
  auto* dictionary = static_cast<BRDictionaryRef>(source);
  BRTypeRef text = BRDictionaryGetValue(dictionary, kPVTimeCodeFormatDescriptionKey_Value);
  BRTypeRef language = BRDictionaryGetValue(dictionary, kPVTimeCodeFormatDescriptionKey_LangCode);
  if (!text || BRGetTypeID(text) != BRStringGetTypeID() || !language ||
      BRGetTypeID(language) != BRNumberGetTypeID())
    return 0;
  auto* name = static_cast<BRStringRef>(text);
  // Western Roman has a byte for each character, and a terminator here
  const size_t length = BRStringGetLengthUTF16(name);
  if (length > UINT16_MAX) return pv::signalError(kPVSampleDescriptionError_InvalidParameter);
  auto bytes = br::Ref<BRData>::adopt(BRDataCreateMutable(allocator, length + 1));
  if (!bytes || !BRDataSetLength(bytes.get(), length + 1))
    return pv::signalError(kPVSampleDescriptionError_AllocationFailed);
  if (!BRStringGetCString(name, reinterpret_cast<char*>(BRDataGetMutableBytePtr(bytes.get())), length + 1,
                          kBRStringEncodingWesternRoman))
    return pv::signalError(kPVSampleDescriptionError_InvalidParameter);
  BRDataSetLength(bytes.get(), length);
  BRNumberGetValue(static_cast<BRNumberRef>(language), kBRNumberTypeSInt16, languageOut);
  *bytesOut = std::move(bytes);
  return 0;
}

void writeName(pv::ByteWriter& writer, BRDataRef bytes, int16_t language) {
  const size_t start = openAtom(writer, "name"_4cc);
  const size_t length = BRDataGetLength(bytes);
  writer.u16(static_cast<uint16_t>(length)).u16(static_cast<uint16_t>(language));
  writer.bytes(BRDataGetBytePtr(bytes), length);
  closeAtom(writer, start);
}

}  // namespace

PVStatus PVTimeCodeFormatDescriptionCreateFromBigEndianTimeCodeDescriptionData(
    BRAllocatorRef allocator, const uint8_t* bytes, size_t size, BRStringRef,
    PVFormatDescriptionRef* descriptionOut) {
  if (descriptionOut) *descriptionOut = nullptr;
  if (!bytes || size < timecode::kFixedBytes || !descriptionOut)
    return pv::signalError(kPVSampleDescriptionError_InvalidParameter);
  Name name;
  if (PVStatus status =
          findName(pv::ByteReader(bytes + timecode::kFixedBytes, size - timecode::kFixedBytes), &name))
    return status;
  br::Ref<const BRDictionary> extensions;
  if (PVStatus status = copyExtensions(allocator, bytes, size, name, &extensions)) return status;
  const uint32_t flags = timecode::kFlags.read(bytes);
  const bool counter = flags & kPVTimeCodeFlag_Counter;
  for (const Form& form : kForms)
    if (form.dataFormat == kDataFormat.read(bytes) && form.counter == counter)
      return PVTimeCodeFormatDescriptionCreate(
          allocator, form.subType,
          PVTimeMake(timecode::kFrameDuration.read(bytes),
                     static_cast<int32_t>(timecode::kTimeScale.read(bytes))),
          timecode::kNumberOfFrames.read(bytes), flags & ~uint32_t{kPVTimeCodeFlag_Counter}, extensions.get(),
          descriptionOut);
  return pv::signalError(kPVSampleDescriptionError_InvalidParameter);
}
PV_TWIN(KivTimeCodeFormatDescriptionCreateFromBigEndianTimeCodeDescriptionData,
        PVTimeCodeFormatDescriptionCreateFromBigEndianTimeCodeDescriptionData)

PVStatus PVTimeCodeFormatDescriptionCreateFromBigEndianTimeCodeDescriptionBlockBuffer(
    BRAllocatorRef allocator, PVBlockBufferRef record, BRStringRef flavor,
    PVFormatDescriptionRef* descriptionOut) {
  if (descriptionOut) *descriptionOut = nullptr;
  if (!descriptionOut) return pv::signalError(kPVSampleDescriptionError_InvalidParameter);
  ContiguousBytes bytes;
  if (PVStatus status = bytes.open(record)) return status;
  return PVTimeCodeFormatDescriptionCreateFromBigEndianTimeCodeDescriptionData(
      allocator, bytes.bytes(), bytes.size(), flavor, descriptionOut);
}
PV_TWIN(KivTimeCodeFormatDescriptionCreateFromBigEndianTimeCodeDescriptionBlockBuffer,
        PVTimeCodeFormatDescriptionCreateFromBigEndianTimeCodeDescriptionBlockBuffer)

PVStatus PVTimeCodeFormatDescriptionCopyAsBigEndianTimeCodeDescriptionBlockBuffer(
    BRAllocatorRef allocator, PVFormatDescriptionRef description, BRStringRef, PVBlockBufferRef* recordOut) {
  if (recordOut) *recordOut = nullptr;
  if (!recordOut || !description || BRGetTypeID(description) != PVFormatDescriptionGetTypeID() ||
      PVFormatDescriptionGetMediaType(description) != kPVMediaType_TimeCode ||
      !pv::isTimeCodeFormatType(PVFormatDescriptionGetMediaSubType(description)))
    return pv::signalError(kPVSampleDescriptionError_InvalidParameter);
  const PVTime duration = PVTimeCodeFormatDescriptionGetFrameDuration(description);
  const uint32_t quanta = PVTimeCodeFormatDescriptionGetFrameQuanta(description);
  if (!PVTimeIsValid(duration) || quanta == 0)
    return pv::signalError(kPVSampleDescriptionError_InvalidParameter);
  if (BRDataRef verbatim = verbatimOf(description, kPVFormatDescriptionExtension_VerbatimSampleDescription))
    return writeCopy(allocator, BRDataGetBytePtr(verbatim), BRDataGetLength(verbatim), recordOut);
  br::Ref<BRData> name;
  int16_t language = 0;
  if (PVStatus status = copyNameBytes(allocator, description, &name, &language)) return status;

  const Form* form = kForms;
  while (form->subType != PVFormatDescriptionGetMediaSubType(description)) ++form;
  const uint32_t flags = PVTimeCodeFormatDescriptionGetTimeCodeFlags(description);
  return writeRecord(allocator, recordOut, [&](pv::ByteWriter& writer) {
    writer.u32(0).u32(form->dataFormat).zeros(6).u16(kUnsetDataReferenceIndex);
    writer.u32(0).u32(form->counter ? flags | kPVTimeCodeFlag_Counter : flags);
    writer.u32(static_cast<uint32_t>(duration.timescale)).u32(static_cast<uint32_t>(duration.value));
    writer.u8(static_cast<uint8_t>(quanta)).u8(0);
    if (name) writeName(writer, name.get(), language);
  });
}
PV_TWIN(KivTimeCodeFormatDescriptionCopyAsBigEndianTimeCodeDescriptionBlockBuffer,
        PVTimeCodeFormatDescriptionCopyAsBigEndianTimeCodeDescriptionBlockBuffer)
