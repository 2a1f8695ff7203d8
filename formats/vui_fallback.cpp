// What the first sequence parameter set of a configuration atom says of how the picture is to be shown, as
// extensions.
#include <bedra/dictionary.h>
#include <bedra/number.h>
#include <kiv/h264_bridge.h>
#include <kiv/hevc_bridge.h>
#include <kiv/video_format_description.h>

#include <algorithm>
#include <bedra/literal.hpp>
#include <bedra/ref.hpp>

#include "formats/code_points.hpp"
#include "formats/video_format_description.hpp"
#include "runtime/error.hpp"
#include "runtime/four_char_code.hpp"

using namespace br::literals;
using namespace pv::literals;
using namespace pv::video;

namespace {

// What a sequence parameter set says. Of a set that cannot be parsed there is none.
struct Facts {
  bool isProgressive = false;
  bool hasUsability = false;
  KivVideoUsability usability{};
  uint32_t horizontalSpacing = 0;
  uint32_t verticalSpacing = 0;
};

bool readH264(const uint8_t* record, size_t length, Facts& facts) {
  const uint8_t* sps;
  size_t size;
  KivH264ParsedSPS parsed;
  if (KivH264Bridge_GetSPSFromAVCC(record, length, 0, &sps, &size) ||
      KivH264Bridge_ParseSPS(sps, size, &parsed))
    return false;
  facts.isProgressive = parsed.frameMbsOnly;
  facts.hasUsability = parsed.vuiPresent;
  facts.usability = parsed.vui;
  if (parsed.vuiPresent && parsed.vui.aspectRatioInfoPresent)
    KivH264Bridge_GetSPS_VUI_AspectRatio(sps, size, &facts.horizontalSpacing, &facts.verticalSpacing);
  return true;
}

bool readHEVC(const uint8_t* record, size_t length, Facts& facts) {
  const uint8_t* sps;
  size_t size;
  KivHEVCParsedSPS parsed;
  bool isInterlaced = true;  // unless it is said; the usability information may break off before
  if (KivHEVCBridge_GetSPSFromHVCC(record, length, 0, &sps, &size) ||
      KivHEVCBridge_ParseSPS(sps, size, &parsed))
    return false;
  KivHEVCBridge_GetSPSIsInterlaced(sps, size, &isInterlaced);
  facts.isProgressive = !isInterlaced;
  facts.hasUsability = parsed.vuiPresent;
  facts.usability = parsed.vui;
  if (parsed.vuiPresent && parsed.vui.aspectRatioInfoPresent)
    KivHEVCBridge_GetSPS_VUI_AspectRatio(sps, size, &facts.horizontalSpacing, &facts.verticalSpacing);
  return true;
}

// The entries to add, and whether making one of them failed.
class Additions {
 public:
  Additions(BRAllocatorRef allocator, BRDictionaryRef extensions)
      : allocator_(allocator), extensions_(extensions) {}

  bool lacks(BRStringRef key) const { return !BRDictionaryContainsKey(extensions_, key); }

  // Adds a constant when there is one.
  void add(BRStringRef key, BRTypeRef constant) {
    if (constant) addOwned(key, BRRetain(constant));
  }

  void addNumber(BRStringRef key, int32_t number) {
    addOwned(key, BRNumberCreate(allocator_, kBRNumberTypeSInt32, &number));
  }

  void addPair(BRStringRef key, BRStringRef firstKey, uint32_t first, BRStringRef secondKey,
               uint32_t second) {
    using Number = br::Ref<const BRNumber>;
    Number numbers[] = {Number::adopt(BRNumberCreate(allocator_, kBRNumberTypeUInt32, &first)),
                        Number::adopt(BRNumberCreate(allocator_, kBRNumberTypeUInt32, &second))};
    const void *keys[] = {firstKey, secondKey}, *values[] = {numbers[0].get(), numbers[1].get()};
    addOwned(key, numbers[0] && numbers[1]
                      ? BRDictionaryCreate(allocator_, keys, values, 2, &kBRTypeDictionaryKeyCallBacks,
                                           &kBRTypeDictionaryValueCallBacks)
                      : nullptr);
  }

  // Replaces the extensions by a copy with the additions. False when memory ran out; they are then as they
  // were.
  bool apply(BRDictionaryRef* extensionsInOut) const {
    if (failed_) return false;
    if (count_ == 0) return true;
    auto extended = br::Ref<BRDictionary>::adopt(BRDictionaryCreateMutableCopy(allocator_, extensions_));
    if (!extended) return false;
    for (size_t i = 0; i < count_; ++i)
      if (!BRDictionarySetValue(extended.get(), entries_[i].key, entries_[i].value.get())) return false;
    BRRelease(*extensionsInOut);
    *extensionsInOut = extended.detach();
    return true;
  }

 private:
  struct Entry {
    BRStringRef key;
    br::Ref<const void> value;
  };

  void addOwned(BRStringRef key, BRTypeRef value) {
    if (!value)
      failed_ = true;
    else
      entries_[count_++] = {key, br::Ref<const void>::adopt(value)};
  }

  BRAllocatorRef allocator_;
  BRDictionaryRef extensions_;
  Entry entries_[8];
  size_t count_ = 0;
  bool failed_ = false;
};

void addChromaLocations(const KivVideoUsability& usability, Additions& additions) {
  uint32_t top = usability.chromaSampleLocTypeTopField, bottom = usability.chromaSampleLocTypeBottomField;
  if (!usability.chromaLocInfoPresent ||
      !additions.lacks(kPVFormatDescriptionExtension_ChromaLocationTopField))
    return;
  if (top == 2 && bottom == 2) top = bottom = 1;
  additions.add(kPVFormatDescriptionExtension_ChromaLocationTopField, nameOf(chromaLocations(), top));
  if (additions.lacks(kPVFormatDescriptionExtension_ChromaLocationBottomField))
    additions.add(kPVFormatDescriptionExtension_ChromaLocationBottomField, nameOf(chromaLocations(), bottom));
}

void addColour(BRStringRef key, std::span<const CodePoint> table, uint32_t code, Additions& additions) {
  if (additions.lacks(key)) additions.add(key, nameOf(table, code));
}

void addAll(const Facts& facts, Additions& additions) {
  const KivVideoUsability& usability = facts.usability;
  if (facts.hasUsability) {
    addChromaLocations(usability, additions);
    if (usability.colourDescriptionPresent) {
      addColour(kPVFormatDescriptionExtension_ColorPrimaries, colorPrimaries(), usability.colourPrimaries,
                additions);
      addColour(kPVFormatDescriptionExtension_TransferFunction, transferFunctions(),
                usability.transferCharacteristics, additions);
      addColour(kPVFormatDescriptionExtension_YCbCrMatrix, matrices(), usability.matrixCoefficients,
                additions);
    }
    if (usability.lastPartRead >= kKivVideoUsabilityPart_VideoSignalType &&
        additions.lacks(kPVFormatDescriptionExtension_FullRangeVideo))
      additions.add(kPVFormatDescriptionExtension_FullRangeVideo,
                    usability.fullRange ? kBRBooleanTrue : kBRBooleanFalse);
    if (facts.horizontalSpacing && facts.verticalSpacing &&
        additions.lacks(kPVFormatDescriptionExtension_PixelAspectRatio))
      additions.addPair(kPVFormatDescriptionExtension_PixelAspectRatio,
                        kPVFormatDescriptionKey_PixelAspectRatioHorizontalSpacing, facts.horizontalSpacing,
                        kPVFormatDescriptionKey_PixelAspectRatioVerticalSpacing, facts.verticalSpacing);
  }
  if (facts.isProgressive && additions.lacks(kPVFormatDescriptionExtension_FieldCount))
    additions.addNumber(kPVFormatDescriptionExtension_FieldCount, 1);
}

// Where a codec type keeps its parameter sets; sorted.
struct Codec {
  PVVideoCodecType type;
  BRStringRef atomKey;
  bool (*read)(const uint8_t* record, size_t length, Facts& facts);
};
constexpr Codec kCodecs[] = {
    {"avc1"_4cc, "avcC"_br, readH264}, {"cavc"_4cc, "avcC"_br, readH264}, {"drmi"_4cc, "avcC"_br, readH264},
    {"eavc"_4cc, "avcC"_br, readH264}, {"hvc1"_4cc, "hvcC"_br, readHEVC}, {"qavc"_4cc, "avcC"_br, readH264},
    {"zavc"_4cc, "avcC"_br, readH264},
};

constexpr bool codecsInOrder(const Codec& a, const Codec& b) { return a.type < b.type; }
static_assert(std::is_sorted(std::begin(kCodecs), std::end(kCodecs), codecsInOrder));

const Codec* codecOf(PVVideoCodecType type) {
  const Codec* found =
      std::lower_bound(std::begin(kCodecs), std::end(kCodecs), Codec{type, nullptr, nullptr}, codecsInOrder);
  return found != std::end(kCodecs) && found->type == type ? found : nullptr;
}

}  // namespace

bool pv::video::hasParameterSets(PVVideoCodecType codecType) { return codecOf(codecType) != nullptr; }

PVStatus KivBridge_MakeFallbackExtensionsFromVUI(BRAllocatorRef allocator, PVVideoCodecType codecType,
                                                 BRDictionaryRef* extensionsInOut) {
  if (!extensionsInOut) return pv::signalError(kKivBridgeError_InvalidParameter);
  const Codec* codec = codecOf(codecType);
  if (!codec) {
    pv::signalError(kKivBridgeError_UnsupportedCodecType);
    return 0;
  }
  BRDataRef record = pv::video::firstAtom(*extensionsInOut, codec->atomKey);
  Facts facts;
  if (!record || !codec->read(BRDataGetBytePtr(record), BRDataGetLength(record), facts)) return 0;
  Additions additions(allocator, *extensionsInOut);
  addAll(facts, additions);
  return additions.apply(extensionsInOut) ? 0 : pv::signalError(kKivBridgeError_AllocationFailed);
}
