// Image records, read and written: the fixed fields, the colour table, and the atoms behind them.
#include <kiv/sample_description.h>
#include <kiv/video_format_description.h>
#include <pevrin/image_description.h>

#include <bedra/literal.hpp>
#include <cmath>

#include "formats/extensions.hpp"
#include "formats/image_atoms.hpp"
#include "formats/sample_description.hpp"
#include "formats/video_format_description.hpp"
#include "runtime/twin.hpp"

using namespace br::literals;
using namespace pv::record;
using pv::DictionaryBuilder;

extern "C" {
constinit const BRStringRef kPVFormatDescriptionExtension_HorizontalResolution = "HorizontalResolution"_br;
constinit const BRStringRef kPVFormatDescriptionExtension_VerticalResolution = "VerticalResolution"_br;
constinit const BRStringRef kPVFormatDescriptionExtension_DataSize = "DataSize"_br;
constinit const BRStringRef kPVFormatDescriptionExtension_FrameCount = "FrameCount"_br;
constinit const BRStringRef kPVFormatDescriptionExtension_ColorTable = "ColorTable"_br;
}

namespace {

constexpr uint32_t kUsualResolution = 72 << 16;
constexpr int16_t kNoColorTable = -1;
constexpr size_t kLongestName = image::kCompressorNameBytes - 1;

// --- Fixed fields. A field with its usual value says nothing and has no extension.

template <class Word>
void readNumber(const uint8_t* record, Field<Word> field, BRStringRef key, Word usual,
                DictionaryBuilder& extensions) {
  if (const Word value = field.read(record); value != usual) extensions.setInteger(key, value);
}
template <class Word>
void writeNumber(uint8_t* record, Field<Word> field, BRStringRef key, Word usual,
                 BRDictionaryRef extensions) {
  Word value = usual;
  if (extensions) pv::getInteger(extensions, key, &value);
  field.write(record, value);
}

void readResolution(const uint8_t* record, Field<uint32_t> field, BRStringRef key,
                    DictionaryBuilder& extensions) {
  if (const uint32_t value = field.read(record); value != kUsualResolution)
    extensions.setReal(key, value / 65536.0);
}
void writeResolution(uint8_t* record, Field<uint32_t> field, BRStringRef key, BRDictionaryRef extensions) {
  double value = kUsualResolution / 65536.0;
  if (BRNumberRef number = pv::asNumber(BRDictionaryGetValue(extensions, key)))
    BRNumberGetValue(number, kBRNumberTypeFloat64, &value);
  field.write(record, value >= 0 && value < 65536 ? static_cast<uint32_t>(std::rint(value * 65536))
                                                  : kUsualResolution);
}

// A Pascal string; in UTF-8, or from older files in Western Roman.
void readName(const uint8_t* record, DictionaryBuilder& extensions) {
  const uint8_t* field = record + image::kCompressorName;
  const size_t length = field[0] < kLongestName ? field[0] : kLongestName;
  if (length == 0) return;
  const auto name = br::Ref<const BRString>::adopt(
      BRStringCreateWithBytes(extensions.allocator(), field + 1, length, kBRStringEncodingUTF8));
  name ? extensions.set(kPVFormatDescriptionExtension_FormatName, name)
       : extensions.setText(kPVFormatDescriptionExtension_FormatName, field + 1, length);
}
void writeName(uint8_t* record, BRDictionaryRef extensions) {
  BRStringRef name = pv::asString(BRDictionaryGetValue(extensions, kPVFormatDescriptionExtension_FormatName));
  uint8_t* field = record + image::kCompressorName;
  char* text = reinterpret_cast<char*>(field + 1);
  size_t length = BRStringGetLengthBytes(name);
  if (length > kLongestName && BRStringGetLengthUTF16(name) <= kLongestName) {
    char roman[image::kCompressorNameBytes];
    if (BRStringGetCString(name, roman, sizeof roman, kBRStringEncodingWesternRoman)) {
      field[0] = static_cast<uint8_t>(BRStringGetLengthUTF16(name));
      std::memcpy(text, roman, field[0]);
      return;
    }
  }
  const char* utf8 = BRStringGetUTF8(name);
  if (length > kLongestName) {
    length = kLongestName;
    while (length > 0 && (utf8[length] & 0xC0) == 0x80) --length;
  }
  field[0] = static_cast<uint8_t>(length);
  std::memcpy(text, utf8, length);
}

void readFixedFields(const uint8_t* record, DictionaryBuilder& extensions) {
  readNumber<uint16_t>(record, image::kVersion, kPVFormatDescriptionExtension_Version, 0, extensions);
  readNumber<uint16_t>(record, image::kRevisionLevel, kPVFormatDescriptionExtension_RevisionLevel, 0,
                       extensions);
  if (image::kVendor.read(record) != 0)
    extensions.setText(kPVFormatDescriptionExtension_Vendor, record + image::kVendor.offset, 4);
  readNumber<uint32_t>(record, image::kTemporalQuality, kPVFormatDescriptionExtension_TemporalQuality, 0,
                       extensions);
  readNumber<uint32_t>(record, image::kSpatialQuality, kPVFormatDescriptionExtension_SpatialQuality, 0,
                       extensions);
  readResolution(record, image::kHorizontalResolution, kPVFormatDescriptionExtension_HorizontalResolution,
                 extensions);
  readResolution(record, image::kVerticalResolution, kPVFormatDescriptionExtension_VerticalResolution,
                 extensions);
  readNumber<uint32_t>(record, image::kDataSize, kPVFormatDescriptionExtension_DataSize, 0, extensions);
  readNumber<uint16_t>(record, image::kFrameCount, kPVFormatDescriptionExtension_FrameCount, 1, extensions);
  readName(record, extensions);
  readNumber<uint16_t>(record, image::kDepth, kPVFormatDescriptionExtension_Depth, 0, extensions);
}

void writeFixedFields(uint8_t* record, BRDictionaryRef extensions) {
  writeNumber<uint16_t>(record, image::kVersion, kPVFormatDescriptionExtension_Version, 0, extensions);
  writeNumber<uint16_t>(record, image::kRevisionLevel, kPVFormatDescriptionExtension_RevisionLevel, 0,
                        extensions);
  image::kVendor.write(
      record, codeOf(BRDictionaryGetValue(extensions, kPVFormatDescriptionExtension_Vendor)).value_or(0));
  writeNumber<uint32_t>(record, image::kTemporalQuality, kPVFormatDescriptionExtension_TemporalQuality, 0,
                        extensions);
  writeNumber<uint32_t>(record, image::kSpatialQuality, kPVFormatDescriptionExtension_SpatialQuality, 0,
                        extensions);
  writeResolution(record, image::kHorizontalResolution, kPVFormatDescriptionExtension_HorizontalResolution,
                  extensions);
  writeResolution(record, image::kVerticalResolution, kPVFormatDescriptionExtension_VerticalResolution,
                  extensions);
  writeNumber<uint32_t>(record, image::kDataSize, kPVFormatDescriptionExtension_DataSize, 0, extensions);
  writeNumber<uint16_t>(record, image::kFrameCount, kPVFormatDescriptionExtension_FrameCount, 1, extensions);
  writeName(record, extensions);
  writeNumber<uint16_t>(record, image::kDepth, kPVFormatDescriptionExtension_Depth, 0, extensions);
}

// --- Reading

BRStringRef verbatimKey(Flavor flavor) {
  return isISO(flavor) ? kPVFormatDescriptionExtension_VerbatimISOSampleEntry
                       : kPVFormatDescriptionExtension_VerbatimImageDescription;
}

// Reads what stands between the fixed fields and the atoms, and returns how much that is.
PVStatus readColorTable(const uint8_t* record, size_t length, DictionaryBuilder& extensions,
                        size_t* tableBytesOut) {
  *tableBytesOut = 0;
  const int16_t id = image::kColorTableID.read(record);
  if (id != 0) {
    readNumber(record, image::kColorTableID, kPVFormatDescriptionExtension_ColorTable, kNoColorTable,
               extensions);
    return 0;
  }
  const int64_t last = length >= image::kColorTableEntries ? image::kColorTableSize.read(record) : -1;
  const size_t end = image::kColorTableEntries + static_cast<size_t>(last + 1) * image::kColorTableEntryBytes;
  if (last < 0 || end > length) return pv::signalError(kPVSampleDescriptionError_MalformedRecord);
  *tableBytesOut = end - image::kFixedBytes;
  extensions.setData(kPVFormatDescriptionExtension_ColorTable, record + image::kFixedBytes, *tableBytesOut);
  return 0;
}

// Whether atoms of each subject come more than once.
using Subjects = std::array<bool, pv::video::kImageSubjects>;
Subjects findRepeated(pv::ByteReader reader) {
  Subjects seen{}, repeated{};
  for (ExtensionAtom atom; nextAtom(reader, &atom) == AtomStep::kAtom;)
    if (const size_t subject = pv::video::subjectOf(atom); subject < seen.size()) {
      repeated[subject] = seen[subject];
      seen[subject] = true;
    }
  return repeated;
}

// Of several atoms of a subject the extensions tell the first, and all are kept.
PVStatus readAtoms(pv::ByteReader reader, DictionaryBuilder& extensions) {
  AtomCollector kept(extensions.allocator());
  const Subjects repeated = findRepeated(reader);
  Subjects told{};
  ExtensionAtom atom;
  for (AtomStep step; (step = nextAtom(reader, &atom)) != AtomStep::kEnd;) {
    if (step == AtomStep::kMalformed) return pv::signalError(kPVSampleDescriptionError_MalformedRecord);
    const size_t subject = pv::video::subjectOf(atom);
    bool whole = false;
    if (subject < told.size() && !told[subject]) {
      told[subject] = true;
      whole = pv::video::readImageAtom(atom, extensions) && !repeated[subject];
    }
    if (!whole && !kept.add(atom)) extensions.fail();
  }
  if (kept.atoms())
    extensions.set(kPVFormatDescriptionExtension_SampleDescriptionExtensionAtoms, kept.atoms());
  return 0;
}

// --- Writing

// The record that the description remembers, as long as it still says the same size and codec.
BRDataRef usableVerbatim(PVFormatDescriptionRef description, Flavor flavor) {
  BRDataRef record = verbatimOf(description, verbatimKey(flavor));
  if (BRDataGetLength(record) < image::kFixedBytes) return nullptr;
  const uint8_t* bytes = BRDataGetBytePtr(record);
  const PVVideoDimensions size = PVVideoFormatDescriptionGetDimensions(description);
  const bool same = kDataFormat.read(bytes) == PVFormatDescriptionGetMediaSubType(description) &&
                    image::kWidth.read(bytes) == size.width && image::kHeight.read(bytes) == size.height;
  return same ? record : nullptr;
}

PVStatus writeRecordOf(BRAllocatorRef allocator, PVFormatDescriptionRef description, Flavor flavor,
                       PVBlockBufferRef* recordOut) {
  BRDictionaryRef extensions = PVFormatDescriptionGetExtensions(description);
  const PVVideoDimensions size = PVVideoFormatDescriptionGetDimensions(description);
  uint8_t fixed[image::kFixedBytes] = {};
  kDataFormat.write(fixed, PVFormatDescriptionGetMediaSubType(description));
  kDataReferenceIndex.write(fixed, 1);
  image::kWidth.write(fixed, static_cast<uint16_t>(size.width));
  image::kHeight.write(fixed, static_cast<uint16_t>(size.height));
  writeFixedFields(fixed, extensions);
  BRTypeRef colorTable = BRDictionaryGetValue(extensions, kPVFormatDescriptionExtension_ColorTable);
  BRDataRef inlineTable = pv::asData(colorTable);
  writeNumber(fixed, image::kColorTableID, kPVFormatDescriptionExtension_ColorTable, kNoColorTable,
              extensions);
  if (inlineTable) image::kColorTableID.write(fixed, 0);
  return writeRecord(allocator, recordOut, [&](pv::ByteWriter& writer) {
    writer.bytes(fixed, sizeof fixed);
    if (inlineTable) writer.bytes(BRDataGetBytePtr(inlineTable), BRDataGetLength(inlineTable));
    writeAtoms(writer, extensionAtomsOf(description));
    pv::video::writeImageAtoms(writer, extensions, flavor);
  });
}

}  // namespace

PVStatus PVVideoFormatDescriptionCreateFromBigEndianImageDescriptionData(
    BRAllocatorRef allocator, const uint8_t* bytes, size_t size, BRStringRef flavor,
    PVVideoFormatDescriptionRef* descriptionOut) {
  if (descriptionOut) *descriptionOut = nullptr;
  if (!bytes || !descriptionOut) return pv::signalError(kPVSampleDescriptionError_InvalidParameter);
  Flavor parsed;
  if (!parseFlavor(flavor, &parsed) || parsed == Flavor::kMovieV2)
    return pv::signalError(kPVSampleDescriptionError_Unsupported);
  const size_t length = size >= image::kFixedBytes ? kSize.read(bytes) : 0;
  if (length < image::kFixedBytes || length > size)
    return pv::signalError(kPVSampleDescriptionError_MalformedRecord);

  DictionaryBuilder builder(allocator);
  readFixedFields(bytes, builder);
  size_t tableBytes;
  if (PVStatus status = readColorTable(bytes, length, builder, &tableBytes)) return status;
  const size_t start = image::kFixedBytes + tableBytes;
  if (PVStatus status = readAtoms(pv::ByteReader(bytes + start, length - start), builder)) return status;
  builder.setData(verbatimKey(parsed), bytes, length);
  if (!builder.ok()) return pv::signalError(kPVSampleDescriptionError_AllocationFailed);

  const PVVideoCodecType codec = kDataFormat.read(bytes);
  auto extensions = br::Ref<const BRDictionary>::retain(builder.get());
  if (pv::video::hasParameterSets(codec)) {
    BRDictionaryRef filledIn = extensions.detach();
    const PVStatus status = KivBridge_MakeFallbackExtensionsFromVUI(allocator, codec, &filledIn);
    extensions = br::Ref<const BRDictionary>::adopt(filledIn);
    if (status) return status;
  }
  return PVVideoFormatDescriptionCreate(allocator, codec, image::kWidth.read(bytes),
                                        image::kHeight.read(bytes), extensions.get(), descriptionOut);
}
PV_TWIN(KivVideoFormatDescriptionCreateFromBigEndianImageDescriptionData,
        PVVideoFormatDescriptionCreateFromBigEndianImageDescriptionData)

PVStatus PVVideoFormatDescriptionCreateFromBigEndianImageDescriptionBlockBuffer(
    BRAllocatorRef allocator, PVBlockBufferRef record, BRStringRef flavor,
    PVVideoFormatDescriptionRef* descriptionOut) {
  if (descriptionOut) *descriptionOut = nullptr;
  if (!descriptionOut) return pv::signalError(kPVSampleDescriptionError_InvalidParameter);
  ContiguousBytes bytes;
  if (PVStatus status = bytes.open(record)) return status;
  return PVVideoFormatDescriptionCreateFromBigEndianImageDescriptionData(
      allocator, bytes.bytes(), bytes.size(), flavor, descriptionOut);
}
PV_TWIN(KivVideoFormatDescriptionCreateFromBigEndianImageDescriptionBlockBuffer,
        PVVideoFormatDescriptionCreateFromBigEndianImageDescriptionBlockBuffer)

PVStatus PVVideoFormatDescriptionCopyAsBigEndianImageDescriptionBlockBuffer(
    BRAllocatorRef allocator, PVVideoFormatDescriptionRef description, BRStringRef flavor,
    PVBlockBufferRef* recordOut) {
  if (recordOut) *recordOut = nullptr;
  if (!recordOut || PVFormatDescriptionGetMediaType(description) != kPVMediaType_Video)
    return pv::signalError(kPVSampleDescriptionError_InvalidParameter);
  Flavor parsed;
  const PVVideoDimensions size = PVVideoFormatDescriptionGetDimensions(description);
  if (!parseFlavor(flavor, &parsed) || parsed == Flavor::kMovieV2 || size.width < 0 ||
      size.width > UINT16_MAX || size.height < 0 || size.height > UINT16_MAX)
    return pv::signalError(kPVSampleDescriptionError_Unsupported);
  if (BRDataRef verbatim = usableVerbatim(description, parsed))
    return writeCopy(allocator, BRDataGetBytePtr(verbatim), BRDataGetLength(verbatim), recordOut);
  return writeRecordOf(allocator, description, parsed, recordOut);
}
PV_TWIN(KivVideoFormatDescriptionCopyAsBigEndianImageDescriptionBlockBuffer,
        PVVideoFormatDescriptionCopyAsBigEndianImageDescriptionBlockBuffer)
