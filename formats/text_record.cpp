// Text records, read and written. Each of the two layouts with fields is a list of (field, key) pairs, which
// serves both directions.
#include <kiv/sample_description.h>
#include <pevrin/text_description.h>
#include <pevrin/text_format_description.h>

#include <cstdlib>
#include <limits>

#include "formats/extensions.hpp"
#include "formats/sample_description.hpp"
#include "runtime/four_char_code.hpp"
#include "runtime/twin.hpp"

using namespace pv::record;
using namespace pv::literals;
using pv::DictionaryBuilder;

namespace {

using Keys = const BRStringRef* const*;
const BRStringRef* const kColorKeys[] = {
    &kPVTextFormatDescriptionColor_Red, &kPVTextFormatDescriptionColor_Green,
    &kPVTextFormatDescriptionColor_Blue, &kPVTextFormatDescriptionColor_Alpha};
const BRStringRef* const kBoxKeys[] = {&kPVTextFormatDescriptionRect_Top, &kPVTextFormatDescriptionRect_Left,
                                       &kPVTextFormatDescriptionRect_Bottom,
                                       &kPVTextFormatDescriptionRect_Right};

// From a record's fields to dictionaries.
class Reading {
 public:
  Reading(const uint8_t* record, DictionaryBuilder& into) : record_(record), into_(into) {}

  template <class Word>
  void number(Field<Word> field, BRStringRef key) const {
    into_.setInteger(key, field.read(record_));
  }
  // Fields of one dictionary; with three components of a colour, alpha is full.
  template <class Word, size_t count>
  void group(const std::array<Field<Word>, count>& fields, Keys keys, BRStringRef key) const {
    DictionaryBuilder group(into_.allocator());
    for (size_t i = 0; i < count; ++i) group.setInteger(*keys[i], fields[i].read(record_));
    if (count == 3) group.setInteger(*keys[3], std::numeric_limits<Word>::max());
    into_.setDictionary(key, group);
  }
  // What the action does with a dictionary of its own.
  template <class Action>
  void nested(BRStringRef key, const Action& action) const {
    DictionaryBuilder inner(into_.allocator());
    action(Reading(record_, inner));
    into_.setDictionary(key, inner);
  }

 private:
  const uint8_t* record_;
  DictionaryBuilder& into_;
};

// From dictionaries to a record's fields; what is missing stays 0.
class Writing {
 public:
  Writing(uint8_t* record, BRDictionaryRef from) : record_(record), from_(from) {}

  template <class Word>
  void number(Field<Word> field, BRStringRef key) const {
    Word value;
    if (from_ && pv::getInteger(from_, key, &value)) field.write(record_, value);
  }
  template <class Word, size_t count>
  void group(const std::array<Field<Word>, count>& fields, Keys keys, BRStringRef key) const {
    const Writing inner(record_, pv::asDictionary(BRDictionaryGetValue(from_, key)));
    for (size_t i = 0; i < count; ++i) inner.number(fields[i], *keys[i]);
  }
  template <class Action>
  void nested(BRStringRef key, const Action& action) const {
    action(Writing(record_, pv::asDictionary(BRDictionaryGetValue(from_, key))));
  }

 private:
  uint8_t* record_;
  BRDictionaryRef from_;
};

// The fields of 'text'.
template <class Direction>
void moveText(const Direction& move) {
  move.number(text::kDisplayFlags, kPVTextFormatDescriptionExtension_DisplayFlags);
  move.number(text::kJustification, kPVTextFormatDescriptionExtension_TextJustification);
  move.group(text::kBackgroundColor, kColorKeys, kPVTextFormatDescriptionExtension_BackgroundColor);
  move.group(text::kTextBox, kBoxKeys, kPVTextFormatDescriptionExtension_DefaultTextBox);
  move.nested(kPVTextFormatDescriptionExtension_DefaultStyle, [](const Direction& style) {
    style.number(text::kStartChar, kPVTextFormatDescriptionStyle_StartChar);
    style.number(text::kHeight, kPVTextFormatDescriptionStyle_Height);
    style.number(text::kAscent, kPVTextFormatDescriptionStyle_Ascent);
    style.number(text::kFont, kPVTextFormatDescriptionStyle_Font);
    style.number(text::kFontFace, kPVTextFormatDescriptionStyle_FontFace);
    style.number(text::kFontSize, kPVTextFormatDescriptionStyle_FontSize);
    style.group(text::kForegroundColor, kColorKeys, kPVTextFormatDescriptionStyle_ForegroundColor);
  });
}

// The fields of 'tx3g'.
template <class Direction>
void moveTimedText(const Direction& move) {
  move.number(timed_text::kDisplayFlags, kPVTextFormatDescriptionExtension_DisplayFlags);
  move.number(timed_text::kHorizontalJustification,
              kPVTextFormatDescriptionExtension_HorizontalJustification);
  move.number(timed_text::kVerticalJustification, kPVTextFormatDescriptionExtension_VerticalJustification);
  move.group(timed_text::kBackgroundColor, kColorKeys, kPVTextFormatDescriptionExtension_BackgroundColor);
  move.group(timed_text::kTextBox, kBoxKeys, kPVTextFormatDescriptionExtension_DefaultTextBox);
  move.nested(kPVTextFormatDescriptionExtension_DefaultStyle, [](const Direction& style) {
    style.number(timed_text::kStartChar, kPVTextFormatDescriptionStyle_StartChar);
    style.number(timed_text::kEndChar, kPVTextFormatDescriptionStyle_EndChar);
    style.number(timed_text::kFont, kPVTextFormatDescriptionStyle_Font);
    style.number(timed_text::kFontFace, kPVTextFormatDescriptionStyle_FontFace);
    style.number(timed_text::kFontSize, kPVTextFormatDescriptionStyle_FontSize);
    style.group(timed_text::kForegroundColor, kColorKeys, kPVTextFormatDescriptionStyle_ForegroundColor);
  });
}

bool isWebVTT(PVFourCharCode format) {
  return format == "wvtt"_4cc || format == "xvtt"_4cc || format == "svtt"_4cc;
}

// The bytes of a format's fields; 0 for a format that is not known.
size_t fixedBytesOf(PVFourCharCode format) {
  if (format == text::kFormat) return text::kFixedBytes;
  if (format == timed_text::kFormat) return timed_text::kFixedBytes;
  return isWebVTT(format) ? kHeaderBytes : 0;
}

// --- Reading

// "ftab" (3GPP TS 26.245 5.16): local font IDs and names.
void readFontTable(pv::ByteReader reader, DictionaryBuilder& extensions, bool* malformed) {
  DictionaryBuilder table(extensions.allocator());
  const uint16_t count = reader.u16();
  for (uint16_t i = 0; i < count && reader.ok(); ++i) {
    const int id = reader.u16();
    const size_t length = reader.u8();
    const uint8_t* name = reader.take(length);
    if (!reader.ok()) break;
    const auto key = br::Ref<const BRString>::adopt(BRStringCreateWithFormat(table.allocator(), "%d", id));
    auto text = br::Ref<const BRString>::adopt(
        BRStringCreateWithBytes(table.allocator(), name, length, kBRStringEncodingUTF8));
    if (!text)  // written in the days before UTF-8
      text = br::Ref<const BRString>::adopt(
          BRStringCreateWithBytes(table.allocator(), name, length, kBRStringEncodingWesternRoman));
    key ? table.set(key.get(), text) : table.fail();
  }
  *malformed = !reader.ok();
  extensions.setDictionary(kPVTextFormatDescriptionExtension_FontTable, table);
}

PVStatus readAtoms(pv::ByteReader reader, PVFourCharCode format, DictionaryBuilder& extensions) {
  AtomCollector others(extensions.allocator());
  ExtensionAtom atom;
  for (AtomStep step; (step = nextAtom(reader, &atom)) != AtomStep::kEnd;) {
    bool malformed = step == AtomStep::kMalformed;
    if (!malformed && atom.type == "ftab"_4cc && format == timed_text::kFormat)
      readFontTable(pv::ByteReader(atom.payload, atom.length), extensions, &malformed);
    else if (!malformed && !others.add(atom))
      extensions.fail();
    if (malformed) return pv::signalError(kPVSampleDescriptionError_MalformedRecord);
  }
  if (others.atoms())
    extensions.set(kPVFormatDescriptionExtension_SampleDescriptionExtensionAtoms, others.atoms());
  return 0;
}

BRStringRef verbatimKey(Flavor flavor) {
  return isISO(flavor) ? kPVFormatDescriptionExtension_VerbatimISOSampleEntry
                       : kPVFormatDescriptionExtension_VerbatimSampleDescription;
}

// The record has its fixed fields.
PVStatus readExtensions(const uint8_t* bytes, size_t length, DictionaryBuilder& extensions) {
  const PVFourCharCode format = kDataFormat.read(bytes);
  pv::ByteReader rest(bytes + fixedBytesOf(format), length - fixedBytesOf(format));
  const Reading reading(bytes, extensions);
  if (format == timed_text::kFormat) moveTimedText(reading);
  if (format == text::kFormat) {
    moveText(reading);
    // a name is missing altogether in some files
    const size_t nameLength = rest.remaining() ? rest.u8() : 0;
    const uint8_t* name = rest.take(nameLength);
    if (!name) return pv::signalError(kPVSampleDescriptionError_MalformedRecord);
    extensions.setText(kPVTextFormatDescriptionExtension_DefaultFontName, name, nameLength);
  }
  return readAtoms(rest, format, extensions);
}

// --- Writing

// Font IDs and names of a font table, in its order.
template <class Action>
void forEachFont(BRDictionaryRef table, const Action& action) {
  const auto visit = [](const void* key, const void* value, void* info) {
    BRStringRef id = pv::asString(key), name = pv::asString(value);
    if (!id || !name) return;
    const long number = std::strtol(BRStringGetUTF8(id), nullptr, 10);
    (*static_cast<const Action*>(info))(static_cast<uint16_t>(number), name);
  };
  if (table) BRDictionaryApply(table, visit, const_cast<Action*>(&action));
}

void writeFontTable(pv::ByteWriter& writer, BRDictionaryRef table) {
  uint16_t count = 0;
  forEachFont(table, [&](uint16_t, BRStringRef) { ++count; });
  const size_t start = openAtom(writer, "ftab"_4cc);
  writer.u16(count);
  forEachFont(table, [&](uint16_t id, BRStringRef name) {
    const size_t length = BRStringGetLengthBytes(name);
    writer.u16(id).u8(static_cast<uint8_t>(length)).bytes(BRStringGetUTF8(name), length);
  });
  closeAtom(writer, start);
}

// What a record holds besides fields and atoms: a font name, a font table.
struct Fonts {
  char name[256] = {};  // Western Roman, a byte for each character
  size_t nameLength = 0;
  BRDictionaryRef table = nullptr;

  // False when a name has no place in the record.
  bool take(PVFormatDescriptionRef description) {
    BRStringRef defaultName = pv::asString(
        PVFormatDescriptionGetExtension(description, kPVTextFormatDescriptionExtension_DefaultFontName));
    if (PVFormatDescriptionGetMediaSubType(description) == text::kFormat) {
      nameLength = BRStringGetLengthUTF16(defaultName);
      return !defaultName ||
             BRStringGetCString(defaultName, name, sizeof name, kBRStringEncodingWesternRoman);
    }
    table = pv::asDictionary(
        PVFormatDescriptionGetExtension(description, kPVTextFormatDescriptionExtension_FontTable));
    bool fit = BRDictionaryGetCount(table) <= UINT16_MAX;
    forEachFont(table,
                [&](uint16_t, BRStringRef font) { fit = fit && BRStringGetLengthBytes(font) <= UINT8_MAX; });
    return fit;
  }
};

PVStatus writeRecordOf(BRAllocatorRef allocator, PVFormatDescriptionRef description, const Fonts& fonts,
                       PVBlockBufferRef* recordOut) {
  const PVFourCharCode format = PVFormatDescriptionGetMediaSubType(description);
  uint8_t fixed[text::kFixedBytes] = {};
  kDataFormat.write(fixed, format);
  kDataReferenceIndex.write(fixed, 1);
  const Writing writing(fixed, PVFormatDescriptionGetExtensions(description));
  if (format == text::kFormat) moveText(writing);
  if (format == timed_text::kFormat) moveTimedText(writing);
  return writeRecord(allocator, recordOut, [&](pv::ByteWriter& writer) {
    writer.bytes(fixed, fixedBytesOf(format));
    if (format == text::kFormat) {
      writer.u8(static_cast<uint8_t>(fonts.nameLength)).bytes(fonts.name, fonts.nameLength);
    }
    if (format == timed_text::kFormat && fonts.table) writeFontTable(writer, fonts.table);
    writeAtoms(writer, extensionAtomsOf(description));
  });
}

}  // namespace

PVStatus PVTextFormatDescriptionCreateFromBigEndianTextDescriptionData(
    BRAllocatorRef allocator, const uint8_t* bytes, size_t size, BRStringRef flavor,
    PVFormatDescriptionRef* descriptionOut) {
  if (descriptionOut) *descriptionOut = nullptr;
  if (!bytes || size < kHeaderBytes || !descriptionOut)
    return pv::signalError(kPVSampleDescriptionError_InvalidParameter);
  Flavor parsed;
  const PVFourCharCode format = kDataFormat.read(bytes);
  if (!parseFlavor(flavor, &parsed) || fixedBytesOf(format) == 0)
    return pv::signalError(kPVSampleDescriptionError_Unsupported);
  const uint32_t length = kSize.read(bytes);
  if (length < fixedBytesOf(format) || length > size)
    return pv::signalError(kPVSampleDescriptionError_MalformedRecord);
  DictionaryBuilder extensions(allocator);
  if (PVStatus status = readExtensions(bytes, length, extensions)) return status;
  extensions.setData(verbatimKey(parsed), bytes, length);
  if (!extensions.ok()) return pv::signalError(kPVSampleDescriptionError_AllocationFailed);
  return PVFormatDescriptionCreate(allocator,
                                   format == text::kFormat ? kPVMediaType_Text : kPVMediaType_Subtitle,
                                   format, extensions.get(), descriptionOut);
}
PV_TWIN(KivTextFormatDescriptionCreateFromBigEndianTextDescriptionData,
        PVTextFormatDescriptionCreateFromBigEndianTextDescriptionData)

PVStatus PVTextFormatDescriptionCreateFromBigEndianTextDescriptionBlockBuffer(
    BRAllocatorRef allocator, PVBlockBufferRef record, BRStringRef flavor,
    PVFormatDescriptionRef* descriptionOut) {
  if (descriptionOut) *descriptionOut = nullptr;
  if (!descriptionOut) return pv::signalError(kPVSampleDescriptionError_InvalidParameter);
  ContiguousBytes bytes;
  if (PVStatus status = bytes.open(record)) return status;
  return PVTextFormatDescriptionCreateFromBigEndianTextDescriptionData(allocator, bytes.bytes(), bytes.size(),
                                                                       flavor, descriptionOut);
}
PV_TWIN(KivTextFormatDescriptionCreateFromBigEndianTextDescriptionBlockBuffer,
        PVTextFormatDescriptionCreateFromBigEndianTextDescriptionBlockBuffer)

PVStatus PVTextFormatDescriptionCopyAsBigEndianTextDescriptionBlockBuffer(BRAllocatorRef allocator,
                                                                          PVFormatDescriptionRef description,
                                                                          BRStringRef flavor,
                                                                          PVBlockBufferRef* recordOut) {
  if (recordOut) *recordOut = nullptr;
  const PVMediaType type = PVFormatDescriptionGetMediaType(description);
  if (!recordOut || (type != kPVMediaType_Text && type != kPVMediaType_Subtitle))
    return pv::signalError(kPVSampleDescriptionError_InvalidParameter);
  Flavor parsed;
  Fonts fonts;
  if (!parseFlavor(flavor, &parsed) || fixedBytesOf(PVFormatDescriptionGetMediaSubType(description)) == 0)
    return pv::signalError(kPVSampleDescriptionError_Unsupported);
  if (BRDataRef verbatim = verbatimOf(description, verbatimKey(parsed)))
    return writeCopy(allocator, BRDataGetBytePtr(verbatim), BRDataGetLength(verbatim), recordOut);
  if (!fonts.take(description)) return pv::signalError(kPVSampleDescriptionError_Unsupported);
  return writeRecordOf(allocator, description, fonts, recordOut);
}
PV_TWIN(KivTextFormatDescriptionCopyAsBigEndianTextDescriptionBlockBuffer,
        PVTextFormatDescriptionCopyAsBigEndianTextDescriptionBlockBuffer)
