#include "picture_order.hpp"

#include <algorithm>

namespace {

constexpr uint8_t kIDRSlice = 5;
constexpr int64_t kMostCount = INT32_MAX;

// The multiple of 2^bits that brings a count closest to the one before it.
int64_t nearestMsb(int64_t lsb, int64_t previousMsb, int64_t previousLsb, uint32_t bits) {
  const int64_t range = int64_t{1} << bits;
  if (lsb < previousLsb && previousLsb - lsb >= range / 2) return previousMsb + range;
  if (lsb > previousLsb && lsb - previousLsb > range / 2) return previousMsb - range;
  return previousMsb;
}

}  // namespace

std::optional<int64_t> H264PictureOrder::next(const KivH264SlicePicture& picture, const KivH264ParsedSPS& sps,
                                              const KivH264PicOrderCntCycle& cycle) {
  if (picture.nalUnitType == kIDRSlice) *this = {};
  if (previousFrameNum_ > picture.frameNum) frameNumOffset_ += int64_t{1} << sps.log2MaxFrameNum;
  previousFrameNum_ = picture.frameNum;
  std::optional<Counts> counts;
  if (sps.picOrderCntType == 0)
    counts = ofLsb(picture, sps);
  else
    counts = sps.picOrderCntType == 1 ? ofCycle(picture, cycle) : ofFrameNum(picture);
  if (!counts) return std::nullopt;
  const int64_t count = std::min(counts->top, counts->bottom);
  if (count > kMostCount || count < -kMostCount) return std::nullopt;
  if (!picture.forgetsReferences) return count;
  *this = {};
  previousLsb_ = picture.bottomField ? 0 : counts->top - count;
  return 0;
}

// 8.2.1.1
H264PictureOrder::Counts H264PictureOrder::ofLsb(const KivH264SlicePicture& picture,
                                                 const KivH264ParsedSPS& sps) {
  const int64_t lsb = picture.picOrderCntLsb;
  const int64_t msb = nearestMsb(lsb, previousMsb_, previousLsb_, sps.log2MaxPicOrderCntLsb);
  if (picture.nalRefIDC != 0) {
    previousMsb_ = msb;
    previousLsb_ = lsb;
  }
  return {msb + lsb, msb + lsb + picture.deltaPicOrderCntBottom};
}

// 8.2.1.2
std::optional<H264PictureOrder::Counts> H264PictureOrder::ofCycle(
    const KivH264SlicePicture& picture, const KivH264PicOrderCntCycle& cycle) const {
  int64_t frame = cycle.numRefFrames != 0 ? frameNumOffset_ + picture.frameNum : 0;
  if (picture.nalRefIDC == 0 && frame > 0) --frame;
  int64_t expected = 0, perCycle = 0;
  for (uint32_t i = 0; i < cycle.numRefFrames; ++i) perCycle += cycle.offsetForRefFrame[i];
  if (frame > kMostCount || perCycle > kMostCount || perCycle < -kMostCount) return std::nullopt;
  if (frame > 0) {
    expected = (frame - 1) / cycle.numRefFrames * perCycle;
    for (int64_t i = 0; i <= (frame - 1) % cycle.numRefFrames; ++i) expected += cycle.offsetForRefFrame[i];
  }
  if (picture.nalRefIDC == 0) expected += cycle.offsetForNonRefPic;
  expected += picture.deltaPicOrderCnt[0];
  const int64_t bottom = expected + cycle.offsetForTopToBottomField + picture.deltaPicOrderCnt[1];
  if (!picture.fieldPic) return Counts{expected, bottom};
  return picture.bottomField ? Counts{bottom, bottom} : Counts{expected, expected};
}

// 8.2.1.3
H264PictureOrder::Counts H264PictureOrder::ofFrameNum(const KivH264SlicePicture& picture) const {
  const int64_t twice = 2 * (frameNumOffset_ + picture.frameNum);
  const int64_t count = picture.nalRefIDC == 0 ? twice - 1 : twice;
  return {count, count};
}

int64_t HEVCPictureOrder::next(const KivHEVCSliceInformation& slice, const KivHEVCParsedSPS& sps,
                               bool beginsSequence) {
  const int64_t range = int64_t{1} << sps.log2MaxPicOrderCntLsb;
  const int64_t previousLsb = previous_ & (range - 1), lsb = slice.picOrderCntLsb;
  const int64_t msb =
      beginsSequence ? 0 : nearestMsb(lsb, previous_ - previousLsb, previousLsb, sps.log2MaxPicOrderCntLsb);
  const bool leading = slice.nalUnitType >= kKivHEVCSlice_RADLN && slice.nalUnitType <= kKivHEVCSlice_RASLR;
  const bool unused = slice.nalUnitType < kKivHEVCSlice_BLAWLP && slice.nalUnitType % 2 == 0;
  if (slice.temporalID == 0 && !leading && !unused) previous_ = msb + lsb;
  return msb + lsb;
}
