/* The HEVC bridge: what parameter sets say (ITU-T H.265 7.3.2, Annex E), and the 'hvcC' record (ISO/IEC 14496-15
 * 8.3.3.1)
 * that carries parameter sets in files. It answers the questions of the H.264 bridge (<kiv/h264_bridge.h>) for HEVC,
 * with
 * the same arguments, statuses and rules for outputs and threads.
 *
 * A parameter set is given as its NAL unit: a pointer and a length, both header bytes first, without start code or
 * length
 * field, emulation prevention bytes left in. Sets of the base layer only (nuh_layer_id 0): another layer's sequence
 * parameter sets have a form of their own and give kKivBridgeError_InvalidParameter.
 *
 *   KivHEVCParsedSPS sps;
 *   if (KivHEVCBridge_ParseSPS(bytes, length, &sps) == 0) printf("profile %d, level %.1f\n", sps.profileIdc,
 * sps.levelIdc / 30.0); */
#ifndef KIV_HEVC_BRIDGE_H
#define KIV_HEVC_BRIDGE_H

#include <kiv/bridge.h>

PV_BEGIN_DECLS

/* A sequence parameter set, with the names of H.265 7.3.2.2.1 and 7.3.3. */
typedef struct KivHEVCParsedSPS {
  uint32_t vpsID;
  uint32_t spsID;
  uint32_t maxSubLayers;
  bool temporalIdNesting;
  uint8_t profileSpace; /* the general_ fields */
  bool tierFlag;
  uint8_t profileIdc;
  uint32_t profileCompatibilityFlags; /* flag 0 in the top bit */
  uint64_t constraintFlags;           /* the 48 bits from progressive_source_flag on */
  uint8_t levelIdc;                   /* 30 times the level's number */
  bool progressiveSource;
  bool interlacedSource;
  uint32_t chromaFormatIdc;
  bool separateColourPlane;
  uint32_t picWidthInLumaSamples;
  uint32_t picHeightInLumaSamples;
  bool conformanceWindow; /* the offsets are in chroma units; 0 without it */
  uint32_t confWinLeft;
  uint32_t confWinRight;
  uint32_t confWinTop;
  uint32_t confWinBottom;
  uint32_t bitDepthLuma;
  uint32_t bitDepthChroma;
  uint32_t log2MaxPicOrderCntLsb;
  bool vuiPresent;
  KivVideoUsability vui;
  bool fieldSeq;
  bool frameFieldInfoPresent;
  bool nalHRDPresent;
  bool vclHRDPresent;
  uint32_t auCpbRemovalDelayLength; /* bits; 0 without HRD */
  uint32_t dpbOutputDelayLength;
  uint32_t minSpatialSegmentationIdc; /* 0 when it is not coded */
} KivHEVCParsedSPS;

/* A picture parameter set, with the names of H.265 7.3.2.3.1, as far as configuration records need it. */
typedef struct KivHEVCParsedPPS {
  uint32_t ppsID;
  uint32_t spsID;
  bool tilesEnabled;
  bool entropyCodingSyncEnabled;
} KivHEVCParsedPPS;

/* --- Parameter sets --- */

/* Parses a set into *out, which is required. */
PV_EXPORT PVStatus KivHEVCBridge_ParseSPS(const uint8_t *sps, size_t length, KivHEVCParsedSPS *out);
PV_EXPORT PVStatus KivHEVCBridge_ParsePPS(const uint8_t *pps, size_t length, KivHEVCParsedPPS *out);

/* The size in pixels of a picture inside its conformance window. A picture is a field when field_seq_flag is 1. The
 * default display window does not count. */
PV_EXPORT PVStatus KivHEVCBridge_GetSPSWidthAndHeight(const uint8_t *sps, size_t length, int32_t *widthOut,
                                                      int32_t *heightOut);

/* True when pictures are fields (field_seq_flag), or their source is interlaced and not progressive too
 * (general_interlaced_source_flag, general_progressive_source_flag). */
PV_EXPORT PVStatus KivHEVCBridge_GetSPSIsInterlaced(const uint8_t *sps, size_t length, bool *isInterlacedOut);

/* Pictures per second: vui_time_scale / vui_num_units_in_tick; a picture takes one tick (H.265 E.3.1), and is a field
 * when
 * field_seq_flag is 1. *fixedFrameRateOut is fixed_pic_rate_general_flag of the highest sub-layer (false without HRD
 * parameters); *frameFieldInfoPresentOut, *hrdPresentOut and *delayBitsOut say what picture timing messages carry:
 * their
 * two delays take au_cpb_removal_delay_length_minus1 + dpb_output_delay_length_minus1 + 2 bits, or 0 without HRD.
 * kKivBridgeError_InvalidParameter without timing information, or when either of its numbers is 0. */
PV_EXPORT PVStatus KivHEVCBridge_GetSPS_VUI_Framerate(const uint8_t *sps, size_t length, float *picturesPerSecondOut,
                                                      bool *fixedFrameRateOut, bool *frameFieldInfoPresentOut,
                                                      bool *hrdPresentOut, uint32_t *delayBitsOut);

/* As for H.264. */
PV_EXPORT PVStatus KivHEVCBridge_GetSPS_VUI_AspectRatio(const uint8_t *sps, size_t length, uint32_t *horizontalOut,
                                                        uint32_t *verticalOut);
PV_EXPORT PVStatus KivHEVCBridge_GetSPS_VUI_NCLC(const uint8_t *sps, size_t length, uint32_t *colourPrimariesOut,
                                                 uint32_t *transferCharacteristicsOut, uint32_t *matrixCoefficientsOut);
PV_EXPORT PVStatus KivHEVCBridge_GetSPS_VUI_FullRangeVideo(const uint8_t *sps, size_t length, bool *fullRangeOut);
PV_EXPORT PVStatus KivHEVCBridge_GetSPS_VUI_ChromaLocation(const uint8_t *sps, size_t length, uint32_t *topFieldOut,
                                                           uint32_t *bottomFieldOut);
PV_EXPORT PVStatus KivHEVCBridge_GetSPSSequenceID(const uint8_t *sps, size_t length, uint32_t *spsIDOut);

/* The set's own ID, and that of the sequence parameter set it refers to. */
PV_EXPORT PVStatus KivHEVCBridge_GetPPSSequenceID(const uint8_t *pps, size_t length, uint32_t *ppsIDOut,
                                                  uint32_t *spsIDOut);

/* --- The 'hvcC' record --- */

/* Builds the record of count parameter sets: VPS, SPS and PPS (each at least once) and prefix and suffix SEI messages,
 * in
 * any order; each kind becomes one array in that order, sets in the order of their IDs. Widths, outputs and statuses as
 * for
 * KivH264Bridge_CreateAVCCFromH264ParameterSets; count is at least 3. */
PV_EXPORT PVStatus KivHEVCBridge_CreateHVCCFromHEVCParameterSets(BRAllocatorRef allocator, size_t count,
                                                                 const uint8_t *const *pointers, const size_t *sizes,
                                                                 int32_t nalUnitHeaderLength, int32_t *widthOut,
                                                                 int32_t *heightOut, BRDataRef *hvcCOut);

/* The index-th NAL unit of a record, across its arrays in order. Outputs and failures as for
 * KivH264Bridge_GetH264ParameterSetAtIndex. */
PV_EXPORT PVStatus KivHEVCBridge_GetHEVCParameterSetAtIndex(BRDataRef hvcC, size_t index, const uint8_t **pointerOut,
                                                            size_t *sizeOut, size_t *countOut,
                                                            int32_t *nalUnitHeaderLengthOut);

/* The index-th sequence, or picture, parameter set of a record in plain memory. *pointerOut points into it. */
PV_EXPORT PVStatus KivHEVCBridge_GetSPSFromHVCC(const uint8_t *hvcC, size_t length, size_t index,
                                                const uint8_t **pointerOut, size_t *lengthOut);
PV_EXPORT PVStatus KivHEVCBridge_GetPPSFromHVCC(const uint8_t *hvcC, size_t length, size_t index,
                                                const uint8_t **pointerOut, size_t *lengthOut);

/* 1 to 4. */
PV_EXPORT PVStatus KivHEVCBridge_GetNALUnitHeaderLengthFromHVCC(BRDataRef hvcC, int32_t *nalUnitHeaderLengthOut);

/* As KivH264Bridge_CopyDataWithEmulationPreventionBytesRemoved; the escaping is the same. */
PV_EXPORT BRDataRef KivHEVCBridge_CopyDataWithEmulationPreventionBytesRemoved(BRAllocatorRef allocator, BRDataRef data);

PV_END_DECLS

#endif
