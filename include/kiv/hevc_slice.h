/* What the header of an HEVC slice segment says (ITU-T H.265 7.3.6.1), as far as it tells which picture the segment
 * belongs to: where in a stream a picture begins (7.4.2.4.5) and in which order pictures are shown (8.3.1).
 *
 * A slice segment is given as its NAL unit, as parameter sets are (<kiv/hevc_bridge.h>): both header bytes first,
 * without start code or length field, emulation prevention bytes left in. It is one when its type is 0 to 9 or 16 to 21
 * and its layer the base layer (nuh_layer_id 0). Only its beginning is looked at, 512 bytes at most.
 *
 * Out-parameters are required and written only on success. Statuses (<kiv/bridge.h>) of every function:
 *   kKivBridgeError_InvalidParameter   a null pointer, a length of 0, not a slice segment of the base layer, or a set
 *                                      that the segment does not refer to
 *   kKivBridgeError_UnreadableData     the header ends too early or holds a value that cannot be: a
 *                                      slice_pic_parameter_set_id above 63, a slice_type above 2, a segment outside the
 *                                      picture
 *
 * Threads: any. Nothing is shared.
 *
 *   KivHEVCSliceInformation slice;
 *   if (KivHEVCBridge_GetSliceInformation(bytes, length, &sps, &pps, &slice) == 0 && slice.firstSliceSegmentInPic)
 *     beginPicture(slice.picOrderCntLsb); */
#ifndef KIV_HEVC_SLICE_H
#define KIV_HEVC_SLICE_H

#include <kiv/hevc_bridge.h>

PV_BEGIN_DECLS

/* nal_unit_type of slice segments, Table 7-1. The types below 16 whose number is even are of sub-layer non-reference
 * pictures: no picture of the same temporal sub-layer refers to them. */
enum {
  kKivHEVCSlice_TrailN = 0,
  kKivHEVCSlice_RADLN = 6, /* leading pictures that can be decoded from their random access point on */
  kKivHEVCSlice_RADLR = 7,
  kKivHEVCSlice_RASLN = 8, /* leading pictures that also need what stands before their random access point */
  kKivHEVCSlice_RASLR = 9,
  kKivHEVCSlice_BLAWLP = 16, /* 16 to 23: random access points (IRAP) */
  kKivHEVCSlice_BLANLP = 18,
  kKivHEVCSlice_IDRWRADL = 19,
  kKivHEVCSlice_IDRNLP = 20,
  kKivHEVCSlice_CRA = 21
};

/* What the header of a slice segment says, with the names of H.265 7.3.6.1. What a dependent slice segment does not
 * code, because the segment before it does, is 0: sliceType and picOrderCntLsb. */
typedef struct KivHEVCSliceInformation {
  uint8_t nalUnitType;
  uint8_t temporalID; /* 0 to 6 */
  bool firstSliceSegmentInPic;
  bool noOutputOfPriorPics;
  bool dependentSliceSegment;
  uint32_t ppsID;
  uint32_t sliceSegmentAddress; /* in coding tree blocks */
  bool picOutput;               /* true when not coded */
  uint8_t sliceType;            /* Table 7-7: 0 B, 1 P, 2 I */
  uint32_t picOrderCntLsb;      /* 0 for IDR pictures, which do not code it */
} KivHEVCSliceInformation;

/* The ID of the picture parameter set that the segment refers to. */
PV_EXPORT PVStatus KivHEVCBridge_GetPPSSequenceIDFromSlice(const uint8_t *slice, size_t length, uint32_t *ppsIDOut);

/* What the segment's header says, as far as slice_pic_order_cnt_lsb. The sets are given parsed, as
 * KivHEVCBridge_ParseSPS and KivHEVCBridge_ParsePPS wrote them: pps must be the set that the segment refers to, and sps
 * the one that pps refers to. All pointers are required. */
PV_EXPORT PVStatus KivHEVCBridge_GetSliceInformation(const uint8_t *slice, size_t length, const KivHEVCParsedSPS *sps,
                                                     const KivHEVCParsedPPS *pps,
                                                     KivHEVCSliceInformation *informationOut);

PV_END_DECLS

#endif
