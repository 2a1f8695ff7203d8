// Each atom has a reader and a writer side by side. What a reader took from an atom its writer gives back
// byte for byte; where it cannot, the reader says so.
#include "formats/image_atoms.hpp"

#include <bedra/array.h>
#include <pevrin/video_format_description.h>

#include <cmath>
#include <iterator>
#include <numeric>

#include "formats/code_points.hpp"
#include "runtime/four_char_code.hpp"

using namespace pv::literals;

namespace pv::video {

namespace {

using record::closeAtom;
using record::ExtensionAtom;
using record::Flavor;
using record::openAtom;

BRTypeRef get(BRDictionaryRef dictionary, BRStringRef key) {
  return dictionary ? BRDictionaryGetValue(dictionary, key) : nullptr;
}

bool getReal(BRDictionaryRef dictionary, BRStringRef key, double* out) {
  BRNumberRef number = asNumber(get(dictionary, key));
  return number && (BRNumberGetValue(number, kBRNumberTypeFloat64, out), true);
}

struct Fraction {
  int32_t numerator;
  int32_t denominator;
};

// Exact for the binary fractions of 16 bits, which every half and quarter pixel is.
Fraction fractionOf(double value) {
  constexpr int kBits = 16;
  int32_t denominator = 1;
  for (int bit = 0; bit < kBits && value != std::rint(value) && std::abs(value) < INT32_MAX / 2; ++bit) {
    value *= 2;
    denominator *= 2;
  }
  if (!(std::abs(value) <= INT32_MAX)) return {0, 1};
  return {static_cast<int32_t>(std::rint(value)), denominator};
}

// --- 'colr' (ISO/IEC 14496-12 12.1.5)

bool readColorCodes(ByteReader& reader, bool hasRange, DictionaryBuilder& extensions) {
  struct Part {
    BRStringRef key;
    std::span<const CodePoint> table;
  };
  const Part parts[] = {{kPVFormatDescriptionExtension_ColorPrimaries, colorPrimaries()},
                        {kPVFormatDescriptionExtension_TransferFunction, transferFunctions()},
                        {kPVFormatDescriptionExtension_YCbCrMatrix, matrices()}};
  bool whole = true, some = false;
  for (const Part& part : parts) {
    const uint16_t code = reader.u16();
    BRStringRef name = reader.ok() ? nameOf(part.table, code) : nullptr;
    if (name) extensions.set(part.key, name);
    some = some || name;
    whole = whole && (name ? codeOf(part.table, name) == code : code == kUnspecified);
  }
  const uint8_t range = hasRange ? reader.u8() : 0;
  const bool fullRange = reader.ok() && range & 0x80;
  if (fullRange) extensions.setBoolean(kPVFormatDescriptionExtension_FullRangeVideo, true);
  return whole && (some || fullRange) && (range & 0x7F) == 0 && reader.ok() && reader.atEnd();
}

bool readColor(ByteReader reader, DictionaryBuilder& extensions) {
  const PVFourCharCode type = reader.u32();
  if (type == "nclc"_4cc || type == "nclx"_4cc) return readColorCodes(reader, type == "nclx"_4cc, extensions);
  if (type != "prof"_4cc && type != "rICC"_4cc) return false;
  const size_t length = reader.remaining();
  extensions.setData(kPVFormatDescriptionExtension_ICCProfile, reader.take(length), length);
  return type == "prof"_4cc;
}

// Whether an atom of that colour type is among the extension atoms.
bool keepsColor(BRDictionaryRef extensions, PVFourCharCode type, PVFourCharCode alternative) {
  BRDictionaryRef atoms =
      asDictionary(get(extensions, kPVFormatDescriptionExtension_SampleDescriptionExtensionAtoms));
  const auto key = record::copyCodeString(nullptr, "colr"_4cc);
  BRTypeRef kept = get(atoms, key.get());
  const auto isOne = [&](BRTypeRef payload) {
    BRDataRef data = asData(payload);
    if (!data || BRDataGetLength(data) < 4) return false;
    const uint32_t found = loadBigEndian<uint32_t>(BRDataGetBytePtr(data));
    return found == type || found == alternative;
  };
  if (!kept || BRGetTypeID(kept) != BRArrayGetTypeID()) return isOne(kept);
  auto* array = static_cast<BRArrayRef>(kept);
  for (size_t i = 0; i < BRArrayGetCount(array); ++i)
    if (isOne(BRArrayGetValueAtIndex(array, i))) return true;
  return false;
}

void writeColor(ByteWriter& writer, BRDictionaryRef extensions, Flavor flavor) {
  const int codes[] = {
      codeOf(colorPrimaries(), get(extensions, kPVFormatDescriptionExtension_ColorPrimaries)),
      codeOf(transferFunctions(), get(extensions, kPVFormatDescriptionExtension_TransferFunction)),
      codeOf(matrices(), get(extensions, kPVFormatDescriptionExtension_YCbCrMatrix))};
  const bool fullRange = get(extensions, kPVFormatDescriptionExtension_FullRangeVideo) == kBRBooleanTrue;
  const bool some = codes[0] >= 0 || codes[1] >= 0 || codes[2] >= 0 || fullRange;
  if (some && !keepsColor(extensions, "nclc"_4cc, "nclx"_4cc)) {
    const bool ranged = record::isISO(flavor) || fullRange;
    const size_t start = openAtom(writer, "colr"_4cc);
    writer.u32(ranged ? "nclx"_4cc : "nclc"_4cc);
    for (const int code : codes) writer.u16(code < 0 ? kUnspecified : static_cast<uint16_t>(code));
    if (ranged) writer.u8(fullRange ? 0x80 : 0);
    closeAtom(writer, start);
  }
  BRDataRef profile = asData(get(extensions, kPVFormatDescriptionExtension_ICCProfile));
  if (profile && !keepsColor(extensions, "prof"_4cc, "rICC"_4cc)) {
    const size_t start = openAtom(writer, "colr"_4cc);
    writer.u32("prof"_4cc).bytes(BRDataGetBytePtr(profile), BRDataGetLength(profile));
    closeAtom(writer, start);
  }
}

// --- 'pasp' (ISO/IEC 14496-12 12.1.4)

bool readPixelAspectRatio(ByteReader reader, DictionaryBuilder& extensions) {
  const uint32_t horizontal = reader.u32(), vertical = reader.u32();
  if (!reader.ok() || horizontal == 0 || vertical == 0) return false;
  DictionaryBuilder ratio(extensions.allocator());
  ratio.setInteger(kPVFormatDescriptionKey_PixelAspectRatioHorizontalSpacing, horizontal);
  ratio.setInteger(kPVFormatDescriptionKey_PixelAspectRatioVerticalSpacing, vertical);
  extensions.setDictionary(kPVFormatDescriptionExtension_PixelAspectRatio, ratio);
  return reader.atEnd();
}

void writePixelAspectRatio(ByteWriter& writer, BRDictionaryRef extensions, Flavor) {
  BRDictionaryRef ratio = asDictionary(get(extensions, kPVFormatDescriptionExtension_PixelAspectRatio));
  double spacings[2];
  if (!getReal(ratio, kPVFormatDescriptionKey_PixelAspectRatioHorizontalSpacing, &spacings[0]) ||
      !getReal(ratio, kPVFormatDescriptionKey_PixelAspectRatioVerticalSpacing, &spacings[1]))
    return;
  if (!(spacings[0] > 0 && spacings[1] > 0 && spacings[0] <= UINT32_MAX && spacings[1] <= UINT32_MAX)) return;
  uint64_t whole[2] = {static_cast<uint64_t>(spacings[0]), static_cast<uint64_t>(spacings[1])};
  if (static_cast<double>(whole[0]) != spacings[0] || static_cast<double>(whole[1]) != spacings[1]) {
    constexpr double kScale = 65536;
    if (!(spacings[0] < kScale && spacings[1] < kScale)) return;
    for (int i = 0; i < 2; ++i) whole[i] = static_cast<uint64_t>(std::rint(spacings[i] * kScale));
    const uint64_t common = std::gcd(whole[0], whole[1]);
    for (uint64_t& each : whole) each /= common ? common : 1;
  }
  const size_t start = openAtom(writer, "pasp"_4cc);
  writer.u32(static_cast<uint32_t>(whole[0])).u32(static_cast<uint32_t>(whole[1]));
  closeAtom(writer, start);
}

// --- 'clap' (ISO/IEC 14496-12 12.1.4)

struct AperturePart {
  const BRStringRef* key;
  const BRStringRef* rationalKey;
};
constexpr AperturePart kApertureParts[] = {
    {&kPVFormatDescriptionKey_CleanApertureWidth, &kPVFormatDescriptionKey_CleanApertureWidthRational},
    {&kPVFormatDescriptionKey_CleanApertureHeight, &kPVFormatDescriptionKey_CleanApertureHeightRational},
    {&kPVFormatDescriptionKey_CleanApertureHorizontalOffset,
     &kPVFormatDescriptionKey_CleanApertureHorizontalOffsetRational},
    {&kPVFormatDescriptionKey_CleanApertureVerticalOffset,
     &kPVFormatDescriptionKey_CleanApertureVerticalOffsetRational},
};

void setFraction(DictionaryBuilder& dictionary, BRStringRef key, Fraction fraction) {
  const int32_t parts[] = {fraction.numerator, fraction.denominator};
  BRAllocatorRef allocator = dictionary.allocator();
  auto array = br::Ref<BRArray>::adopt(BRArrayCreateMutable(allocator, 2, &kBRTypeArrayCallBacks));
  bool complete = array.get() != nullptr;
  for (const int32_t part : parts) {
    const auto number = br::Ref<const BRNumber>::adopt(BRNumberCreate(allocator, kBRNumberTypeSInt32, &part));
    complete = complete && number && BRArrayAppendValue(array.get(), number.get());
  }
  dictionary.set(key, complete ? array.get() : nullptr);
}

bool readCleanAperture(ByteReader reader, DictionaryBuilder& extensions) {
  DictionaryBuilder aperture(extensions.allocator());
  for (const AperturePart& part : kApertureParts) {
    const Fraction fraction{reader.s32(), reader.s32()};
    if (fraction.denominator <= 0) return false;
    aperture.setReal(*part.key, static_cast<double>(fraction.numerator) / fraction.denominator);
    setFraction(aperture, *part.rationalKey, fraction);
  }
  extensions.setDictionary(kPVFormatDescriptionExtension_CleanAperture, aperture);
  return reader.atEnd();
}

// From the pair of whole numbers when there is one, else from the real number, else 0.
Fraction fractionIn(BRDictionaryRef aperture, const AperturePart& part) {
  BRTypeRef pair = get(aperture, *part.rationalKey);
  if (pair && BRGetTypeID(pair) == BRArrayGetTypeID() &&
      BRArrayGetCount(static_cast<BRArrayRef>(pair)) == 2) {
    int32_t values[2] = {0, 0};
    for (size_t i = 0; i < 2; ++i)
      if (BRNumberRef number = asNumber(BRArrayGetValueAtIndex(static_cast<BRArrayRef>(pair), i)))
        BRNumberGetValue(number, kBRNumberTypeSInt32, &values[i]);
    if (values[1] > 0) return {values[0], values[1]};
  }
  double value = 0;
  getReal(aperture, *part.key, &value);
  return fractionOf(value);
}

void writeCleanAperture(ByteWriter& writer, BRDictionaryRef extensions, Flavor) {
  BRDictionaryRef aperture = asDictionary(get(extensions, kPVFormatDescriptionExtension_CleanAperture));
  if (!aperture) return;
  const size_t start = openAtom(writer, "clap"_4cc);
  for (const AperturePart& part : kApertureParts) {
    const Fraction fraction = fractionIn(aperture, part);
    writer.u32(static_cast<uint32_t>(fraction.numerator)).u32(static_cast<uint32_t>(fraction.denominator));
  }
  closeAtom(writer, start);
}

// --- 'fiel'

constexpr CodePoint kFieldDetails[] = {
    {1, &kPVFormatDescriptionFieldDetail_TemporalTopFirst},
    {6, &kPVFormatDescriptionFieldDetail_TemporalBottomFirst},
    {9, &kPVFormatDescriptionFieldDetail_SpatialFirstLineEarly},
    {14, &kPVFormatDescriptionFieldDetail_SpatialFirstLineLate},
};

bool readFields(ByteReader reader, DictionaryBuilder& extensions) {
  const uint8_t count = reader.u8(), detail = reader.u8();
  if (!reader.ok() || (count != 1 && count != 2)) return false;
  extensions.setInteger(kPVFormatDescriptionExtension_FieldCount, count);
  BRStringRef name = nameOf(kFieldDetails, detail);
  if (name) extensions.set(kPVFormatDescriptionExtension_FieldDetail, name);
  return (name || detail == 0) && reader.atEnd();
}

void writeFields(ByteWriter& writer, BRDictionaryRef extensions, Flavor) {
  uint8_t count;
  if (!getInteger(extensions, kPVFormatDescriptionExtension_FieldCount, &count)) return;
  const int detail = codeOf(kFieldDetails, get(extensions, kPVFormatDescriptionExtension_FieldDetail));
  const size_t start = openAtom(writer, "fiel"_4cc);
  writer.u8(count).u8(detail < 0 ? 0 : static_cast<uint8_t>(detail));
  closeAtom(writer, start);
}

// --- 'gama': 16.16

bool readGamma(ByteReader reader, DictionaryBuilder& extensions) {
  const uint32_t level = reader.u32();
  if (!reader.ok()) return false;
  extensions.setReal(kPVFormatDescriptionExtension_GammaLevel, level / 65536.0);
  return reader.atEnd();
}

void writeGamma(ByteWriter& writer, BRDictionaryRef extensions, Flavor) {
  double level;
  if (!getReal(extensions, kPVFormatDescriptionExtension_GammaLevel, &level) ||
      !(level >= 0 && level < 65536))
    return;
  const size_t start = openAtom(writer, "gama"_4cc);
  writer.u32(static_cast<uint32_t>(level * 65536));
  closeAtom(writer, start);
}

// --- 'chrm': a sample location for each field

bool readChromaLocation(ByteReader reader, DictionaryBuilder& extensions) {
  const uint8_t top = reader.u8(), bottom = reader.u8();
  BRStringRef topName = nameOf(chromaLocations(), top), bottomName = nameOf(chromaLocations(), bottom);
  if (!reader.ok() || !topName || !bottomName) return false;
  extensions.set(kPVFormatDescriptionExtension_ChromaLocationTopField, topName);
  extensions.set(kPVFormatDescriptionExtension_ChromaLocationBottomField, bottomName);
  return reader.atEnd();
}

void writeChromaLocation(ByteWriter& writer, BRDictionaryRef extensions, Flavor) {
  const int top =
      codeOf(chromaLocations(), get(extensions, kPVFormatDescriptionExtension_ChromaLocationTopField));
  const int bottom =
      codeOf(chromaLocations(), get(extensions, kPVFormatDescriptionExtension_ChromaLocationBottomField));
  if (top < 0 || bottom < 0) return;
  const size_t start = openAtom(writer, "chrm"_4cc);
  writer.u8(static_cast<uint8_t>(top)).u8(static_cast<uint8_t>(bottom));
  closeAtom(writer, start);
}

// In the order in which they are written.
struct ImageAtom {
  PVFourCharCode type;
  bool (*read)(ByteReader, DictionaryBuilder&);
  void (*write)(ByteWriter&, BRDictionaryRef, Flavor);
};
constexpr ImageAtom kImageAtoms[] = {
    {"fiel"_4cc, readFields, writeFields},
    {"colr"_4cc, readColor, writeColor},
    {"pasp"_4cc, readPixelAspectRatio, writePixelAspectRatio},
    {"clap"_4cc, readCleanAperture, writeCleanAperture},
    {"gama"_4cc, readGamma, writeGamma},
    {"chrm"_4cc, readChromaLocation, writeChromaLocation},
};

static_assert(std::size(kImageAtoms) + 1 == kImageSubjects, "colour has two");

}  // namespace

size_t subjectOf(const ExtensionAtom& atom) {
  size_t subject = 0;
  while (subject < std::size(kImageAtoms) && kImageAtoms[subject].type != atom.type) ++subject;
  if (subject == std::size(kImageAtoms)) return kImageSubjects;
  if (atom.type != "colr"_4cc) return subject;
  const PVFourCharCode colorType = ByteReader(atom.payload, atom.length).u32();
  if (colorType == "nclc"_4cc || colorType == "nclx"_4cc) return subject;
  return colorType == "prof"_4cc || colorType == "rICC"_4cc ? kImageSubjects - 1 : kImageSubjects;
}

bool readImageAtom(const ExtensionAtom& atom, DictionaryBuilder& extensions) {
  for (const ImageAtom& known : kImageAtoms)
    if (known.type == atom.type) return known.read(ByteReader(atom.payload, atom.length), extensions);
  return false;
}

void writeImageAtoms(ByteWriter& writer, BRDictionaryRef extensions, Flavor flavor) {
  BRDictionaryRef atoms =
      asDictionary(get(extensions, kPVFormatDescriptionExtension_SampleDescriptionExtensionAtoms));
  for (const ImageAtom& known : kImageAtoms) {
    const auto key = record::copyCodeString(nullptr, known.type);
    // of 'colr' there may be one kept and one not
    if (known.type == "colr"_4cc || !get(atoms, key.get())) known.write(writer, extensions, flavor);
  }
}

}  // namespace pv::video
