/* The HEVC bridge: what parameter sets say (ITU-T H.265 7.3.2, Annex E), and the 'hvcC' record (ISO/IEC 14496-15
 * 8.3.3.1) that carries parameter sets in files. It answers the questions of the H.264 bridge (<kiv/h264_bridge.h>) for
 * HEVC, under the same rules:
 *
 * A parameter set is given as its NAL unit: a pointer and a length, both header bytes first, without start code or
 * length field, emulation prevention bytes left in. Nothing is kept; the bytes must stay unchanged during the call
 * only. Every SPS question parses the whole set; who has several asks KivHEVCBridge_ParseSPS once and reads the record.
 *
 * Only sets of the base layer are read (nuh_layer_id 0): those of other layers have forms of their own. Extensions at
 * the end of a set are not read. Values that nothing here depends on are stepped over whatever they are: prediction and
 * transform tools, HRD rates and sizes of any length. What comes before the usability information must be readable to
 * its end; usability information that breaks off does not take away what stands before the break (<kiv/bridge.h>).
 *
 * Out-parameters are written only on success; a NULL one is not written, except where it is said to be required.
 * Statuses that every question may return:
 *   kKivBridgeError_InvalidParameter   a null pointer, a length of 0, a NAL unit of another type or layer or with a
 *                                      malformed header, or what was asked for is not in the stream
 *   kKivBridgeError_UnreadableData     the set ends too early, or holds a value that is too long or outside the range
 *                                      that reading depends on: an ID, a chroma format, a bit depth, a count of
 *                                      sub-layers or of reference pictures; a picture of no or of 2^31 samples in
 *                                      either direction, or a conformance window as large as the picture
 *   kKivBridgeError_NoMemoryForCopy    memory ran out for removing emulation prevention bytes (large sets only)
 *
 * Threads: any. Nothing is shared.
 *
 *   KivHEVCParsedSPS sps;
 *   if (KivHEVCBridge_ParseSPS(bytes, length, &sps) == 0)
 *     printf("profile %d, level %.1f\n", sps.profileIdc, sps.levelIdc / 30.0); */
#ifndef KIV_HEVC_BRIDGE_H
#define KIV_HEVC_BRIDGE_H

#include <kiv/bridge.h>

PV_BEGIN_DECLS

/* A sequence parameter set, with the names of H.265 7.3.2.2.1, 7.3.3, E.2.1 and E.2.2. */
typedef struct KivHEVCParsedSPS {
  uint32_t vpsID;
  uint32_t spsID;
  uint32_t maxSubLayers; /* 1 to 7 */
  bool temporalIdNesting;
  uint8_t profileSpace; /* from here to levelIdc the general_ fields; those of sub-layers are not kept */
  bool tierFlag;
  uint8_t profileIdc;
  uint32_t profileCompatibilityFlags; /* flag 0 in the top bit */
  uint64_t constraintFlags;           /* the 48 bits from general_progressive_source_flag on, that in bit 47 */
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
  uint32_t log2CtbSize; /* 4 to 6 in what the standard allows; 0 for sums that no size can be */
  bool vuiPresent;
  KivVideoUsability vui;
  bool fieldSeq; /* a picture is a field; from here on of the usability information, false and 0 without it */
  bool frameFieldInfoPresent;
  bool nalHRDPresent;
  bool vclHRDPresent;
  uint32_t auCpbRemovalDelayLength; /* bits; 0 without NAL and VCL HRD parameters */
  uint32_t dpbOutputDelayLength;
  bool fixedPicRate;                  /* fixed_pic_rate_general_flag of the highest sub-layer */
  uint32_t minSpatialSegmentationIdc; /* 0 to 4095; 0 when it is not coded */
} KivHEVCParsedSPS;

/* A picture parameter set, with the names of H.265 7.3.2.3.1, as far as configuration records and slices need it. */
typedef struct KivHEVCParsedPPS {
  uint32_t ppsID;
  uint32_t spsID;
  bool dependentSliceSegmentsEnabled;
  bool outputFlagPresent;
  uint32_t numExtraSliceHeaderBits; /* 0 to 7 */
  bool tilesEnabled;
  bool entropyCodingSyncEnabled;
} KivHEVCParsedPPS;

/* --- Sequence parameter sets --- */

/* Parses a set into *out, which is required. */
PV_EXPORT PVStatus KivHEVCBridge_ParseSPS(const uint8_t *sps, size_t length, KivHEVCParsedSPS *out);

/* The size in pixels of a picture inside its conformance window, at least 1 x 1. A picture is a field when fieldSeq is
 * true, so that it has half of a frame's height. The window is counted in chroma samples (Table 6-1): 2 x 2 pixels for
 * 4:2:0, 2 x 1 for 4:2:2, 1 x 1 for 4:4:4, for colour planes coded apart and, unlike in the H.264 bridge, for
 * monochrome. The default display window does not count. sps is required; kKivBridgeError_UnreadableData for a record
 * whose window leaves nothing. */
PV_EXPORT PVStatus KivHEVCBridge_GetWidthAndHeightFromParsedSPS(const KivHEVCParsedSPS *sps, int32_t *widthOut,
                                                                int32_t *heightOut);
PV_EXPORT PVStatus KivHEVCBridge_GetSPSWidthAndHeight(const uint8_t *sps, size_t length, int32_t *widthOut,
                                                      int32_t *heightOut);

/* True when pictures are fields (field_seq_flag), or their source is interlaced and not progressive too
 * (general_interlaced_source_flag, general_progressive_source_flag; both are set when each picture says it for itself).
 * kKivBridgeError_UnreadableData when there is usability information that breaks off before field_seq_flag. */
PV_EXPORT PVStatus KivHEVCBridge_GetSPSIsInterlaced(const uint8_t *sps, size_t length, bool *isInterlacedOut);

/* Pictures per second: vui_time_scale / vui_num_units_in_tick. Never halved: in HEVC a picture takes one tick (E.3.1),
 * be it a frame or, when field_seq_flag is 1, a field. elemental_duration_in_tc_minus1 does not count. Timing in a
 * video parameter set is not looked at.
 *
 * *fixedFrameRateOut is fixed_pic_rate_general_flag of the highest sub-layer, false without HRD parameters.
 * *frameFieldInfoPresentOut, *hrdPresentOut (NAL or VCL) and *delayBitsOut say what picture timing messages carry: the
 * two delays that each begins with take au_cpb_removal_delay_length_minus1 + dpb_output_delay_length_minus1 + 2 bits, 0
 * without HRD. When the usability information breaks off inside the HRD parameters, these count as absent.
 *
 * kKivBridgeError_InvalidParameter without timing information, or when either of its numbers is 0. */
PV_EXPORT PVStatus KivHEVCBridge_GetSPS_VUI_Framerate(const uint8_t *sps, size_t length, float *picturesPerSecondOut,
                                                      bool *fixedFrameRateOut, bool *frameFieldInfoPresentOut,
                                                      bool *hrdPresentOut, uint32_t *delayBitsOut);

/* The sample aspect ratio. An indicator of 0 or 17 to 254 says nothing: success, and nothing is written. */
PV_EXPORT PVStatus KivHEVCBridge_GetSPS_VUI_AspectRatio(const uint8_t *sps, size_t length, uint32_t *horizontalOut,
                                                        uint32_t *verticalOut);

/* The colour description, as coded (Tables E.3, E.4, E.5). */
PV_EXPORT PVStatus KivHEVCBridge_GetSPS_VUI_NCLC(const uint8_t *sps, size_t length, uint32_t *colourPrimariesOut,
                                                 uint32_t *transferCharacteristicsOut, uint32_t *matrixCoefficientsOut);

/* video_full_range_flag; false when there is usability information without a video signal type. */
PV_EXPORT PVStatus KivHEVCBridge_GetSPS_VUI_FullRangeVideo(const uint8_t *sps, size_t length, bool *fullRangeOut);

/* The chroma sample location types, as coded (Figure E.1). */
PV_EXPORT PVStatus KivHEVCBridge_GetSPS_VUI_ChromaLocation(const uint8_t *sps, size_t length, uint32_t *topFieldOut,
                                                           uint32_t *bottomFieldOut);

/* The set's own ID. */
PV_EXPORT PVStatus KivHEVCBridge_GetSPSSequenceID(const uint8_t *sps, size_t length, uint32_t *spsIDOut);

/* --- Picture parameter sets --- */

/* Parses a set, as far as entropy_coding_sync_enabled_flag, into *out, which is required. */
PV_EXPORT PVStatus KivHEVCBridge_ParsePPS(const uint8_t *pps, size_t length, KivHEVCParsedPPS *out);

/* The set's own ID, and that of the sequence parameter set it refers to. Nothing behind them is read. */
PV_EXPORT PVStatus KivHEVCBridge_GetPPSSequenceID(const uint8_t *pps, size_t length, uint32_t *ppsIDOut,
                                                  uint32_t *spsIDOut);

/* --- The 'hvcC' record --- */

/* Builds the record of count NAL units, for samples whose NAL units are led by lengths of nalUnitHeaderLength bytes (1,
 * 2 or 4): video, sequence and picture parameter sets, at least one of each, and prefix and suffix SEI messages, in any
 * order. Each kind becomes one array, in the order just given; sets stand in the order of their IDs, messages and sets
 * of one ID in the order given. Arrays of parameter sets are marked as complete, as 'hvc1' samples want it.
 *
 * The record is a new data object that the caller releases. Width and height are those that all sequence parameter sets
 * share; 0 when they differ or one of them can be read to its bit depths, but not on to its usability information. Both
 * may be NULL; on failure they are 0 and *hvcCOut, which is required, is NULL.
 *
 * With several sequence parameter sets the record asks for what all of them together need: the greatest profile, tier,
 * level and number of temporal sub-layers, the compatibility and constraint flags that all of them set, temporal
 * nesting when all of them nest, and the lowest min_spatial_segmentation_idc. The parallelism type is that of the
 * picture parameter sets (slices, tiles, wavefronts), 0 when they differ or there is no segmentation to explain. The
 * frame rate stays unknown.
 *
 * kKivBridgeError_InvalidParameter: a null array or unit, fewer than three units, another nalUnitHeaderLength, a unit
 * of 0 or more than 65,535 bytes, of another type or layer or with a malformed header, none of a kind of parameter set,
 * more than 65,535 units of a kind, sequence parameter sets that differ in profile space, chroma format or bit depth,
 * or of 16 bits, which the record cannot say. kKivBridgeError_UnreadableData: a unit of less than 3 bytes, a sequence
 * parameter set that cannot be read to its bit depths, a picture parameter set whose IDs cannot be read.
 * kKivBridgeError_AllocationFailed, kKivBridgeError_NoMemoryForCopy. */
PV_EXPORT PVStatus KivHEVCBridge_CreateHVCCFromHEVCParameterSets(BRAllocatorRef allocator, size_t count,
                                                                 const uint8_t *const *pointers, const size_t *sizes,
                                                                 int32_t nalUnitHeaderLength, int32_t *widthOut,
                                                                 int32_t *heightOut, BRDataRef *hvcCOut);

/* The index-th NAL unit of a record, of whatever type, across its arrays in order. *pointerOut is lent by the data
 * object, *countOut is the number of units. Each output may be NULL; with neither pointer nor size asked for, any index
 * will do. On failure pointer, size, count and header length are NULL and 0. kKivBridgeError_InvalidParameter: not a
 * data object, less than 23 bytes, a version other than 1, an array or unit that reaches past the end, or no such
 * index. Bytes behind the last array are ignored. */
PV_EXPORT PVStatus KivHEVCBridge_GetHEVCParameterSetAtIndex(BRDataRef hvcC, size_t index, const uint8_t **pointerOut,
                                                            size_t *sizeOut, size_t *countOut,
                                                            int32_t *nalUnitHeaderLengthOut);

/* The index-th sequence, or picture, parameter set of a record in plain memory. *pointerOut points into it. Fails as
 * above. */
PV_EXPORT PVStatus KivHEVCBridge_GetSPSFromHVCC(const uint8_t *hvcC, size_t length, size_t index,
                                                const uint8_t **pointerOut, size_t *lengthOut);
PV_EXPORT PVStatus KivHEVCBridge_GetPPSFromHVCC(const uint8_t *hvcC, size_t length, size_t index,
                                                const uint8_t **pointerOut, size_t *lengthOut);

/* 1 to 4. Fails as above, but looks at the first 23 bytes only. */
PV_EXPORT PVStatus KivHEVCBridge_GetNALUnitHeaderLengthFromHVCC(BRDataRef hvcC, int32_t *nalUnitHeaderLengthOut);

/* A new data object, which the caller releases, without the emulation prevention bytes: every 03 that follows two zero
 * bytes goes. NULL when data is NULL or memory runs out. */
PV_EXPORT BRDataRef KivHEVCBridge_CopyDataWithEmulationPreventionBytesRemoved(BRAllocatorRef allocator, BRDataRef data);

PV_END_DECLS

#endif
