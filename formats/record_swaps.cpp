// Records swapped in place. A record says how long it is in its own order, so each swap reads the fields that
// its checks need in the order that the record is in.
#include <kiv/sample_description.h>

#include "formats/record_fields.hpp"
#include "runtime/error.hpp"
#include "runtime/twin.hpp"

using namespace pv::record;

namespace {

enum class Order { kBigEndian, kHost };

// A record on its way from one order to the other.
class Swap {
 public:
  Swap(uint8_t* bytes, Order from) : bytes_(bytes), from_(from) {}

  template <class Word>
  Word read(Field<Word> field) const {
    const Word value = field.read(bytes_);
    return from_ == Order::kBigEndian ? value : static_cast<Word>(pv::bigEndian(unsignedOf(value)));
  }
  void fields(std::span<const Place> places) const { swapFields(bytes_, places); }
  // A run of 16-bit words.
  void words(size_t offset, size_t count) const {
    for (size_t i = 0; i < count; ++i) {
      const Place place = Field<uint16_t>{0};
      swapFields(bytes_ + offset + 2 * i, std::span(&place, 1));
    }
  }

 private:
  template <class Word>
  static std::make_unsigned_t<Word> unsignedOf(Word value) {
    return static_cast<std::make_unsigned_t<Word>>(value);
  }

  uint8_t* bytes_;
  Order from_;
};

PVStatus kivSoundBridge_FlipSoundDescriptionData(uint8_t* bytes, size_t size, Order from) {
  if (!bytes) return pv::signalError(kPVSampleDescriptionError_InvalidParameter);
  if (size < 18) return pv::signalError(kPVSampleDescriptionError_MalformedRecord);
  const Swap swap(bytes, from);
  const uint32_t recordSize = swap.read(kSize);
  const uint16_t version = swap.read(sound::kVersion);
  if (version >= sound::kFixedBytes.size() || recordSize > size || recordSize < sound::kFixedBytes[version])
    return pv::signalError(kPVSampleDescriptionError_MalformedRecord);
  swap.fields(kHeaderPlaces);
  swap.fields(sound::kPlaces);
  if (version == 1) swap.fields(sound::kPlaces1);
  if (version == 2) swap.fields(sound::kPlaces2);
  return 0;
}

// The number of 16-bit words in the colour table's entries; none when it does not fit.
bool measureColorTable(const Swap& swap, uint32_t recordSize, size_t* wordsOut) {
  constexpr int64_t kSmallest = image::kColorTableEntries + image::kColorTableEntryBytes;
  if (recordSize < kSmallest) return false;
  const int64_t last = swap.read(image::kColorTableSize);
  if (last < 0 || int64_t{image::kColorTableEntryBytes} * last + kSmallest > recordSize) return false;
  *wordsOut = static_cast<size_t>(last + 1) * image::kColorTableEntryBytes / 2;
  return true;
}

PVStatus kivBridge_FlipImageDescriptionData(uint8_t* bytes, size_t size, Order from) {
  if (!bytes) return pv::signalError(kPVSampleDescriptionError_InvalidParameter);
  const Swap swap(bytes, from);
  if (size < image::kFixedBytes || swap.read(kSize) < image::kFixedBytes || swap.read(kSize) > size)
    return pv::signalError(kPVSampleDescriptionError_MalformedRecord);
  const bool hasColorTable = swap.read(image::kColorTableID) == 0;
  size_t colorWords = 0;
  if (hasColorTable && !measureColorTable(swap, swap.read(kSize), &colorWords)) {
    pv::signalError(kPVSampleDescriptionError_MalformedRecord);
    return 0;
  }
  swap.fields(kHeaderPlaces);
  swap.fields(image::kPlaces);
  if (!hasColorTable) return 0;
  static constexpr std::array<Place, 3> kTable = {image::kColorTableSeed, image::kColorTableFlags,
                                                  image::kColorTableSize};
  swap.fields(kTable);
  swap.words(image::kColorTableEntries, colorWords);
  return 0;
}

PVStatus flipText(uint8_t* bytes, size_t size, Order from) {
  if (!bytes) return pv::signalError(kPVSampleDescriptionError_InvalidParameter);
  const Swap swap(bytes, from);
  if (size < kHeaderBytes) return pv::signalError(kPVSampleDescriptionError_MalformedRecord);
  const uint32_t format = swap.read(kDataFormat);
  std::span<const Place> places;
  size_t fixedBytes = kHeaderBytes;
  if (format == text::kFormat) {
    places = text::kPlaces;
    fixedBytes = text::kFixedBytes;
  } else if (format == timed_text::kFormat) {
    places = timed_text::kPlaces;
    fixedBytes = timed_text::kFixedBytes;
  }
  if (swap.read(kSize) < fixedBytes || swap.read(kSize) > size)
    return pv::signalError(kPVSampleDescriptionError_MalformedRecord);
  swap.fields(kHeaderPlaces);
  swap.fields(places);
  return 0;
}

// Records whose size in bytes alone is checked; either order is turned alike.
PVStatus flipFixed(uint8_t* bytes, size_t size, size_t fixedBytes, std::span<const Place> places) {
  if (!bytes || size < fixedBytes) return pv::signalError(kPVSampleDescriptionError_InvalidParameter);
  swapFields(bytes, kHeaderPlaces);
  swapFields(bytes, places);
  return 0;
}

}  // namespace

PVStatus PVSwapBigEndianSoundDescriptionToHost(uint8_t* bytes, size_t size) {
  return kivSoundBridge_FlipSoundDescriptionData(bytes, size, Order::kBigEndian);
}
PV_TWIN(KivEndianSoundDescriptionData_BtoN, PVSwapBigEndianSoundDescriptionToHost)

PVStatus PVSwapHostEndianSoundDescriptionToBig(uint8_t* bytes, size_t size) {
  return kivSoundBridge_FlipSoundDescriptionData(bytes, size, Order::kHost);
}
PV_TWIN(KivEndianSoundDescriptionData_NtoB, PVSwapHostEndianSoundDescriptionToBig)

PVStatus PVSwapBigEndianImageDescriptionToHost(uint8_t* bytes, size_t size) {
  return kivBridge_FlipImageDescriptionData(bytes, size, Order::kBigEndian);
}
PV_TWIN(KivEndianImageDescriptionData_BtoN, PVSwapBigEndianImageDescriptionToHost)

PVStatus PVSwapHostEndianImageDescriptionToBig(uint8_t* bytes, size_t size) {
  return kivBridge_FlipImageDescriptionData(bytes, size, Order::kHost);
}
PV_TWIN(KivEndianImageDescriptionData_NtoB, PVSwapHostEndianImageDescriptionToBig)

PVStatus PVSwapBigEndianTextDescriptionToHost(uint8_t* bytes, size_t size) {
  return flipText(bytes, size, Order::kBigEndian);
}
PV_TWIN(KivEndianTextDescriptionData_BtoN, PVSwapBigEndianTextDescriptionToHost)

PVStatus PVSwapHostEndianTextDescriptionToBig(uint8_t* bytes, size_t size) {
  return flipText(bytes, size, Order::kHost);
}
PV_TWIN(KivEndianTextDescriptionData_NtoB, PVSwapHostEndianTextDescriptionToBig)

PVStatus PVSwapBigEndianClosedCaptionDescriptionToHost(uint8_t* bytes, size_t size) {
  return flipFixed(bytes, size, kHeaderBytes, {});
}
PV_TWIN(KivEndianClosedCaptionDescriptionData_BtoN, PVSwapBigEndianClosedCaptionDescriptionToHost)

PVStatus PVSwapHostEndianClosedCaptionDescriptionToBig(uint8_t* bytes, size_t size) {
  return flipFixed(bytes, size, kHeaderBytes, {});
}
PV_TWIN(KivEndianClosedCaptionDescriptionData_NtoB, PVSwapHostEndianClosedCaptionDescriptionToBig)

PVStatus PVSwapBigEndianTimeCodeDescriptionToHost(uint8_t* bytes, size_t size) {
  return flipFixed(bytes, size, timecode::kFixedBytes, timecode::kPlaces);
}
PV_TWIN(KivEndianTimeCodeDescriptionData_BtoN, PVSwapBigEndianTimeCodeDescriptionToHost)

PVStatus PVSwapHostEndianTimeCodeDescriptionToBig(uint8_t* bytes, size_t size) {
  return flipFixed(bytes, size, timecode::kFixedBytes, timecode::kPlaces);
}
PV_TWIN(KivEndianTimeCodeDescriptionData_NtoB, PVSwapHostEndianTimeCodeDescriptionToBig)
