#include "codecs/h264_slice_header.hpp"

namespace pv::h264 {

namespace {

// slice_type, Table 7-6, modulo 5.
enum SliceType : uint32_t { kP, kB, kI, kSP, kSI, kSliceTypes };

constexpr uint32_t kAny = BitReader::kAnyCode;
constexpr uint32_t kMostNumberBits = 16;  // of frame_num and pic_order_cnt_lsb
constexpr uint32_t kMostReferences = 32;
constexpr uint32_t kMapTypeFirstEvolving = 3, kMapTypeLastEvolving = 5;

bool isIDR(const SliceHeader& slice) { return slice.nalUnitType == kIDRSlice; }
bool isIntra(const SliceHeader& slice) { return slice.sliceType == kI || slice.sliceType == kSI; }

uint32_t chromaArrayType(const KivH264ParsedSPS& sps) {
  return sps.separateColourPlane ? 0 : sps.chromaFormatIdc;
}

uint32_t pullNumber(BitReader& reader, uint32_t bits) {
  if (bits > kMostNumberBits) reader.fail();
  return reader.bits(bits);
}

void pullPicOrderCnt(BitReader& reader, const KivH264ParsedSPS& sps, const KivH264ParsedPPS& pps,
                     SliceHeader& slice) {
  const bool codesBottom = pps.bottomFieldPicOrderInFramePresent && !slice.fieldPic;
  if (sps.picOrderCntType == 0) {
    slice.picOrderCntLsb = pullNumber(reader, sps.log2MaxPicOrderCntLsb);
    if (codesBottom) slice.deltaPicOrderCntBottom = reader.se<kAny>();
  } else if (sps.picOrderCntType == 1 && !sps.deltaPicOrderAlwaysZero) {
    slice.deltaPicOrderCnt[0] = reader.se<kAny>();
    if (codesBottom) slice.deltaPicOrderCnt[1] = reader.se<kAny>();
  }
}

// ref_pic_list_modification (7.3.3.1), of one list.
void skipListModification(BitReader& reader) {
  constexpr uint32_t kMostWays = 2, kEnd = 3;
  if (!reader.flag()) return;
  for (uint32_t way = reader.ue(); way != kEnd && reader.ok(); way = reader.ue()) {
    if (way > kMostWays) return reader.fail();
    reader.skipCode();
  }
}

// pred_weight_table (7.3.3.2), of one list.
void skipWeights(BitReader& reader, uint32_t references, bool hasChroma) {
  for (uint32_t i = 0; i < references && reader.ok(); ++i) {
    if (reader.flag()) reader.skipCodes(2);
    if (hasChroma && reader.flag()) reader.skipCodes(4);
  }
}

// How many pictures each list refers to.
struct References {
  uint32_t l0 = 0, l1 = 0;
};

References pullReferences(BitReader& reader, const KivH264ParsedPPS& pps, const SliceHeader& slice) {
  if (isIntra(slice)) return {};
  const bool hasL1 = slice.sliceType == kB;
  References references{pps.numRefIdxL0DefaultActive, hasL1 ? pps.numRefIdxL1DefaultActive : 0};
  if (reader.flag()) {  // num_ref_idx_active_override_flag
    references.l0 = reader.ue() + 1;
    if (hasL1) references.l1 = reader.ue() + 1;
  }
  if (references.l0 > kMostReferences || references.l1 > kMostReferences) reader.fail();
  return references;
}

void skipPrediction(BitReader& reader, const KivH264ParsedSPS& sps, const KivH264ParsedPPS& pps,
                    const SliceHeader& slice) {
  if (slice.sliceType == kB) reader.skip(1);  // direct_spatial_mv_pred_flag
  const References references = pullReferences(reader, pps, slice);
  if (references.l0 != 0) skipListModification(reader);
  if (references.l1 != 0) skipListModification(reader);
  const bool weighted = slice.sliceType == kB ? pps.weightedBipredIdc == 1 : pps.weightedPred;
  if (isIntra(slice) || !weighted) return;
  const bool hasChroma = chromaArrayType(sps) != 0;
  reader.skipCodes(hasChroma ? 2 : 1);  // log2_weight_denom
  skipWeights(reader, references.l0, hasChroma);
  skipWeights(reader, references.l1, hasChroma);
}

// dec_ref_pic_marking (7.3.3.3).
void pullReferenceMarking(BitReader& reader, SliceHeader& slice) {
  constexpr uint32_t kMostOperations = 6;
  if (slice.nalRefIDC == 0) return;
  if (isIDR(slice)) return reader.skip(2);  // no_output_of_prior_pics_flag, long_term_reference_flag
  if (!reader.flag()) return;               // adaptive_ref_pic_marking_mode_flag
  for (uint32_t operation = reader.ue(); operation != 0 && reader.ok(); operation = reader.ue()) {
    if (operation > kMostOperations) return reader.fail();
    if (operation == 5) slice.forgetsReferences = true;
    if (operation == 3) reader.skipCodes(2);
    if (operation != 3 && operation != 5) reader.skipCode();
  }
}

void skipQuantisation(BitReader& reader, const SliceHeader& slice) {
  reader.skipCode();  // slice_qp_delta
  if (slice.sliceType == kSP) reader.skip(1);
  if (slice.sliceType == kSP || slice.sliceType == kSI) reader.skipCode();
}

void skipDeblocking(BitReader& reader, const KivH264ParsedPPS& pps) {
  constexpr uint32_t kDisabled = 1;
  if (pps.deblockingFilterControlPresent && reader.ue() != kDisabled) reader.skipCodes(2);
}

// slice_group_change_cycle, of Ceil(Log2(PicSizeInMapUnits ÷ SliceGroupChangeRate + 1)) bits, where the
// division is not rounded.
void skipSliceGroupChange(BitReader& reader, const KivH264ParsedSPS& sps, const KivH264ParsedPPS& pps) {
  if (pps.sliceGroupMapType < kMapTypeFirstEvolving || pps.sliceGroupMapType > kMapTypeLastEvolving) return;
  const uint64_t mapUnits = uint64_t{sps.picWidthInMbs} * sps.picHeightInMapUnits;
  const uint64_t mostCycles = (mapUnits + pps.sliceGroupChangeRate - 1) / pps.sliceGroupChangeRate;
  reader.skip(static_cast<uint32_t>(std::bit_width(mostCycles)));
}

}  // namespace

bool pullSliceBeginning(BitReader& reader, SliceHeader& slice) {
  reader.skip(1);  // forbidden_zero_bit
  slice.nalRefIDC = static_cast<uint8_t>(reader.bits(2));
  slice.nalUnitType = static_cast<uint8_t>(reader.bits(5));
  slice.firstMbInSlice = reader.ue<kAny>();
  slice.sliceType = static_cast<uint8_t>(reader.ueUpTo(2 * kSliceTypes - 1) % kSliceTypes);
  slice.ppsID = reader.ueUpTo(kMostPPSID);
  return reader.ok();
}

bool pullSliceStructure(BitReader& reader, const KivH264ParsedSPS& sps, SliceHeader& slice) {
  if (sps.separateColourPlane) reader.skip(2);  // colour_plane_id
  slice.frameNum = pullNumber(reader, sps.log2MaxFrameNum);
  slice.fieldPic = !sps.frameMbsOnly && reader.flag();
  slice.bottomField = slice.fieldPic && reader.flag();
  return reader.ok();
}

bool pullSlicePicture(BitReader& reader, const KivH264ParsedSPS& sps, const KivH264ParsedPPS& pps,
                      SliceHeader& slice) {
  if (!pullSliceStructure(reader, sps, slice)) return false;
  if (isIDR(slice)) slice.idrPicID = reader.ue<kAny>();
  pullPicOrderCnt(reader, sps, pps, slice);
  if (pps.redundantPicCntPresent) slice.redundantPicCnt = reader.ue<kAny>();
  skipPrediction(reader, sps, pps, slice);
  pullReferenceMarking(reader, slice);
  return reader.ok();
}

bool PullSliceHeader(BitReader& reader, const KivH264ParsedSPS& sps, const KivH264ParsedPPS& pps,
                     SliceHeader& slice) {
  if (!pullSlicePicture(reader, sps, pps, slice)) return false;
  if (pps.entropyCodingMode && !isIntra(slice)) reader.skipCode();  // cabac_init_idc
  skipQuantisation(reader, slice);
  skipDeblocking(reader, pps);
  skipSliceGroupChange(reader, sps, pps);
  return reader.ok();
}

}  // namespace pv::h264
