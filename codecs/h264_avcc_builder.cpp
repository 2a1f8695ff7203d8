// Building the 'avcC' record.
#include <algorithm>

#include "codecs/h264_avcc.hpp"
#include "codecs/h264_parameter_sets.hpp"
#include "codecs/parameter_set_list.hpp"
#include "runtime/error.hpp"

namespace {

using namespace pv;
using nal::ListedSet;
using nal::ParameterSetList;

constexpr size_t kFewest = 2;
constexpr size_t kMostSequenceSets = 31;
constexpr size_t kMostOtherSets = 255;

// What the record says of all its sequence parameter sets together.
class Summary {
 public:
  void addLevel(const KivH264ParsedSPS& sps) {
    profile_ = std::max(profile_, sps.profileIdc);
    constraintFlags_ &= sps.constraintFlags;
    level_ = std::max(level_, sps.levelIdc);
  }
  // False: other sets have another format.
  bool addFormat(const KivH264ParsedSPS& sps) {
    const Format format{sps.chromaFormatIdc, sps.bitDepthLuma, sps.bitDepthChroma};
    if (!hasFormat_) format_ = format;
    hasFormat_ = true;
    return format == format_;
  }
  // 0 × 0: not known.
  void addSize(int32_t width, int32_t height) {
    if (!hasSize_) {
      width_ = width;
      height_ = height;
    } else if (width != width_ || height != height_) {
      width_ = height_ = 0;
    }
    hasSize_ = true;
  }

  int32_t width() const { return width_; }
  int32_t height() const { return height_; }
  bool hasExtensionList() const { return h264::hasExtensionList(profile_); }

  void writeHead(ByteWriter& writer, int32_t nalUnitHeaderLength) const {
    writer.u8(h264::kAVCCVersion).u8(profile_).u8(constraintFlags_).u8(level_);
    writer.u8(static_cast<uint8_t>(0xFC | (nalUnitHeaderLength - 1)));
  }
  void writeFormat(ByteWriter& writer) const {
    writer.u8(static_cast<uint8_t>(0xFC | format_.chromaFormatIdc));
    writer.u8(static_cast<uint8_t>(0xF8 | (format_.bitDepthLuma - 8)));
    writer.u8(static_cast<uint8_t>(0xF8 | (format_.bitDepthChroma - 8)));
  }

 private:
  struct Format {
    uint32_t chromaFormatIdc, bitDepthLuma, bitDepthChroma;
    bool operator==(const Format&) const = default;
  };

  uint8_t profile_ = 0, constraintFlags_ = 0xFF, level_ = 0;
  bool hasFormat_ = false, hasSize_ = false;
  Format format_{};
  int32_t width_ = 0, height_ = 0;
};

// These read the ID of a set, from behind the unit's header. Statuses are not signalled.

PVStatus readSPS(BitReader reader, ListedSet& set, Summary& summary) {
  const BitReader beginning = reader;
  KivH264ParsedSPS sps{};
  if (!h264::pullSPSBeginning(reader, sps)) return kKivBridgeError_UnreadableData;
  set.id = sps.seqParameterSetID;
  summary.addLevel(sps);
  if (h264::hasExtensionList(sps.profileIdc)) {
    if (!h264::pullChromaFormat(reader, sps)) return kKivBridgeError_UnreadableData;
    if (!summary.addFormat(sps)) return kKivBridgeError_InvalidParameter;
  }
  int32_t width = 0, height = 0;
  reader = beginning;
  if (h264::PullParamSetSPS(reader, sps = {})) h264::frameSize(sps, width, height);
  summary.addSize(width, height);
  return kPVStatus_Success;
}

PVStatus readSet(ListedSet& set, Summary& summary) {
  if (set.size == 0 || set.size > nal::kLongestSet || !set.bytes) return kKivBridgeError_InvalidParameter;
  set.type = h264::typeOf(set.bytes);
  const bool isSPS = set.type == h264::kSPS;
  if ((set.bytes[0] & h264::kForbiddenBit) != 0 || (set.bytes[0] & h264::kRefIdcBits) == 0 ||
      !(isSPS || set.type == h264::kPPS || set.type == h264::kSPSExtension))
    return kKivBridgeError_InvalidParameter;
  const nal::Rbsp payload(set.bytes, set.size);
  if (!payload.ok()) return kKivBridgeError_NoMemoryForCopy;
  BitReader reader(payload.bytes(), payload.length());
  reader.skip(h264::kUnitHeaderBits);
  if (isSPS) return readSPS(reader, set, summary);
  set.id = reader.ue();
  if (!reader.ok()) return kKivBridgeError_UnreadableData;
  return kPVStatus_Success;
}

// Where a set stands in the record.
enum class Place { kSequenceSets, kPictureSets, kExtensionSets };

class Layout {
 public:
  Layout(const ParameterSetList& sets, bool hasExtensionList)
      : sets_(sets), extensions_(hasExtensionList ? Place::kExtensionSets : Place::kSequenceSets) {}

  bool hasRightCounts() const {
    const bool hasSPS =
        std::any_of(sets_.begin(), sets_.end(), [](const ListedSet& set) { return set.type == h264::kSPS; });
    return hasSPS && count(Place::kPictureSets) != 0 && count(Place::kSequenceSets) <= kMostSequenceSets &&
           count(Place::kPictureSets) <= kMostOtherSets && count(Place::kExtensionSets) <= kMostOtherSets;
  }
  // The count, below the given bits, and the sets.
  void write(ByteWriter& writer, Place place, uint8_t bits) const {
    writer.u8(static_cast<uint8_t>(bits | count(place)));
    for (const ListedSet& set : sets_)
      if (placeOf(set) == place) nal::writeEntry(writer, set);
  }

 private:
  Place placeOf(const ListedSet& set) const {
    if (set.type == h264::kPPS) return Place::kPictureSets;
    return set.type == h264::kSPS ? Place::kSequenceSets : extensions_;
  }
  size_t count(Place place) const {
    return static_cast<size_t>(std::count_if(sets_.begin(), sets_.end(),
                                             [&](const ListedSet& set) { return placeOf(set) == place; }));
  }

  const ParameterSetList& sets_;
  Place extensions_;
};

void writeRecord(ByteWriter& writer, const Summary& summary, const Layout& layout,
                 int32_t nalUnitHeaderLength) {
  summary.writeHead(writer, nalUnitHeaderLength);
  layout.write(writer, Place::kSequenceSets, static_cast<uint8_t>(~h264::kAVCCSequenceCountBits));
  layout.write(writer, Place::kPictureSets, 0);
  if (!summary.hasExtensionList()) return;
  summary.writeFormat(writer);
  layout.write(writer, Place::kExtensionSets, 0);
}

}  // namespace

PVStatus KivH264Bridge_CreateAVCCFromH264ParameterSets(BRAllocatorRef allocator, size_t count,
                                                       const uint8_t* const* pointers, const size_t* sizes,
                                                       int32_t nalUnitHeaderLength, int32_t* widthOut,
                                                       int32_t* heightOut, BRDataRef* avcCOut) {
  if (widthOut) *widthOut = 0;
  if (heightOut) *heightOut = 0;
  if (avcCOut) *avcCOut = nullptr;
  if (!pointers || !sizes || count < kFewest || !nal::isNALUnitHeaderLength(nalUnitHeaderLength) || !avcCOut)
    return signalError(kKivBridgeError_InvalidParameter);
  ParameterSetList sets(allocator, count);
  if (!sets.ok()) return signalError(kKivBridgeError_AllocationFailed);
  Summary summary;
  for (size_t i = 0; i < count; ++i) {
    sets[i] = {.bytes = pointers[i], .size = sizes[i], .index = i, .id = 0, .type = 0};
    if (PVStatus status = readSet(sets[i], summary)) return signalError(status);
  }
  const Layout layout(sets, summary.hasExtensionList());
  if (!layout.hasRightCounts()) return signalError(kKivBridgeError_InvalidParameter);
  sets.sort(
      [](const ListedSet& a, const ListedSet& b) { return a.id != b.id ? a.id < b.id : a.type < b.type; });
  *avcCOut = nal::createRecord(
      allocator, [&](ByteWriter& writer) { writeRecord(writer, summary, layout, nalUnitHeaderLength); });
  if (!*avcCOut) return signalError(kKivBridgeError_AllocationFailed);
  if (widthOut) *widthOut = summary.width();
  if (heightOut) *heightOut = summary.height();
  return kPVStatus_Success;
}

PVStatus KivH264Bridge_CreateAVCCFromSPSAndPPS(BRAllocatorRef allocator, const uint8_t* sps, size_t spsSize,
                                               const uint8_t* pps, size_t ppsSize,
                                               int32_t nalUnitHeaderLength, BRDataRef* avcCOut) {
  const uint8_t* const pointers[] = {sps, pps};
  const size_t sizes[] = {spsSize, ppsSize};
  return KivH264Bridge_CreateAVCCFromH264ParameterSets(allocator, 2, pointers, sizes, nalUnitHeaderLength,
                                                       nullptr, nullptr, avcCOut);
}
