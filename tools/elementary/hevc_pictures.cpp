#include "hevc_pictures.hpp"

#include <kiv/hevc_bridge.h>

namespace {

enum UnitType : uint8_t {
  kLastSlice = kKivHEVCSlice_CRA,
  kVPS = 32,
  kSPS = 33,
  kPPS = 34,
  kDelimiter = 35,
  kEndOfSequence = 36,
  kEndOfStream = 37,
  kPrefixSEI = 39
};
constexpr uint8_t kI = 2;

// Units of the base layer that cannot stand behind the slices of their picture (7.4.2.4.4).
bool isAnnouncing(uint8_t type) {
  return type == kVPS || type == kSPS || type == kPPS || type == kPrefixSEI || (type >= 41 && type <= 44) ||
         (type >= 48 && type <= 55);
}

bool isSlice(uint8_t type) {
  return type <= kKivHEVCSlice_RASLR || (type >= kKivHEVCSlice_BLAWLP && type <= kLastSlice);
}
bool isRASL(uint8_t type) { return type == kKivHEVCSlice_RASLN || type == kKivHEVCSlice_RASLR; }
bool isRADL(uint8_t type) { return type == kKivHEVCSlice_RADLN || type == kKivHEVCSlice_RADLR; }
bool isRandomAccess(uint8_t type) { return type >= kKivHEVCSlice_BLAWLP; }

}  // namespace

UnitRole HEVCPictures::read(std::span<const uint8_t> unit, Between) {
  set_.reset();
  const uint8_t type = unit[0] >> 1 & 0x3F;
  const bool baseLayer = unit.size() > 1 && (unit[0] & 1) == 0 && unit[1] >> 3 == 0;
  if (!baseLayer) return UnitRole::Other;
  if (isSlice(type)) return readSlice(unit);
  if (type == kDelimiter) return UnitRole::Delimiter;
  if (type == kEndOfSequence || type == kEndOfStream) sequenceEnded_ = true;
  if (const auto kind = setKindOf(Codec::HEVC, unit)) readSet(unit, *kind);
  return isAnnouncing(type) ? UnitRole::Announcing : UnitRole::Other;
}

void HEVCPictures::readSet(std::span<const uint8_t> unit, SetKind kind) {
  if (unit.size() > kLargestSet) return;
  KivHEVCParsedSPS sps;
  KivHEVCParsedPPS pps;
  switch (kind) {
    case SetKind::VPS:
      if (unit.size() > 2) set_ = {kind, uint32_t{unit[2]} >> 4};
      return;
    case SetKind::SPS:
      if (KivHEVCBridge_ParseSPS(unit.data(), unit.size(), &sps) != 0) return;
      set_ = {kind, sps.spsID};
      sequences_[sps.spsID] = sps;
      return;
    case SetKind::PPS:
      if (KivHEVCBridge_ParsePPS(unit.data(), unit.size(), &pps) != 0) return;
      set_ = {kind, pps.ppsID};
      pictureSets_[pps.ppsID] = pps;
  }
}

UnitRole HEVCPictures::readSlice(std::span<const uint8_t> unit) {
  uint32_t ppsID = 0;
  KivHEVCSliceInformation slice;
  if (KivHEVCBridge_GetPPSSequenceIDFromSlice(unit.data(), unit.size(), &ppsID) != 0)
    return UnitRole::Unreadable;
  const auto& pps = pictureSets_[ppsID];
  if (!pps || !sequences_[pps->spsID]) return UnitRole::Unreadable;
  const KivHEVCParsedSPS& sps = *sequences_[pps->spsID];
  if (KivHEVCBridge_GetSliceInformation(unit.data(), unit.size(), &sps, &*pps, &slice) != 0)
    return UnitRole::Unreadable;
  if (slice.firstSliceSegmentInPic) return beginPicture(slice, sps);
  if (!anyPicture_) return UnitRole::Unreadable;
  if (!slice.dependentSliceSegment) picture_.intra &= slice.sliceType == kI;
  return UnitRole::SamePicture;
}

UnitRole HEVCPictures::beginPicture(const KivHEVCSliceInformation& slice, const KivHEVCParsedSPS& sps) {
  const uint8_t type = slice.nalUnitType;
  const bool randomAccess = isRandomAccess(type);
  picture_ = {};
  picture_.beginsSequence = randomAccess && (sequenceEnded_ || type != kKivHEVCSlice_CRA);
  if (randomAccess) skipsLeading_ = picture_.beginsSequence;
  anyPicture_ = true;
  sequenceEnded_ = false;
  vui_ = sps.vui;
  picture_.order = order_.next(slice, sps, picture_.beginsSequence);
  picture_.sync = randomAccess;
  picture_.intra = slice.sliceType == kI;
  picture_.unused = !randomAccess && type % 2 == 0;
  picture_.hidden = !slice.picOutput || (isRASL(type) && skipsLeading_);
  picture_.leading = isRASL(type) ? 1 : isRADL(type) ? 3 : 2;
  picture_.temporalID = slice.temporalID;
  return UnitRole::NewPicture;
}

// A picture is one tick long, be it a frame or a field (E.3.1).
std::optional<PictureParser::Rate> HEVCPictures::rate() const {
  if (!vui_.timingInfoPresent || vui_.timeScale == 0 || vui_.numUnitsInTick == 0) return std::nullopt;
  return Rate{vui_.timeScale, vui_.numUnitsInTick};
}
