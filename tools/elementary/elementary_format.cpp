#include "elementary_format.hpp"

#include <bedra/data.h>
#include <bedra/dictionary.h>
#include <kiv/video_format_description.h>

#include <bedra/literal.hpp>
#include <bedra/ref.hpp>

#include "atom_type.hpp"

using namespace br::literals;

namespace {

// What distinguishes the codecs in a sample description.
struct Naming {
  decltype(&PVVideoFormatDescriptionCreateFromH264ParameterSets) create;
  PVFourCharCode inSamples;  // the codec type when samples have sets, too
  PVFourCharCode recordType;
};
constexpr Naming kH264 = {PVVideoFormatDescriptionCreateFromH264ParameterSets, fourCC("avc3"),
                          fourCC("avcC")};
constexpr Naming kHEVC = {KivVideoFormatDescriptionCreateFromHEVCParameterSets, fourCC("hev1"),
                          fourCC("hvcC")};

// Marks the arrays of an 'hvcC' record (ISO/IEC 14496-15 8.3.3.1) as not complete.
void openArrays(std::span<uint8_t> record) {
  constexpr size_t kArrayCount = 22, kArrayHeaderBytes = 3, kLengthBytes = 2;
  constexpr uint8_t kComplete = 0x80;
  const auto word = [&](size_t at) { return at + 1 < record.size() ? record[at] << 8 | record[at + 1] : 0; };
  size_t at = kArrayCount + 1;
  for (int arrays = record[kArrayCount]; arrays > 0 && at < record.size(); --arrays) {
    record[at] &= static_cast<uint8_t>(~kComplete);
    const int units = word(at + 1);
    at += kArrayHeaderBytes;
    for (int i = 0; i < units; ++i) at += kLengthBytes + static_cast<size_t>(word(at));
  }
}

// The description with the codec type that lets samples have sets.
PVStatus allowSetsInSamples(const Naming& naming, PVFormatDescriptionRef plain,
                            PVFormatDescriptionRef* formatOut) {
  const auto* atoms = static_cast<BRDictionaryRef>(
      PVFormatDescriptionGetExtension(plain, kPVFormatDescriptionExtension_SampleDescriptionExtensionAtoms));
  const auto* record = static_cast<BRDataRef>(
      BRDictionaryGetValue(atoms, naming.recordType == kHEVC.recordType ? "hvcC"_br : "avcC"_br));
  std::vector<uint8_t> bytes(BRDataGetBytePtr(record), BRDataGetBytePtr(record) + BRDataGetLength(record));
  if (naming.recordType == kHEVC.recordType) openArrays(bytes);
  const auto [width, height] = PVVideoFormatDescriptionGetDimensions(plain);
  return KivVideoFormatDescriptionCreateWithSampleDescriptionExtensionAtom(
      nullptr, naming.inSamples, width, height, naming.recordType, bytes.data(), bytes.size(),
      PVFormatDescriptionGetExtensions(plain), formatOut);
}

}  // namespace

PVStatus createFormat(Codec codec, std::span<const uint8_t> stream, const SetCollection::Sets& sets,
                      bool setsInSamples, PVFormatDescriptionRef* formatOut) {
  const Naming& naming = codec == Codec::HEVC ? kHEVC : kH264;
  std::vector<const uint8_t*> pointers;
  std::vector<size_t> sizes;
  for (const auto& [key, place] : sets) {
    pointers.push_back(stream.data() + place.offset);
    sizes.push_back(static_cast<size_t>(place.length));
  }
  br::Ref<PVFormatDescription> plain;
  PVStatus status = naming.create(nullptr, pointers.size(), pointers.data(), sizes.data(),
                                  static_cast<int32_t>(kLengthFieldBytes), plain.out());
  if (status == 0 && setsInSamples) return allowSetsInSamples(naming, plain.get(), formatOut);
  *formatOut = plain.detach();
  return status;
}
