/* The H.264 bridge: what parameter sets say (ITU-T H.264 7.3.2, Annex E), and the 'avcC' record (ISO/IEC 14496-15
 * 5.3.3.1) that carries parameter sets in files. Slices are in <kiv/h264_slice.h>.
 *
 * A parameter set is given as its NAL unit: a pointer and a length, header byte first, without start code or length
 * field, emulation prevention bytes left in. Nothing is kept; the bytes must stay unchanged during the call only. Every
 * SPS question parses the whole set; who has several asks KivH264Bridge_ParseSPS once and reads the record.
 *
 * Values that nothing here depends on are stepped over at any length: the offsets of picture order count type 1, HRD
 * rates and sizes. Every other Exp-Golomb code has at most 12 leading zeros. Reading ends behind
 * pic_struct_present_flag: bitstream restrictions, and extensions of the set, are not looked at. Values outside the
 * range that the standard allows are given as coded where the rest can be read all the same: an ID above 31, a
 * chroma_format_idc above 3.
 *
 * Usability information that holds a code which is too long, or more than 32 coded picture buffers, ends there: what
 * stands before it is answered (<kiv/bridge.h>). A set whose bytes end before pic_struct_present_flag is another thing:
 * part of it was lost, and no question is answered.
 *
 * Out-parameters are written only on success; a NULL one is not written, except where it is said to be required.
 * Statuses that every question may return:
 *   kKivBridgeError_InvalidParameter   a null pointer, a length of 0, a NAL unit of another type, or what was asked for
 *                                      is not in the stream
 *   kKivBridgeError_UnreadableData     the set ends too early, or holds a code that is too long, a pic_order_cnt_type
 *                                      above 2, or more than 255 reference frames in a picture order count cycle
 *   kKivBridgeError_NoMemoryForCopy    memory ran out for removing emulation prevention bytes (large sets only)
 *
 * Threads: any. Nothing is shared.
 *
 *   KivH264ParsedSPS sps;
 *   int32_t width, height;
 *   if (KivH264Bridge_ParseSPS(bytes, length, &sps) == 0)
 *     KivH264Bridge_GetWidthAndHeightFromParsedSPS(&sps, &width, &height); */
#ifndef KIV_H264_BRIDGE_H
#define KIV_H264_BRIDGE_H

#include <kiv/bridge.h>

PV_BEGIN_DECLS

/* A sequence parameter set, with the names of H.264 7.3.2.1.1, E.1.1 and E.1.2. */
typedef struct KivH264ParsedSPS {
  uint8_t profileIdc;
  uint8_t constraintFlags; /* the byte behind profile_idc: constraint_set0_flag is its top bit */
  uint8_t levelIdc;
  uint32_t seqParameterSetID;
  uint32_t chromaFormatIdc; /* 1 when the profile does not code it */
  bool separateColourPlane;
  uint32_t bitDepthLuma; /* 8 when the profile does not code them */
  uint32_t bitDepthChroma;
  uint32_t log2MaxFrameNum;
  uint32_t picOrderCntType;      /* 0 to 2 */
  uint32_t log2MaxPicOrderCntLsb; /* 0 unless picOrderCntType is 0 */
  bool deltaPicOrderAlwaysZero;
  uint32_t maxNumRefFrames;
  uint32_t picWidthInMbs;
  uint32_t picHeightInMapUnits;
  bool frameMbsOnly;
  bool mbAdaptiveFrameField;
  bool frameCropping; /* the offsets are in crop units; 0 without it */
  uint32_t frameCropLeft;
  uint32_t frameCropRight;
  uint32_t frameCropTop;
  uint32_t frameCropBottom;
  bool vuiPresent;
  KivVideoUsability vui;
  bool fixedFrameRate; /* from here on of the usability information, false and 0 without it or past its break */
  bool nalHRDPresent;
  bool vclHRDPresent;
  uint32_t cpbRemovalDelayLength; /* bits; those of the NAL HRD when both are present; 0 without HRD */
  uint32_t dpbOutputDelayLength;
  bool picStructPresent;
} KivH264ParsedSPS;

/* A picture parameter set, with the names of H.264 7.3.2.2, as far as slice headers need it. */
typedef struct KivH264ParsedPPS {
  uint32_t picParameterSetID;
  uint32_t seqParameterSetID;
  bool entropyCodingMode;
  bool bottomFieldPicOrderInFramePresent;
  uint32_t numSliceGroups; /* 1 to 8 */
  uint32_t sliceGroupMapType; /* 0 to 6; 0 with one slice group */
  uint32_t sliceGroupChangeRate; /* 0 unless sliceGroupMapType is 3, 4 or 5 */
  uint32_t numRefIdxL0DefaultActive;
  uint32_t numRefIdxL1DefaultActive;
  bool weightedPred;
  uint32_t weightedBipredIdc;
  int32_t picInitQP;
  bool deblockingFilterControlPresent;
  bool redundantPicCntPresent;
} KivH264ParsedPPS;

/* --- Sequence parameter sets --- */

/* Parses a set into *out, which is required. */
PV_EXPORT PVStatus KivH264Bridge_ParseSPS(const uint8_t *sps, size_t length, KivH264ParsedSPS *out);

/* The size in pixels of a frame, cropped. Monochrome pictures (chromaFormatIdc 0) are never cropped. Kept exactly so:
 * the crop unit of a chroma format above 3, which no stream should have, is 2. kKivBridgeError_UnreadableData when
 * cropping leaves nothing, or a side is above 2^31 - 1; other questions about such a set are answered. */
PV_EXPORT PVStatus KivH264Bridge_GetWidthAndHeightFromParsedSPS(const KivH264ParsedSPS *sps, int32_t *widthOut,
                                                                int32_t *heightOut);
PV_EXPORT PVStatus KivH264Bridge_GetSPSWidthAndHeight(const uint8_t *sps, size_t length, int32_t *widthOut,
                                                      int32_t *heightOut);

/* Whether pictures may be fields, or frames of macroblock-adaptive fields: not frame_mbs_only_flag. */
PV_EXPORT PVStatus KivH264Bridge_GetSPSIsInterlaced(const uint8_t *sps, size_t length, bool *isInterlacedOut);

/* Frames per second, from time_scale and num_units_in_tick. A frame takes two ticks, so the rate is time_scale / (2 x
 * num_units_in_tick). It is not halved for one configuration: field pictures whose order the set itself lays out
 * (frame_mbs_only_flag, mb_adaptive_frame_field_flag and pic_struct_present_flag 0, pic_order_cnt_type 1), where a
 * picture is a field of one tick (Table E-6) and the rate is that of fields. With the other types of order count the
 * same flags are as often found on frames that are only marked as interlaced; their rate is that of frames.
 *
 * *fixedFrameRateOut is fixed_frame_rate_flag. *picStructPresentOut (pic_struct_present_flag) and *hrdPresentOut (NAL
 * or VCL) say what picture timing messages carry, and *delayBitsOut how many bits their two delays take:
 * cpb_removal_delay_length_minus1 + dpb_output_delay_length_minus1 + 2, those of the NAL HRD when both are present, 0
 * without HRD. When the usability information breaks off inside the HRD parameters, these count as absent, and
 * *picStructPresentOut is false.
 *
 * kKivBridgeError_InvalidParameter without timing information, or when either of its numbers is 0. */
PV_EXPORT PVStatus KivH264Bridge_GetSPS_VUI_Framerate(const uint8_t *sps, size_t length, float *framesPerSecondOut,
                                                      bool *fixedFrameRateOut, bool *picStructPresentOut,
                                                      bool *hrdPresentOut, uint32_t *delayBitsOut);

/* How picture order counts of type 1 go on from frame to frame (7.4.2.1.1, 8.2.1.2). */
typedef struct KivH264PicOrderCntCycle {
  int32_t offsetForNonRefPic;
  int32_t offsetForTopToBottomField;
  uint32_t numRefFrames; /* 0 to 255 */
  int32_t offsetForRefFrame[255]; /* the first numRefFrames of them; the others are 0 */
} KivH264PicOrderCntCycle;

/* The cycle that a set with pic_order_cnt_type 1 codes; cycleOut is required. kKivBridgeError_InvalidParameter for sets
 * of another type, kKivBridgeError_UnreadableData when one of the offsets takes more than 32 bits. What stands behind
 * the cycle is not read. */
PV_EXPORT PVStatus KivH264Bridge_GetSPSPicOrderCntCycle(const uint8_t *sps, size_t length,
                                                        KivH264PicOrderCntCycle *cycleOut);

/* The sample aspect ratio. An indicator of 0 or 17 to 254 says nothing: success, and nothing is written. */
PV_EXPORT PVStatus KivH264Bridge_GetSPS_VUI_AspectRatio(const uint8_t *sps, size_t length, uint32_t *horizontalOut,
                                                        uint32_t *verticalOut);

/* The colour description, as coded (Tables E-3, E-4, E-5). */
PV_EXPORT PVStatus KivH264Bridge_GetSPS_VUI_NCLC(const uint8_t *sps, size_t length, uint32_t *colourPrimariesOut,
                                                 uint32_t *transferCharacteristicsOut, uint32_t *matrixCoefficientsOut);

/* video_full_range_flag; false when there is usability information without a video signal type. */
PV_EXPORT PVStatus KivH264Bridge_GetSPS_VUI_FullRangeVideo(const uint8_t *sps, size_t length, bool *fullRangeOut);

/* The chroma sample location types, as coded (Figure E-1). */
PV_EXPORT PVStatus KivH264Bridge_GetSPS_VUI_ChromaLocation(const uint8_t *sps, size_t length, uint32_t *topFieldOut,
                                                           uint32_t *bottomFieldOut);

/* The set's own ID. */
PV_EXPORT PVStatus KivH264Bridge_GetSPSSequenceID(const uint8_t *sps, size_t length, uint32_t *spsIDOut);

/* --- Picture parameter sets --- */

/* Parses a set into *out, which is required. Reading ends behind redundant_pic_cnt_present_flag; what follows depends
 * on the sequence parameter set. kKivBridgeError_UnreadableData also for more than 8 slice groups or a map type above
 * 6. */
PV_EXPORT PVStatus KivH264Bridge_ParsePPS(const uint8_t *pps, size_t length, KivH264ParsedPPS *out);

/* The set's own ID, and that of the sequence parameter set it refers to. Nothing behind them is read. */
PV_EXPORT PVStatus KivH264Bridge_GetPPSSequenceID(const uint8_t *pps, size_t length, uint32_t *ppsIDOut,
                                                  uint32_t *spsIDOut);

/* --- The 'avcC' record --- */

/* Builds the record of count parameter sets (SPS, PPS, SPS extensions, in any order; at least one of the first two),
 * for samples whose NAL units are led by lengths of nalUnitHeaderLength bytes (1, 2 or 4). Sets are sorted by their
 * IDs. The profile and level are the greatest of all sequence parameter sets; of the constraint flags those that all of
 * them set. For profiles 100, 110, 122 and 144 the record ends with the chroma format, the bit depths (their low two
 * and three bits) and the SPS extensions; for others the extensions stand among the sequence parameter sets.
 *
 * The record is a new data object that the caller releases. Width and height are those that all sequence parameter sets
 * share; 0 when they differ or one of them cannot be read to its end. Both may be NULL; on failure they are 0 and
 * *avcCOut, which is required, is NULL.
 *
 * kKivBridgeError_InvalidParameter: a null array, fewer than two sets, another nalUnitHeaderLength; a null set, one of
 * 0 or more than 65,535 bytes, a NAL unit whose header is not one of a parameter set (forbidden bit, nal_ref_idc 0,
 * another type); sequence parameter sets of the four profiles that differ in chroma format or bit depth; none of either
 * kind, or too many of one kind (32 sequence, 256 picture, 256 extensions). kKivBridgeError_UnreadableData: an ID that
 * cannot be read, or one of the chroma format and bit depths of those profiles. kKivBridgeError_AllocationFailed,
 * kKivBridgeError_NoMemoryForCopy. */
PV_EXPORT PVStatus KivH264Bridge_CreateAVCCFromH264ParameterSets(BRAllocatorRef allocator, size_t count,
                                                                 const uint8_t *const *pointers, const size_t *sizes,
                                                                 int32_t nalUnitHeaderLength, int32_t *widthOut,
                                                                 int32_t *heightOut, BRDataRef *avcCOut);

/* The same for one set of each kind. */
PV_EXPORT PVStatus KivH264Bridge_CreateAVCCFromSPSAndPPS(BRAllocatorRef allocator, const uint8_t *sps, size_t spsSize,
                                                         const uint8_t *pps, size_t ppsSize,
                                                         int32_t nalUnitHeaderLength, BRDataRef *avcCOut);

/* The index-th parameter set of a record: sequence, then picture, then extension sets. *pointerOut is lent by the data
 * object, *countOut is the number of all sets. Each output may be NULL; with neither pointer nor size asked for, any
 * index will do. On failure pointer, size, count and header length are NULL and 0. kKivBridgeError_InvalidParameter:
 * not a data object, less than 6 bytes, a version other than 1, a count, length or set that reaches past the end, or no
 * such index. */
PV_EXPORT PVStatus KivH264Bridge_GetH264ParameterSetAtIndex(BRDataRef avcC, size_t index, const uint8_t **pointerOut,
                                                            size_t *sizeOut, size_t *countOut,
                                                            int32_t *nalUnitHeaderLengthOut);

/* The numbers of sequence and of picture parameter sets; 0 on failure. Fails as above, but does not look at what
 * follows the picture parameter sets. */
PV_EXPORT PVStatus KivH264Bridge_GetSPSAndPPSCountFromAVCC(BRDataRef avcC, size_t *spsCountOut, size_t *ppsCountOut);

/* 1 to 4; 0 on failure. Fails as above, but looks at the first 6 bytes only. */
PV_EXPORT PVStatus KivH264Bridge_GetNALUnitHeaderLengthFromAVCC(BRDataRef avcC, int32_t *nalUnitHeaderLengthOut);

/* The index-th sequence, or picture, parameter set of a record in plain memory. *pointerOut points into it. Fails as
 * KivH264Bridge_GetSPSAndPPSCountFromAVCC does, and when there is no such index. */
PV_EXPORT PVStatus KivH264Bridge_GetSPSFromAVCC(const uint8_t *avcC, size_t length, size_t index,
                                                const uint8_t **pointerOut, size_t *lengthOut);
PV_EXPORT PVStatus KivH264Bridge_GetPPSFromAVCC(const uint8_t *avcC, size_t length, size_t index,
                                                const uint8_t **pointerOut, size_t *lengthOut);

/* --- Emulation prevention --- */

/* A new data object, which the caller releases, without the emulation prevention bytes: every 03 that follows two zero
 * bytes goes. NULL when data is NULL or memory runs out. */
PV_EXPORT BRDataRef KivH264Bridge_CopyDataWithEmulationPreventionBytesRemoved(BRAllocatorRef allocator, BRDataRef data);

PV_END_DECLS

#endif
