/* What the header of an H.264 slice says (ITU-T H.264 7.3.3): which picture the slice belongs to, and where the header
 * ends: samples are encrypted behind it, so that readers without a key can still follow the stream.
 *
 * A slice is given as its NAL unit, as parameter sets are (<kiv/h264_bridge.h>): header byte first, without start code
 * or length field, emulation prevention bytes left in. It is a slice when its type is 1 or 5 (coded slice), 2 (data
 * partition A) or 19 (slice of an auxiliary picture); data partitions B and C have no slice header, and slices of
 * scalable or multiview layers (20, 21) another one. Only the beginning of a slice is looked at, 4096 bytes at most.
 *
 * Codes are read at the length that the standard allows: first_mb_in_slice and idr_pic_id may be larger than anything
 * in a parameter set. Out-parameters are written only on success; each may be NULL unless it is said to be required.
 * Statuses (<kiv/bridge.h>) of every function:
 *   kKivBridgeError_InvalidParameter   a null pointer, a length of 0, not a slice or parameter set, or a set that the
 *                                      slice does not refer to
 *   kKivBridgeError_UnreadableData     the header, or a set, ends too early or holds a value that reading on depends on
 *                                      and that cannot be: a slice_type above 9, a pic_parameter_set_id above 255, a
 *                                      frame_num or picture order count of more than 16 bits, more than 32 reference
 *                                      pictures in a list, an unknown way to modify a list or mark a picture
 *   kKivBridgeError_NoMemoryForCopy    memory ran out for removing emulation prevention bytes (uncommonly long headers
 *                                      only)
 *
 * Threads: any. A parsing info does not change.
 *
 *   size_t clear;
 *   if (KivH264Bridge_MeasureSliceHeader(slice, length, sps, spsLength, pps, ppsLength, NULL, &clear) == 0)
 *     encrypt(slice + clear, length - clear); */
#ifndef KIV_H264_SLICE_H
#define KIV_H264_SLICE_H

#include <kiv/h264_bridge.h>

PV_BEGIN_DECLS

/* What the picture of a slice is. */
typedef int32_t KivH264InterlaceType;
enum {
  kKivH264InterlaceType_Frame = 0,      /* of a progressive or an interlaced stream */
  kKivH264InterlaceType_MBAFFFrame = 1, /* a frame in which each pair of macroblocks is frame or field coded */
  kKivH264InterlaceType_TopField = 2,
  kKivH264InterlaceType_BottomField = 3
};

/* What the header of one slice says. */
typedef struct KivH264SliceInformation {
  size_t offset;     /* of the NAL unit's header byte: in the sample buffer's data, or 0 */
  size_t length;     /* of the NAL unit */
  size_t clearBytes; /* as KivH264Bridge_MeasureSliceHeader counts them */
  uint32_t ppsID;    /* of the picture parameter set that it refers to */
  KivH264InterlaceType interlaceType;
  uint8_t sliceType; /* Table 7-6, modulo 5: 0 P, 1 B, 2 I, 3 SP, 4 SI */
  uint8_t nalUnitType;
  uint8_t nalRefIDC; /* 0: no other picture refers to it */
} KivH264SliceInformation;

/* What a slice says of its picture, with the names of H.264 7.3.3: enough to tell where in a stream a picture begins
 * (7.4.1.2.4) and in which order pictures are shown (8.2.1). Values that the header does not code are 0. */
typedef struct KivH264SlicePicture {
  uint32_t firstMbInSlice;
  uint32_t ppsID;
  uint32_t frameNum;
  uint32_t idrPicID;
  uint32_t picOrderCntLsb;
  int32_t deltaPicOrderCntBottom;
  int32_t deltaPicOrderCnt[2];
  uint32_t redundantPicCnt; /* not 0: a second coding of a picture or of a part of it */
  bool fieldPic;
  bool bottomField;
  bool forgetsReferences; /* memory_management_control_operation 5: frame_num and order count begin again at 0 */
  uint8_t sliceType;      /* as in KivH264SliceInformation */
  uint8_t nalUnitType;
  uint8_t nalRefIDC;
} KivH264SlicePicture;

/* The ID of the picture parameter set that the slice refers to. */
PV_EXPORT PVStatus KivH264Bridge_GetPPSSequenceIDFromSlice(const uint8_t *slice, size_t length, uint32_t *ppsIDOut);

/* What the slice's picture is. sps is the sequence parameter set that the slice refers to by way of its picture
 * parameter set, which is not checked here. */
PV_EXPORT PVStatus KivH264Bridge_GetInterlaceTypeFromSlice(const uint8_t *slice, size_t length, const uint8_t *sps,
                                                           size_t spsLength, KivH264InterlaceType *typeOut);

/* What the slice says of its picture. For readers of streams, who ask it of every slice: the sets are given parsed, as
 * KivH264Bridge_ParseSPS and KivH264Bridge_ParsePPS wrote them. pps must be the set that the slice refers to, and sps
 * the one that pps refers to. All pointers are required. The header is read as far as the marking of reference
 * pictures; what is wrong behind it does not matter. */
PV_EXPORT PVStatus KivH264Bridge_GetSlicePicture(const uint8_t *slice, size_t length, const KivH264ParsedSPS *sps,
                                                 const KivH264ParsedPPS *pps, KivH264SlicePicture *pictureOut);

/* How long the slice header is. *headerBitsOut counts the bits of slice_header in the payload: from behind the NAL
 * unit's header byte, without emulation prevention bytes, to the first bit behind it (slice data, its alignment, or
 * slice_id of a data partition A). *clearBytesOut counts the bytes of the NAL unit as it stands, header byte and
 * emulation prevention bytes included, before the first whole byte behind the slice header: what sample encryption
 * leaves clear (ISO/IEC 23001-7 10.4.2).
 *
 * pps must be the picture parameter set that the slice refers to, and sps the one that pps refers to. */
PV_EXPORT PVStatus KivH264Bridge_MeasureSliceHeader(const uint8_t *slice, size_t length, const uint8_t *sps,
                                                    size_t spsLength, const uint8_t *pps, size_t ppsLength,
                                                    size_t *headerBitsOut, size_t *clearBytesOut);

/* --- Segments ------------------------------------------------------------------------------------------------------
 *
 * For fragmented files, whose samples share the parameter sets of one 'avcC' record: these are parsed once. */

/* The parsed parameter sets of one 'avcC' record. */
typedef struct KivH264HLSfMP4ParsingInfo *KivH264HLSfMP4ParsingInfoRef;

/* Parses all sequence and picture parameter sets of the record; of several with one ID the last counts. The record is
 * not kept. The caller gives the info back with KivH264Bridge_HLSfMP4ParsingInfoDestroy. infoOut is required, and NULL
 * on failure: kKivBridgeError_InvalidParameter for what is not a record or a malformed one,
 * kKivBridgeError_UnreadableData when one of its sets cannot be read or has an ID above 31 (sequence) or 255 (picture),
 * kKivBridgeError_AllocationFailed. */
PV_EXPORT PVStatus KivH264Bridge_CreateHLSfMP4ParsingInfoFromAVCCData(BRAllocatorRef allocator, BRDataRef avcC,
                                                                      KivH264HLSfMP4ParsingInfoRef *infoOut);

/* NULL is nothing. */
PV_EXPORT void KivH264Bridge_HLSfMP4ParsingInfoDestroy(KivH264HLSfMP4ParsingInfoRef info);

/* Whether a NAL unit may be encrypted, which only coded slices (types 1 and 5) may, and how many of its bytes stay
 * clear: those that KivH264Bridge_MeasureSliceHeader counts, or all length bytes of a unit that stays clear.
 * kKivBridgeError_InvalidParameter when the slice refers to a set that was not in the record. */
PV_EXPORT PVStatus KivH264Bridge_LocateSliceHeaderForHLSfMP4EncryptableNAL(KivH264HLSfMP4ParsingInfoRef info,
                                                                           const uint8_t *nalUnit, size_t length,
                                                                           bool *isEncryptableOut,
                                                                           size_t *clearBytesOut);

/* All that is told of one slice whose parameter sets were in the record. Statuses as for
 * KivH264Bridge_MeasureSliceHeader; InvalidParameter, too, when the slice refers to a set that was not. */
PV_EXPORT PVStatus KivH264Bridge_GetSliceInformation(KivH264HLSfMP4ParsingInfoRef info, const uint8_t *nalUnit,
                                                     size_t length, KivH264SliceInformation *informationOut);

PV_END_DECLS

#endif
