// The 'hvcC' record, HEVCDecoderConfigurationRecord of ISO/IEC 14496-15 8.3.3.1:
//
//    0  configurationVersion, 1
//    1  general_profile_space (2 bits), general_tier_flag, general_profile_idc (5)
//    2  general_profile_compatibility_flags (32)
//    6  general_constraint_indicator_flags (48)
//   12  general_level_idc
//   13  1111, min_spatial_segmentation_idc (12)
//   15  111111, parallelismType (2)
//   16  111111, chroma_format_idc (2)
//   17  11111, bit_depth_luma_minus8 (3)
//   18  11111, bit_depth_chroma_minus8 (3)
//   19  avgFrameRate (16)
//   21  constantFrameRate (2), numTemporalLayers (3), temporalIdNested, lengthSizeMinusOne (2)
//   22  numOfArrays
//   23  for each array: array_completeness, 0, NAL_unit_type (6); numNalus (16);
//                       for each unit: nalUnitLength (16) and its bytes
#include <bedra/data.h>
#include <bedra/runtime.h>

#include <algorithm>
#include <array>

#include "codecs/hevc_parameter_sets.hpp"
#include "codecs/parameter_set_list.hpp"
#include "runtime/byte_reader.hpp"
#include "runtime/error.hpp"

namespace {

using namespace pv;
using hevc::UnitType;
using nal::ListedSet;
using nal::ParameterSetList;

constexpr uint8_t kVersion = 1;
constexpr size_t kLengthSizeAt = 21;
constexpr size_t kArrayCountAt = 22;
constexpr size_t kHeadBytes = 23;
constexpr uint8_t kArrayComplete = 0x80;
constexpr size_t kShortestUnit = 3;  // the header and a byte
constexpr size_t kMostUnitsOfAType = 65535;
constexpr uint64_t kAllConstraints = (uint64_t{1} << 48) - 1;

// The arrays, in the order of the record.
constexpr std::array kArrayTypes = {hevc::kVPS, hevc::kSPS, hevc::kPPS, hevc::kPrefixSEI, hevc::kSuffixSEI};

bool isParameterSet(uint8_t type) { return type <= hevc::kPPS; }

// parallelismType: how pictures are cut into the segments that min_spatial_segmentation_idc promises.
enum Parallelism : uint8_t { kMixedOrUnknown = 0, kSlices = 1, kTiles = 2, kWavefronts = 3 };

Parallelism parallelismOf(const KivHEVCParsedPPS& pps) {
  if (pps.tilesEnabled && pps.entropyCodingSyncEnabled) return kMixedOrUnknown;
  if (pps.entropyCodingSyncEnabled) return kWavefronts;
  return pps.tilesEnabled ? kTiles : kSlices;
}

// What the head of a record says of all its parameter sets together.
class Summary {
 public:
  // False: this set cannot stand in one record with those before, or in any.
  bool add(const KivHEVCParsedSPS& sps) {
    constexpr uint32_t kDeepest = 15;  // what three bits hold
    if (spsCount_++ == 0)
      first_ = sps;
    else if (sps.profileSpace != first_.profileSpace || sps.chromaFormatIdc != first_.chromaFormatIdc ||
             sps.bitDepthLuma != first_.bitDepthLuma || sps.bitDepthChroma != first_.bitDepthChroma)
      return false;
    highTier_ |= sps.tierFlag;
    nested_ &= sps.temporalIdNesting;
    profileIdc_ = std::max(profileIdc_, sps.profileIdc);
    compatibilityFlags_ &= sps.profileCompatibilityFlags;
    constraintFlags_ &= sps.constraintFlags;
    levelIdc_ = std::max(levelIdc_, sps.levelIdc);
    segmentation_ = std::min(segmentation_, sps.minSpatialSegmentationIdc);
    subLayers_ = std::max(subLayers_, sps.maxSubLayers);
    return sps.bitDepthLuma <= kDeepest && sps.bitDepthChroma <= kDeepest;
  }
  // 0 × 0: not known.
  void addSize(int32_t width, int32_t height) {
    if (spsCount_ == 1) {
      width_ = width;
      height_ = height;
    } else if (width != width_ || height != height_) {
      width_ = height_ = 0;
    }
  }
  void add(Parallelism parallelism) {
    parallelism_ = ppsCount_++ == 0 || parallelism == parallelism_ ? parallelism : kMixedOrUnknown;
  }

  int32_t width() const { return width_; }
  int32_t height() const { return height_; }

  void writeHead(ByteWriter& writer, int32_t nalUnitHeaderLength) const {
    writer.u8(kVersion);
    writer.u8(static_cast<uint8_t>(first_.profileSpace << 6 | highTier_ << 5 | profileIdc_));
    writer.u32(compatibilityFlags_);
    writer.u16(static_cast<uint16_t>(constraintFlags_ >> 32)).u32(static_cast<uint32_t>(constraintFlags_));
    writer.u8(levelIdc_);
    writer.u16(static_cast<uint16_t>(0xF000 | segmentation_));
    writer.u8(0xFC | (segmentation_ == 0 ? kMixedOrUnknown : parallelism_));
    writer.u8(static_cast<uint8_t>(0xFC | first_.chromaFormatIdc));
    writer.u8(static_cast<uint8_t>(0xF8 | (first_.bitDepthLuma - 8)));
    writer.u8(static_cast<uint8_t>(0xF8 | (first_.bitDepthChroma - 8)));
    writer.u16(0);  // the average frame rate is not known, nor whether it is constant
    writer.u8(static_cast<uint8_t>(subLayers_ << 3 | nested_ << 2 | (nalUnitHeaderLength - 1)));
  }

 private:
  KivHEVCParsedSPS first_{};
  size_t spsCount_ = 0, ppsCount_ = 0;
  int32_t width_ = 0, height_ = 0;
  bool highTier_ = false, nested_ = true;
  uint8_t profileIdc_ = 0, levelIdc_ = 0;
  uint32_t compatibilityFlags_ = UINT32_MAX;
  uint64_t constraintFlags_ = kAllConstraints;
  uint32_t segmentation_ = UINT32_MAX, subLayers_ = 0;
  Parallelism parallelism_ = kMixedOrUnknown;
};

// These read the ID of a set, and add to the summary what the head says of it. Statuses are not signalled.

PVStatus readSPS(ListedSet& set, Summary& summary) {
  KivHEVCParsedSPS sps;
  int32_t width = 0, height = 0;
  PVStatus status = hevc::parseUnit(set.bytes, set.size, hevc::kSPS, hevc::hevcbridge_PullParamSetSPS, sps);
  if (status == kPVStatus_Success)
    hevc::pictureSize(sps, width, height);
  else if (status == kKivBridgeError_UnreadableData)
    status = hevc::parseUnit(set.bytes, set.size, hevc::kSPS, hevc::pullSPSBeginning, sps);
  if (status) return status;
  set.id = sps.spsID;
  if (!summary.add(sps)) return kKivBridgeError_InvalidParameter;
  summary.addSize(width, height);
  return kPVStatus_Success;
}

PVStatus readPPS(ListedSet& set, Summary& summary) {
  KivHEVCParsedPPS pps;
  PVStatus status = hevc::parseUnit(set.bytes, set.size, hevc::kPPS, hevc::pullPPS, pps);
  const bool whole = status == kPVStatus_Success;
  if (status == kKivBridgeError_UnreadableData)
    status = hevc::parseUnit(set.bytes, set.size, hevc::kPPS, hevc::pullPPSBeginning, pps);
  if (status) return status;
  set.id = pps.ppsID;
  summary.add(whole ? parallelismOf(pps) : kMixedOrUnknown);
  return kPVStatus_Success;
}

PVStatus readSet(ListedSet& set, Summary& summary) {
  if (!set.bytes || set.size == 0 || set.size > nal::kLongestSet) return kKivBridgeError_InvalidParameter;
  const hevc::UnitHeader header = hevc::readUnitHeader(set.bytes, set.size);
  if (!header.valid) return kKivBridgeError_InvalidParameter;
  if (set.size < kShortestUnit) return kKivBridgeError_UnreadableData;
  set.type = header.type;
  switch (set.type) {
    case hevc::kVPS:
      set.id = set.bytes[2] >> 4;
      return kPVStatus_Success;
    case hevc::kSPS:
      return readSPS(set, summary);
    case hevc::kPPS:
      return readPPS(set, summary);
    case hevc::kPrefixSEI:
    case hevc::kSuffixSEI:
      return kPVStatus_Success;
    default:
      return kKivBridgeError_InvalidParameter;
  }
}

size_t countOf(const ParameterSetList& sets, uint8_t type) {
  return static_cast<size_t>(
      std::count_if(sets.begin(), sets.end(), [=](const ListedSet& set) { return set.type == type; }));
}

// Every kind of parameter set there, and no more of any kind than a record can count.
bool haveRightCounts(const ParameterSetList& sets) {
  return std::all_of(kArrayTypes.begin(), kArrayTypes.end(), [&](UnitType type) {
    const size_t count = countOf(sets, type);
    return count <= kMostUnitsOfAType && (count != 0 || !isParameterSet(type));
  });
}

void writeArrays(ByteWriter& writer, const ParameterSetList& sorted) {
  const size_t arrays = static_cast<size_t>(std::count_if(
      kArrayTypes.begin(), kArrayTypes.end(), [&](UnitType type) { return countOf(sorted, type) != 0; }));
  writer.u8(static_cast<uint8_t>(arrays));
  const ListedSet* previous = nullptr;
  for (const ListedSet& set : sorted) {
    if (!previous || previous->type != set.type)
      writer.u8(set.type | (isParameterSet(set.type) ? kArrayComplete : 0))
          .u16(static_cast<uint16_t>(countOf(sorted, set.type)));
    nal::writeEntry(writer, set);
    previous = &set;
  }
}

// The units of a record, across its arrays. Calls visit(type, unit, size) for each; false when the record is
// malformed anywhere.
template <class Visit>
bool walkUnits(const uint8_t* record, size_t length, Visit visit) {
  if (!record || length < kHeadBytes || record[0] != kVersion) return false;
  ByteReader reader(record + kHeadBytes, length - kHeadBytes);
  for (uint32_t arrays = record[kArrayCountAt]; arrays > 0; --arrays) {
    const auto type = static_cast<uint8_t>(reader.u8() & 0x3F);
    for (uint32_t units = reader.u16(); units > 0 && reader.ok(); --units) {
      const size_t size = reader.u16();
      if (const uint8_t* unit = reader.take(size)) visit(type, unit, size);
    }
  }
  return reader.ok();
}

// The index-th unit of the type, or of any (0: slices, which no record holds).
PVStatus findUnit(const uint8_t* record, size_t length, uint8_t type, size_t index, const uint8_t*& unitOut,
                  size_t& sizeOut, size_t& countOut) {
  size_t count = 0;
  const uint8_t* found = nullptr;
  size_t size = 0;
  const bool wellFormed =
      walkUnits(record, length, [&](uint8_t unitType, const uint8_t* unit, size_t unitSize) {
        if (type != 0 && unitType != type) return;
        if (count++ != index) return;
        found = unit;
        size = unitSize;
      });
  if (!wellFormed) return kKivBridgeError_InvalidParameter;
  unitOut = found;
  sizeOut = size;
  countOut = count;
  return kPVStatus_Success;
}

PVStatus getUnitOfType(const uint8_t* record, size_t length, UnitType type, size_t index,
                       const uint8_t** pointerOut, size_t* lengthOut) {
  const uint8_t* unit = nullptr;
  size_t size = 0, count = 0;
  if (PVStatus status = findUnit(record, length, type, index, unit, size, count)) return status;
  if (index >= count) return kKivBridgeError_InvalidParameter;
  if (pointerOut) *pointerOut = unit;
  if (lengthOut) *lengthOut = size;
  return kPVStatus_Success;
}

bool isRecord(BRDataRef hvcC) {
  return hvcC && BRGetTypeID(hvcC) == BRDataGetTypeID() && BRDataGetLength(hvcC) >= kHeadBytes &&
         BRDataGetBytePtr(hvcC)[0] == kVersion;
}

int32_t headerLengthOf(BRDataRef hvcC) { return (BRDataGetBytePtr(hvcC)[kLengthSizeAt] & 3) + 1; }

}  // namespace

PVStatus KivHEVCBridge_CreateHVCCFromHEVCParameterSets(BRAllocatorRef allocator, size_t count,
                                                       const uint8_t* const* pointers, const size_t* sizes,
                                                       int32_t nalUnitHeaderLength, int32_t* widthOut,
                                                       int32_t* heightOut, BRDataRef* hvcCOut) {
  constexpr size_t kFewest = 3;
  if (widthOut) *widthOut = 0;
  if (heightOut) *heightOut = 0;
  if (hvcCOut) *hvcCOut = nullptr;
  if (!pointers || !sizes || count < kFewest || !nal::isNALUnitHeaderLength(nalUnitHeaderLength) || !hvcCOut)
    return signalError(kKivBridgeError_InvalidParameter);
  ParameterSetList sets(allocator, count);
  if (!sets.ok()) return signalError(kKivBridgeError_AllocationFailed);
  Summary summary;
  for (size_t i = 0; i < count; ++i) {
    sets[i] = {.bytes = pointers[i], .size = sizes[i], .index = i, .id = 0, .type = 0};
    if (PVStatus status = readSet(sets[i], summary)) return signalError(status);
  }
  if (!haveRightCounts(sets)) return signalError(kKivBridgeError_InvalidParameter);
  sets.sort([](const ListedSet& a, const ListedSet& b) {
    return a.type != b.type ? a.type < b.type : a.id < b.id;
  });
  BRDataRef record = nal::createRecord(allocator, [&](ByteWriter& writer) {
    summary.writeHead(writer, nalUnitHeaderLength);
    writeArrays(writer, sets);
  });
  if (!record) return signalError(kKivBridgeError_AllocationFailed);
  if (widthOut) *widthOut = summary.width();
  if (heightOut) *heightOut = summary.height();
  *hvcCOut = record;
  return kPVStatus_Success;
}

PVStatus KivHEVCBridge_GetHEVCParameterSetAtIndex(BRDataRef hvcC, size_t index, const uint8_t** pointerOut,
                                                  size_t* sizeOut, size_t* countOut,
                                                  int32_t* nalUnitHeaderLengthOut) {
  if (pointerOut) *pointerOut = nullptr;
  if (sizeOut) *sizeOut = 0;
  if (countOut) *countOut = 0;
  if (nalUnitHeaderLengthOut) *nalUnitHeaderLengthOut = 0;
  if (!isRecord(hvcC)) return signalError(kKivBridgeError_InvalidParameter);
  const uint8_t* unit = nullptr;
  size_t size = 0, count = 0;
  if (PVStatus status = findUnit(BRDataGetBytePtr(hvcC), BRDataGetLength(hvcC), 0, index, unit, size, count))
    return signalError(status);
  if (index >= count && (pointerOut || sizeOut)) return signalError(kKivBridgeError_InvalidParameter);
  if (pointerOut) *pointerOut = unit;
  if (sizeOut) *sizeOut = size;
  if (countOut) *countOut = count;
  if (nalUnitHeaderLengthOut) *nalUnitHeaderLengthOut = headerLengthOf(hvcC);
  return kPVStatus_Success;
}

PVStatus KivHEVCBridge_GetSPSFromHVCC(const uint8_t* hvcC, size_t length, size_t index,
                                      const uint8_t** pointerOut, size_t* lengthOut) {
  const PVStatus status = getUnitOfType(hvcC, length, hevc::kSPS, index, pointerOut, lengthOut);
  return status ? signalError(status) : status;
}

PVStatus KivHEVCBridge_GetPPSFromHVCC(const uint8_t* hvcC, size_t length, size_t index,
                                      const uint8_t** pointerOut, size_t* lengthOut) {
  const PVStatus status = getUnitOfType(hvcC, length, hevc::kPPS, index, pointerOut, lengthOut);
  return status ? signalError(status) : status;
}

PVStatus KivHEVCBridge_GetNALUnitHeaderLengthFromHVCC(BRDataRef hvcC, int32_t* nalUnitHeaderLengthOut) {
  if (nalUnitHeaderLengthOut) *nalUnitHeaderLengthOut = 0;
  if (!isRecord(hvcC)) return signalError(kKivBridgeError_InvalidParameter);
  if (nalUnitHeaderLengthOut) *nalUnitHeaderLengthOut = headerLengthOf(hvcC);
  return kPVStatus_Success;
}
