#include "codecs/h264_parameter_sets.hpp"

#include <array>
#include <limits>

#include "codecs/usability.hpp"

namespace pv::h264 {

namespace {

constexpr uint32_t kAny = BitReader::kAnyCode;
constexpr uint32_t kChroma444 = 3;
constexpr uint32_t kMostCPBs = 32;
constexpr uint32_t kMostFramesInCycle = 255;
constexpr uint32_t kMostSliceGroups = 8;

// Whether sets of the profile tell their chroma format and bit depths. 144 was High 4:4:4 before it was
// withdrawn for 244.
bool codesChromaFormat(uint8_t profile) {
  switch (profile) {
    case 44:
    case 83:
    case 86:
    case 100:
    case 110:
    case 118:
    case 122:
    case 128:
    case 134:
    case 135:
    case 138:
    case 139:
    case 144:
    case 244:
      return true;
    default:
      return false;
  }
}

// scaling_list (7.3.2.1.1.1): the list ends early where the next value would be 0.
void scaling_list(BitReader& reader, uint32_t size) {
  uint32_t next = 8;
  for (uint32_t i = 0; i < size && next != 0 && reader.ok(); ++i)
    next = (next + static_cast<uint32_t>(reader.se())) & 0xFF;
}

void skipScalingMatrix(BitReader& reader, uint32_t lists) {
  constexpr uint32_t kSmallLists = 6;
  for (uint32_t i = 0; i < lists; ++i)
    if (reader.flag()) scaling_list(reader, i < kSmallLists ? 16 : 64);
}

void pullPicOrderCnt(BitReader& reader, KivH264ParsedSPS& sps) {
  sps.picOrderCntType = reader.ueUpTo(2);
  if (sps.picOrderCntType == 0) {
    sps.log2MaxPicOrderCntLsb = reader.ue() + 4;
  } else if (sps.picOrderCntType == 1) {
    sps.deltaPicOrderAlwaysZero = reader.flag();
    reader.skipCodes(2);  // offset_for_non_ref_pic, offset_for_top_to_bottom_field
    reader.skipCodes(reader.ueUpTo(kMostFramesInCycle));
  }
}

void pullPictureSize(BitReader& reader, KivH264ParsedSPS& sps) {
  sps.picWidthInMbs = reader.ue() + 1;
  sps.picHeightInMapUnits = reader.ue() + 1;
  sps.frameMbsOnly = reader.flag();
  if (!sps.frameMbsOnly) sps.mbAdaptiveFrameField = reader.flag();
  reader.skip(1);  // direct_8x8_inference_flag
  sps.frameCropping = reader.flag();
  if (!sps.frameCropping) return;
  sps.frameCropLeft = reader.ue();
  sps.frameCropRight = reader.ue();
  sps.frameCropTop = reader.ue();
  sps.frameCropBottom = reader.ue();
}

struct HRD {
  bool present = false;
  uint32_t cpbRemovalDelayLength = 0;
  uint32_t dpbOutputDelayLength = 0;
};

// hrd_parameters (E.1.2), when the flag before it says so.
HRD pullHRD(BitReader& reader) {
  HRD hrd;
  hrd.present = reader.flag();
  if (!hrd.present) return hrd;
  const uint32_t buffers = reader.ueUpTo(kMostCPBs - 1) + 1;
  reader.skip(8);  // bit_rate_scale, cpb_size_scale
  for (uint32_t i = 0; i < buffers && reader.ok(); ++i) {
    reader.skipCodes(2);  // bit_rate_value_minus1, cpb_size_value_minus1
    reader.skip(1);       // cbr_flag
  }
  reader.skip(5);  // initial_cpb_removal_delay_length_minus1
  hrd.cpbRemovalDelayLength = reader.bits(5) + 1;
  hrd.dpbOutputDelayLength = reader.bits(5) + 1;
  reader.skip(5);  // time_offset_length
  return hrd;
}

void pullHRDAndPicStruct(BitReader& reader, KivH264ParsedSPS& sps) {
  const HRD nal = pullHRD(reader);
  const HRD vcl = pullHRD(reader);
  if (nal.present || vcl.present) reader.skip(1);  // low_delay_hrd_flag
  const bool picStruct = reader.flag();
  nal::endPart(reader, sps.vui, kKivVideoUsabilityPart_HRD);
  if (!reader.ok()) return;
  const HRD& hrd = nal.present ? nal : vcl;
  sps.nalHRDPresent = nal.present;
  sps.vclHRDPresent = vcl.present;
  sps.cpbRemovalDelayLength = hrd.cpbRemovalDelayLength;
  sps.dpbOutputDelayLength = hrd.dpbOutputDelayLength;
  sps.picStructPresent = picStruct;
}

// vui_parameters (E.1.1) without the bitstream restriction. An implausible value ends the reading there; only
// bytes that are missing make the set unreadable.
bool PullVUIParamSet(BitReader& reader, KivH264ParsedSPS& sps) {
  nal::readUsabilityBeginning(reader, sps.vui);
  nal::readTiming(reader, sps.vui);
  if (sps.vui.timingInfoPresent) sps.fixedFrameRate = reader.flag();
  pullHRDAndPicStruct(reader, sps);
  return !reader.ranOut();
}

// slice_group_map_type and what it brings.
void pullSliceGroups(BitReader& reader, KivH264ParsedPPS& pps) {
  pps.sliceGroupMapType = reader.ueUpTo(6);
  switch (pps.sliceGroupMapType) {
    case 0:  // interleaved: run_length_minus1 of each
      return reader.skipCodes(pps.numSliceGroups);
    case 2:  // foreground rectangles: top_left, bottom_right
      return reader.skipCodes(2 * (pps.numSliceGroups - 1));
    case 3:
    case 4:
    case 5:            // evolving
      reader.skip(1);  // slice_group_change_direction_flag
      pps.sliceGroupChangeRate = reader.ue<kAny>() + 1;
      return;
    case 6: {  // slice_group_id of each map unit
      const size_t units = size_t{reader.ue<kAny>()} + 1;
      return reader.skip(units * static_cast<uint32_t>(std::bit_width(pps.numSliceGroups - 1)));
    }
    default:
      return;
  }
}

// What a unit of frame_cropping is in luma samples, by chroma_format_idc. The 0 keeps monochrome uncropped.
constexpr std::array<uint8_t, 4> kCropUnitWidths = {0, 2, 2, 1};
constexpr std::array<uint8_t, 4> kCropUnitHeights = {0, 2, 1, 1};
constexpr uint8_t kUnknownCropUnit = 2;

int64_t cropUnit(const std::array<uint8_t, 4>& units, uint32_t chromaFormat) {
  return chromaFormat < units.size() ? units[chromaFormat] : kUnknownCropUnit;
}

}  // namespace

bool pullSPSBeginning(BitReader& reader, KivH264ParsedSPS& sps) {
  sps.profileIdc = static_cast<uint8_t>(reader.bits(8));
  sps.constraintFlags = static_cast<uint8_t>(reader.bits(8));
  sps.levelIdc = static_cast<uint8_t>(reader.bits(8));
  sps.seqParameterSetID = reader.ue();
  return reader.ok();
}

bool pullChromaFormat(BitReader& reader, KivH264ParsedSPS& sps) {
  sps.chromaFormatIdc = 1;
  sps.bitDepthLuma = sps.bitDepthChroma = 8;
  if (!codesChromaFormat(sps.profileIdc)) return true;
  sps.chromaFormatIdc = reader.ue();
  if (sps.chromaFormatIdc == kChroma444) sps.separateColourPlane = reader.flag();
  sps.bitDepthLuma = reader.ue() + 8;
  sps.bitDepthChroma = reader.ue() + 8;
  return reader.ok();
}

namespace {

// From profile_idc to log2_max_frame_num_minus4.
bool pullSPSToFrameNum(BitReader& reader, KivH264ParsedSPS& sps) {
  if (!pullSPSBeginning(reader, sps) || !pullChromaFormat(reader, sps)) return false;
  if (codesChromaFormat(sps.profileIdc)) {
    reader.skip(1);  // qpprime_y_zero_transform_bypass_flag
    if (reader.flag()) skipScalingMatrix(reader, sps.chromaFormatIdc == kChroma444 ? 12 : 8);
  }
  sps.log2MaxFrameNum = reader.ue() + 4;
  return reader.ok();
}

}  // namespace

bool pullPicOrderCntCycle(BitReader& reader, PicOrderCntCycle& cycle) {
  KivH264ParsedSPS sps{};
  if (!pullSPSToFrameNum(reader, sps)) return false;
  cycle.present = reader.ueUpTo(2) == 1;
  if (!cycle.present) return reader.ok();
  reader.skip(1);  // delta_pic_order_always_zero_flag
  cycle.offsetForNonRefPic = reader.se<kAny>();
  cycle.offsetForTopToBottomField = reader.se<kAny>();
  cycle.numRefFrames = reader.ueUpTo(kMostFramesInCycle);
  for (uint32_t i = 0; i < cycle.numRefFrames && reader.ok(); ++i)
    cycle.offsetForRefFrame[i] = reader.se<kAny>();
  return reader.ok();
}

bool PullParamSetSPS(BitReader& reader, KivH264ParsedSPS& sps) {
  if (!pullSPSToFrameNum(reader, sps)) return false;
  pullPicOrderCnt(reader, sps);
  sps.maxNumRefFrames = reader.ue();
  reader.skip(1);  // gaps_in_frame_num_value_allowed_flag
  pullPictureSize(reader, sps);
  sps.vuiPresent = reader.flag();
  if (!reader.ok()) return false;
  if (sps.vuiPresent) return PullVUIParamSet(reader, sps);
  nal::inferUsability(sps.vui);
  return true;
}

bool pullPPSBeginning(BitReader& reader, KivH264ParsedPPS& pps) {
  pps.picParameterSetID = reader.ue();
  pps.seqParameterSetID = reader.ue();
  return reader.ok();
}

bool pullPPS(BitReader& reader, KivH264ParsedPPS& pps) {
  pullPPSBeginning(reader, pps);
  pps.entropyCodingMode = reader.flag();
  pps.bottomFieldPicOrderInFramePresent = reader.flag();
  pps.numSliceGroups = reader.ueUpTo(kMostSliceGroups - 1) + 1;
  if (pps.numSliceGroups > 1) pullSliceGroups(reader, pps);
  pps.numRefIdxL0DefaultActive = reader.ue() + 1;
  pps.numRefIdxL1DefaultActive = reader.ue() + 1;
  pps.weightedPred = reader.flag();
  pps.weightedBipredIdc = reader.bits(2);
  pps.picInitQP = reader.se() + 26;
  reader.skipCodes(2);  // pic_init_qs_minus26, chroma_qp_index_offset
  pps.deblockingFilterControlPresent = reader.flag();
  reader.skip(1);  // constrained_intra_pred_flag
  pps.redundantPicCntPresent = reader.flag();
  return reader.ok();
}

bool frameSize(const KivH264ParsedSPS& sps, int32_t& width, int32_t& height) {
  constexpr int64_t kMacroblock = 16, kMost = std::numeric_limits<int32_t>::max();
  const int64_t fields = sps.frameMbsOnly ? 1 : 2;
  int64_t wide = kMacroblock * sps.picWidthInMbs, high = kMacroblock * sps.picHeightInMapUnits * fields;
  if (sps.frameCropping) {
    const int64_t columns = int64_t{sps.frameCropLeft} + sps.frameCropRight;
    const int64_t rows = int64_t{sps.frameCropTop} + sps.frameCropBottom;
    wide -= columns * cropUnit(kCropUnitWidths, sps.chromaFormatIdc);
    high -= rows * cropUnit(kCropUnitHeights, sps.chromaFormatIdc) * fields;
  }
  if (wide <= 0 || high <= 0 || wide > kMost || high > kMost) return false;
  width = static_cast<int32_t>(wide);
  height = static_cast<int32_t>(high);
  return true;
}

}  // namespace pv::h264
