#include "h264_pictures.hpp"

#include <kiv/h264_bridge.h>

#include <tuple>

namespace {

enum UnitType : uint8_t {
  kSlice = 1,
  kPartitionA = 2,
  kIDRSlice = 5,
  kSEI = 6,
  kSPS = 7,
  kPPS = 8,
  kDelimiter = 9,
  kPrefix = 14,
  kLastReserved = 18
};
enum SliceType : uint8_t { kI = 2, kSI = 4 };

// Whether two slices of primary coded pictures belong to different ones (7.4.1.2.4). What one of them does
// not code is 0.
bool differ(const KivH264SlicePicture& one, const KivH264SlicePicture& other) {
  const auto facts = [](const KivH264SlicePicture& slice) {
    return std::make_tuple(slice.frameNum, slice.ppsID, slice.fieldPic, slice.bottomField,
                           slice.nalRefIDC == 0, slice.nalUnitType == kIDRSlice, slice.idrPicID,
                           slice.picOrderCntLsb, slice.deltaPicOrderCntBottom, slice.deltaPicOrderCnt[0],
                           slice.deltaPicOrderCnt[1]);
  };
  return facts(one) != facts(other);
}

bool isIntra(const KivH264SlicePicture& slice) { return slice.sliceType == kI || slice.sliceType == kSI; }

CodedPicture::Field fieldOf(const KivH264SlicePicture& slice) {
  using enum CodedPicture::Field;
  if (!slice.fieldPic) return None;
  return slice.bottomField ? Bottom : Top;
}

}  // namespace

UnitRole H264Pictures::read(std::span<const uint8_t> unit, Between between) {
  set_.reset();
  const uint8_t type = unit[0] & 0x1F;
  switch (type) {
    case kSlice:
    case kPartitionA:
    case kIDRSlice:
      return readSlice(unit, between);
    case kSPS:
      readSPS(unit);
      return UnitRole::Separating;
    case kPPS:
      readPPS(unit);
      return UnitRole::Separating;
    case kSEI:
      return UnitRole::Separating;
    case kDelimiter:
      return UnitRole::Delimiter;
    default:
      return type >= kPrefix && type <= kLastReserved ? UnitRole::Announcing : UnitRole::Other;
  }
}

void H264Pictures::readSPS(std::span<const uint8_t> unit) {
  Sequence sequence{};
  if (unit.size() > kLargestSet || KivH264Bridge_ParseSPS(unit.data(), unit.size(), &sequence.sps) != 0)
    return;
  if (sequence.sps.seqParameterSetID >= sequences_.size()) return;
  if (sequence.sps.picOrderCntType == 1 &&
      KivH264Bridge_GetSPSPicOrderCntCycle(unit.data(), unit.size(), &sequence.cycle) != 0)
    return;
  set_ = {SetKind::SPS, sequence.sps.seqParameterSetID};
  sequences_[sequence.sps.seqParameterSetID] = std::make_unique<Sequence>(sequence);
}

void H264Pictures::readPPS(std::span<const uint8_t> unit) {
  KivH264ParsedPPS pps;
  if (unit.size() > kLargestSet || KivH264Bridge_ParsePPS(unit.data(), unit.size(), &pps) != 0) return;
  if (pps.picParameterSetID >= pictureSets_.size()) return;
  set_ = {SetKind::PPS, pps.picParameterSetID};
  pictureSets_[pps.picParameterSetID] = pps;
}

UnitRole H264Pictures::readSlice(std::span<const uint8_t> unit, Between between) {
  uint32_t ppsID = 0;
  KivH264SlicePicture slice;
  if (KivH264Bridge_GetPPSSequenceIDFromSlice(unit.data(), unit.size(), &ppsID) != 0)
    return UnitRole::Unreadable;
  const auto& pps = pictureSets_[ppsID];
  if (!pps || pps->seqParameterSetID >= sequences_.size() || !sequences_[pps->seqParameterSetID])
    return UnitRole::Unreadable;
  const Sequence& sequence = *sequences_[pps->seqParameterSetID];
  if (KivH264Bridge_GetSlicePicture(unit.data(), unit.size(), &sequence.sps, &*pps, &slice) != 0)
    return UnitRole::Unreadable;
  if (slice.redundantPicCnt != 0) {
    picture_.redundant = true;
    return UnitRole::Other;
  }
  // The same picture cannot begin twice, nor go on behind a delimiter: what else is missing between two
  // pictures (a stream of single frames put together may repeat every number) is not asked.
  const bool beginsAgain =
      between == Between::Delimiter || (between == Between::Separation && slice.firstMbInSlice == 0);
  if (last_ && !beginsAgain && !differ(*last_, slice)) {
    picture_.intra &= isIntra(slice);
    return UnitRole::SamePicture;
  }
  return beginPicture(slice, sequence);
}

UnitRole H264Pictures::beginPicture(const KivH264SlicePicture& slice, const Sequence& sequence) {
  const auto order = order_.next(slice, sequence.sps, sequence.cycle);
  if (!order) return UnitRole::Unreadable;
  last_ = slice;
  vui_ = sequence.sps.vui;
  picture_ = {};
  picture_.order = *order;
  picture_.sync = slice.nalUnitType == kIDRSlice;
  picture_.beginsSequence = picture_.sync || slice.forgetsReferences;
  picture_.forgetsReferences = slice.forgetsReferences;
  picture_.intra = isIntra(slice);
  picture_.unused = slice.nalRefIDC == 0;
  picture_.field = fieldOf(slice);
  picture_.frameNum = slice.frameNum;
  return UnitRole::NewPicture;
}

// A frame is two ticks long (E.2.1).
std::optional<PictureParser::Rate> H264Pictures::rate() const {
  if (!vui_.timingInfoPresent || vui_.timeScale == 0 || vui_.numUnitsInTick == 0) return std::nullopt;
  return Rate{vui_.timeScale, uint64_t{2} * vui_.numUnitsInTick};
}
