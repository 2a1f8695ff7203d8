#include "codecs/hevc_parameter_sets.hpp"

#include <array>
#include <limits>

#include "codecs/usability.hpp"

namespace pv::hevc {

namespace {

constexpr uint32_t kAny = BitReader::kAnyCode;

// profile_tier_level (7.3.3) with profilePresentFlag.
void pullProfileTierLevel(BitReader& reader, KivHEVCParsedSPS& sps) {
  constexpr uint32_t kProfileBits = 88, kLevelBits = 8;
  sps.profileSpace = static_cast<uint8_t>(reader.bits(2));
  sps.tierFlag = reader.flag();
  sps.profileIdc = static_cast<uint8_t>(reader.bits(5));
  sps.profileCompatibilityFlags = reader.bits(32);
  sps.constraintFlags = uint64_t{reader.bits(32)} << 16;
  sps.constraintFlags |= reader.bits(16);
  sps.progressiveSource = sps.constraintFlags >> 47 & 1;
  sps.interlacedSource = sps.constraintFlags >> 46 & 1;
  sps.levelIdc = static_cast<uint8_t>(reader.bits(8));
  if (sps.maxSubLayers == 1) return;
  // Two bits for each of eight sub-layers, profile present and level present; those of the highest and above
  // are reserved.
  const uint32_t present = reader.bits(16);
  size_t subLayerBits = 0;
  for (uint32_t i = 0; i + 1 < sps.maxSubLayers; ++i)
    subLayerBits +=
        (present >> (15 - 2 * i) & 1 ? kProfileBits : 0) + (present >> (14 - 2 * i) & 1 ? kLevelBits : 0);
  reader.skip(subLayerBits);
}

// scaling_list_data (7.3.4).
void skipScalingLists(BitReader& reader) {
  for (uint32_t size = 0; size < 4; ++size) {
    const uint32_t coefficients = size == 0 ? 16 : 64;
    for (uint32_t matrix = 0; matrix < 6 && reader.ok(); matrix += size == 3 ? 3 : 1) {
      const bool coded = reader.flag();
      const uint32_t dcCoefficients = size > 1 ? 1 : 0;
      reader.skipCodes(coded ? dcCoefficients + coefficients : 1);
    }
  }
}

// A short-term reference picture set (7.3.7), as far as the set behind it, which may be coded as a difference
// to it, depends on it: picture order counts relative to the current picture.
class ReferencePictureSet {
 public:
  static constexpr uint32_t kMostSets = 64;
  static constexpr uint32_t kMostPictures = 16;

  void pull(BitReader& reader, bool first) {
    if (!first && reader.flag())
      pullPredicted(reader);
    else
      pullExplicit(reader);
  }

 private:
  struct List {
    std::array<int64_t, kMostPictures> deltas;
    uint32_t count = 0;
    bool overflown = false;

    void add(int64_t delta) {
      if (count == kMostPictures)
        overflown = true;
      else
        deltas[count++] = delta;
    }
  };

  static int64_t pullDistance(BitReader& reader) { return int64_t{reader.ue<kAny>()} + 1; }

  void pullExplicit(BitReader& reader) {
    before_.count = reader.ueUpTo(kMostPictures);
    after_.count = reader.ueUpTo(kMostPictures);
    if (before_.count + after_.count > kMostPictures) reader.fail();
    pullDeltas(reader, before_, -1);
    pullDeltas(reader, after_, 1);
  }
  static void pullDeltas(BitReader& reader, List& list, int64_t sign) {
    int64_t delta = 0;
    for (uint32_t i = 0; i < list.count && reader.ok(); ++i) {
      delta += sign * pullDistance(reader);
      list.deltas[i] = delta;
      reader.flag();  // used_by_curr_pic
    }
  }

  // The pictures of this set, all moved by one distance, and the picture that it belonged to: those that are
  // marked as kept, without the one that has become the current picture (7-61, 7-62).
  void pullPredicted(BitReader& reader) {
    const bool back = reader.flag();
    const int64_t distance = pullDistance(reader);
    const int64_t shift = back ? -distance : distance;
    const uint32_t pictures = before_.count + after_.count;
    uint32_t kept = 0;
    for (uint32_t i = 0; i <= pictures; ++i)
      if (reader.flag() || reader.flag()) kept |= 1u << i;

    List before, after;
    const auto addTo = [&](List& list, int64_t delta, uint32_t index) {
      if ((&list == &before ? delta < 0 : delta > 0) && kept >> index & 1) list.add(delta);
    };
    const auto addBefore = [&](List& list, uint32_t i) { addTo(list, before_.deltas[i] + shift, i); };
    const auto addAfter = [&](List& list, uint32_t i) {
      addTo(list, after_.deltas[i] + shift, before_.count + i);
    };
    for (uint32_t i = after_.count; i-- > 0;) addAfter(before, i);
    addTo(before, shift, pictures);
    for (uint32_t i = 0; i < before_.count; ++i) addBefore(before, i);
    for (uint32_t i = before_.count; i-- > 0;) addBefore(after, i);
    addTo(after, shift, pictures);
    for (uint32_t i = 0; i < after_.count; ++i) addAfter(after, i);

    if (before.overflown || after.overflown || before.count + after.count > kMostPictures) reader.fail();
    before_ = before;
    after_ = after;
  }

  List before_;  // negative deltas, the nearest first
  List after_;
};

void skipReferencePictureSets(BitReader& reader) {
  const uint32_t count = reader.ueUpTo(ReferencePictureSet::kMostSets);
  ReferencePictureSet set;
  for (uint32_t i = 0; i < count && reader.ok(); ++i) set.pull(reader, i == 0);
}

void skipLongTermPictures(BitReader& reader, uint32_t picOrderCntBits) {
  constexpr uint32_t kMostPictures = 32;
  if (reader.flag()) reader.skip(reader.ueUpTo(kMostPictures) * size_t{picOrderCntBits + 1});
}

// From log2_max_pic_order_cnt_lsb_minus4 to the usability information.
void pullCodingTools(BitReader& reader, KivHEVCParsedSPS& sps) {
  sps.log2MaxPicOrderCntLsb = reader.ueUpTo(12) + 4;
  const bool orderingOfAllSubLayers = reader.flag();
  reader.skipCodes(3 * (orderingOfAllSubLayers ? sps.maxSubLayers : 1));
  const uint64_t minCodingBlock = uint64_t{reader.ue<kAny>()} + 3;
  const uint64_t ctbSize = minCodingBlock + reader.ue<kAny>();
  sps.log2CtbSize = ctbSize < 32 ? static_cast<uint32_t>(ctbSize) : 0;
  reader.skipCodes(4);  // transform block sizes, hierarchy depths
  if (reader.flag() && reader.flag()) skipScalingLists(reader);
  reader.skip(2);       // amp, sample_adaptive_offset
  if (reader.flag()) {  // pcm
    reader.skip(8);
    reader.skipCodes(2);
    reader.skip(1);
  }
  skipReferencePictureSets(reader);
  skipLongTermPictures(reader, sps.log2MaxPicOrderCntLsb);
  reader.skip(2);  // sps_temporal_mvp, strong_intra_smoothing
}

void pullFieldInfo(BitReader& reader, KivHEVCParsedSPS& sps) {
  reader.skip(1);  // neutral_chroma_indication_flag
  const bool fieldSeq = reader.flag();
  const bool frameFieldInfo = reader.flag();
  if (reader.flag()) reader.skipCodes(4);  // default display window
  nal::endPart(reader, sps.vui, kKivVideoUsabilityPart_FieldInfo);
  if (!reader.ok()) return;
  sps.fieldSeq = fieldSeq;
  sps.frameFieldInfoPresent = frameFieldInfo;
}

struct HRD {
  bool nal = false;
  bool vcl = false;
  uint32_t auCpbRemovalDelayLength = 0;
  uint32_t dpbOutputDelayLength = 0;
  bool fixedPicRate = false;  // fixed_pic_rate_general_flag of the highest sub-layer
};

// hrd_parameters (E.2.2) with commonInfPresentFlag, and its sub_layer_hrd_parameters (E.2.3).
void hevcbridge_PullHRDParams(BitReader& reader, uint32_t subLayers, HRD& hrd) {
  constexpr uint32_t kMostCPBs = 32;
  bool subPictures = false;
  hrd.nal = reader.flag();
  hrd.vcl = reader.flag();
  if (hrd.nal || hrd.vcl) {
    subPictures = reader.flag();
    // tick divisor, decoding unit delay lengths; scales, initial delay length
    reader.skip((subPictures ? 19 + 4 : 0) + 8 + 5);
    hrd.auCpbRemovalDelayLength = reader.bits(5) + 1;
    hrd.dpbOutputDelayLength = reader.bits(5) + 1;
  }
  for (uint32_t i = 0; i < subLayers && reader.ok(); ++i) {
    hrd.fixedPicRate = reader.flag();
    const bool fixedWithinSequence = hrd.fixedPicRate || reader.flag();
    bool lowDelay = false;
    if (fixedWithinSequence)
      reader.skipCode();  // elemental_duration_in_tc_minus1
    else
      lowDelay = reader.flag();
    const uint32_t buffers = lowDelay ? 1 : reader.ueUpTo(kMostCPBs - 1) + 1;
    for (uint32_t j = 0; j < buffers * (hrd.nal + hrd.vcl) && reader.ok(); ++j) {
      reader.skipCodes(subPictures ? 4 : 2);  // rates and sizes
      reader.skip(1);                         // cbr_flag
    }
  }
}

void pullHRD(BitReader& reader, KivHEVCParsedSPS& sps) {
  HRD hrd;
  if (sps.vui.timingInfoPresent) {
    if (reader.flag()) reader.skipCode();  // num_ticks_poc_diff_one_minus1
    if (reader.flag()) hevcbridge_PullHRDParams(reader, sps.maxSubLayers, hrd);
  }
  nal::endPart(reader, sps.vui, kKivVideoUsabilityPart_HRD);
  if (!reader.ok()) return;
  sps.nalHRDPresent = hrd.nal;
  sps.vclHRDPresent = hrd.vcl;
  sps.auCpbRemovalDelayLength = hrd.auCpbRemovalDelayLength;
  sps.dpbOutputDelayLength = hrd.dpbOutputDelayLength;
  sps.fixedPicRate = hrd.fixedPicRate;
}

void pullBitstreamRestriction(BitReader& reader, KivHEVCParsedSPS& sps) {
  constexpr uint32_t kMostSegmentation = 4095;
  uint32_t segmentation = 0;
  if (reader.flag()) {
    reader.skip(3);
    segmentation = reader.ueUpTo(kMostSegmentation);
    reader.skipCodes(4);
  }
  nal::endPart(reader, sps.vui, kKivVideoUsabilityPart_BitstreamRestriction);
  if (reader.ok()) sps.minSpatialSegmentationIdc = segmentation;
}

// vui_parameters (E.2.1).
void pullUsability(BitReader& reader, KivHEVCParsedSPS& sps) {
  nal::readUsabilityBeginning(reader, sps.vui);
  pullFieldInfo(reader, sps);
  nal::readTiming(reader, sps.vui);
  pullHRD(reader, sps);
  pullBitstreamRestriction(reader, sps);
}

// Table 6-1: luma samples to a chroma sample, or 1 where there are none or three planes coded alike.
uint32_t chromaUnitWidth(const KivHEVCParsedSPS& sps) {
  return sps.chromaFormatIdc == 1 || sps.chromaFormatIdc == 2 ? 2 : 1;
}
uint32_t chromaUnitHeight(const KivHEVCParsedSPS& sps) { return sps.chromaFormatIdc == 1 ? 2 : 1; }

}  // namespace

UnitHeader readUnitHeader(const uint8_t* bytes, size_t length) {
  const auto type = static_cast<uint8_t>(bytes[0] >> 1 & 0x3F);
  // forbidden_zero_bit and the layer's six bits are 0; nuh_temporal_id_plus1 is not.
  const bool valid = (bytes[0] & 0x81) == 0 && (length == 1 || (bytes[1] <= 7 && bytes[1] != 0));
  return {valid, type};
}

bool pullSPSBeginning(BitReader& reader, KivHEVCParsedSPS& sps) {
  sps.vpsID = reader.bits(4);
  sps.maxSubLayers = reader.bits(3) + 1;
  if (sps.maxSubLayers > kMostSubLayers) reader.fail();
  sps.temporalIdNesting = reader.flag();
  pullProfileTierLevel(reader, sps);
  sps.spsID = reader.ueUpTo(15);
  sps.chromaFormatIdc = reader.ueUpTo(3);
  if (sps.chromaFormatIdc == 3) sps.separateColourPlane = reader.flag();
  sps.picWidthInLumaSamples = reader.ue<kAny>();
  sps.picHeightInLumaSamples = reader.ue<kAny>();
  sps.conformanceWindow = reader.flag();
  if (sps.conformanceWindow)
    for (uint32_t* offset : {&sps.confWinLeft, &sps.confWinRight, &sps.confWinTop, &sps.confWinBottom})
      *offset = reader.ue<kAny>();
  sps.bitDepthLuma = reader.ueUpTo(8) + 8;
  sps.bitDepthChroma = reader.ueUpTo(8) + 8;
  return reader.ok();
}

bool hevcbridge_PullParamSetSPS(BitReader& reader, KivHEVCParsedSPS& sps) {
  int32_t width, height;
  if (!pullSPSBeginning(reader, sps) || !pictureSize(sps, width, height)) return false;
  pullCodingTools(reader, sps);
  sps.vuiPresent = reader.flag();
  if (!reader.ok()) return false;
  if (sps.vuiPresent)
    pullUsability(reader, sps);
  else
    nal::inferUsability(sps.vui);
  return true;
}

bool pictureSize(const KivHEVCParsedSPS& sps, int32_t& width, int32_t& height) {
  constexpr int64_t kMost = std::numeric_limits<int32_t>::max();
  const int64_t codedWidth = sps.picWidthInLumaSamples, codedHeight = sps.picHeightInLumaSamples;
  const int64_t croppedWidth =
      codedWidth - (int64_t{sps.confWinLeft} + sps.confWinRight) * chromaUnitWidth(sps);
  const int64_t croppedHeight =
      codedHeight - (int64_t{sps.confWinTop} + sps.confWinBottom) * chromaUnitHeight(sps);
  if (croppedWidth <= 0 || croppedHeight <= 0 || codedWidth > kMost || codedHeight > kMost) return false;
  width = static_cast<int32_t>(croppedWidth);
  height = static_cast<int32_t>(croppedHeight);
  return true;
}

bool pullPPSBeginning(BitReader& reader, KivHEVCParsedPPS& pps) {
  pps.ppsID = reader.ueUpTo(63);
  pps.spsID = reader.ueUpTo(15);
  return reader.ok();
}

bool pullPPS(BitReader& reader, KivHEVCParsedPPS& pps) {
  if (!pullPPSBeginning(reader, pps)) return false;
  pps.dependentSliceSegmentsEnabled = reader.flag();
  pps.outputFlagPresent = reader.flag();
  pps.numExtraSliceHeaderBits = reader.bits(3);
  reader.skip(2);                        // sign_data_hiding, cabac_init
  reader.skipCodes(3);                   // reference counts, init_qp
  reader.skip(2);                        // constrained_intra_pred, transform_skip
  if (reader.flag()) reader.skipCode();  // diff_cu_qp_delta_depth
  reader.skipCodes(2);                   // chroma QP offsets
  reader.skip(4);  // slice_chroma_qp_offsets_present, weighted_pred, weighted_bipred, transquant_bypass
  pps.tilesEnabled = reader.flag();
  pps.entropyCodingSyncEnabled = reader.flag();
  return reader.ok();
}

}  // namespace pv::hevc
