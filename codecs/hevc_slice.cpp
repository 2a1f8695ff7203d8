// The beginnings of HEVC slice segment headers.
#include <kiv/hevc_slice.h>

#include <bit>

#include "codecs/hevc_parameter_sets.hpp"
#include "runtime/error.hpp"

namespace {

using namespace pv;

constexpr uint8_t kLastNonIRAP = kKivHEVCSlice_RASLR;
constexpr uint8_t kFirstIRAP = kKivHEVCSlice_BLAWLP, kLastIRAP = kKivHEVCSlice_CRA;
constexpr uint32_t kMostPPSID = 63, kMostSliceType = 2;
// All that is read takes 30 bytes at most; of so many a payload is read without memory of its own.
constexpr size_t kHeadBytes = 512;

bool isSlice(uint8_t type) { return type <= kLastNonIRAP || (type >= kFirstIRAP && type <= kLastIRAP); }
bool isIDR(uint8_t type) { return type == kKivHEVCSlice_IDRWRADL || type == kKivHEVCSlice_IDRNLP; }

// Pulls from behind the unit's header: pull(reader, slice) gives a status.
template <class Pull>
PVStatus readSlice(const uint8_t* unit, size_t length, KivHEVCSliceInformation& slice, Pull pull) {
  if (!unit || length == 0) return kKivBridgeError_InvalidParameter;
  const hevc::UnitHeader header = hevc::readUnitHeader(unit, length);
  if (!header.valid || !isSlice(header.type)) return kKivBridgeError_InvalidParameter;
  const nal::Rbsp payload(unit, length, kHeadBytes);
  BitReader reader(payload.bytes(), payload.length());
  reader.skip(hevc::kUnitHeaderBits - 3);
  slice = {};
  slice.nalUnitType = header.type;
  slice.picOutput = true;
  slice.temporalID = static_cast<uint8_t>(reader.bits(3) - 1);
  return pull(reader);
}

// To slice_pic_parameter_set_id.
bool pullBeginning(BitReader& reader, KivHEVCSliceInformation& slice) {
  slice.firstSliceSegmentInPic = reader.flag();
  if (slice.nalUnitType >= kFirstIRAP) slice.noOutputOfPriorPics = reader.flag();
  slice.ppsID = reader.ueUpTo(kMostPPSID);
  return reader.ok();
}

// slice_segment_address, of Ceil(Log2(PicSizeInCtbsY)) bits.
uint32_t pullAddress(BitReader& reader, const KivHEVCParsedSPS& sps) {
  constexpr uint32_t kLeastCtb = 3, kLargestCtb = 6;
  if (sps.log2CtbSize < kLeastCtb || sps.log2CtbSize > kLargestCtb) {
    reader.fail();
    return 0;
  }
  const auto ctbs = [&](uint32_t samples) {
    return (uint64_t{samples} + (1u << sps.log2CtbSize) - 1) >> sps.log2CtbSize;
  };
  const uint64_t count = ctbs(sps.picWidthInLumaSamples) * ctbs(sps.picHeightInLumaSamples);
  const auto bits = static_cast<uint32_t>(std::bit_width(count - 1));
  if (count == 0 || bits > 32) reader.fail();
  const uint32_t address = reader.ok() ? reader.bits(bits) : 0;
  if (address >= count) reader.fail();
  return address;
}

bool pullHeader(BitReader& reader, const KivHEVCParsedSPS& sps, const KivHEVCParsedPPS& pps,
                KivHEVCSliceInformation& slice) {
  if (!slice.firstSliceSegmentInPic) {
    slice.dependentSliceSegment = pps.dependentSliceSegmentsEnabled && reader.flag();
    slice.sliceSegmentAddress = pullAddress(reader, sps);
  }
  if (slice.dependentSliceSegment) return reader.ok();
  reader.skip(pps.numExtraSliceHeaderBits);
  slice.sliceType = static_cast<uint8_t>(reader.ueUpTo(kMostSliceType));
  if (pps.outputFlagPresent) slice.picOutput = reader.flag();
  if (sps.separateColourPlane) reader.skip(2);  // colour_plane_id
  if (sps.log2MaxPicOrderCntLsb > 16) reader.fail();
  if (!isIDR(slice.nalUnitType)) slice.picOrderCntLsb = reader.bits(sps.log2MaxPicOrderCntLsb);
  return reader.ok();
}

}  // namespace

PVStatus KivHEVCBridge_GetPPSSequenceIDFromSlice(const uint8_t* bytes, size_t length, uint32_t* ppsIDOut) {
  if (!ppsIDOut) return signalError(kKivBridgeError_InvalidParameter);
  KivHEVCSliceInformation slice;
  const PVStatus status = readSlice(bytes, length, slice, [&](BitReader& reader) -> PVStatus {
    if (!pullBeginning(reader, slice)) return kKivBridgeError_UnreadableData;
    return kPVStatus_Success;
  });
  if (status) return signalError(status);
  *ppsIDOut = slice.ppsID;
  return kPVStatus_Success;
}

PVStatus KivHEVCBridge_GetSliceInformation(const uint8_t* bytes, size_t length, const KivHEVCParsedSPS* sps,
                                           const KivHEVCParsedPPS* pps,
                                           KivHEVCSliceInformation* informationOut) {
  if (!sps || !pps || !informationOut || pps->spsID != sps->spsID)
    return signalError(kKivBridgeError_InvalidParameter);
  KivHEVCSliceInformation slice;
  const PVStatus status = readSlice(bytes, length, slice, [&](BitReader& reader) -> PVStatus {
    if (!pullBeginning(reader, slice)) return kKivBridgeError_UnreadableData;
    if (slice.ppsID != pps->ppsID) return kKivBridgeError_InvalidParameter;
    if (!pullHeader(reader, *sps, *pps, slice)) return kKivBridgeError_UnreadableData;
    return kPVStatus_Success;
  });
  if (status) return signalError(status);
  *informationOut = slice;
  return kPVStatus_Success;
}
