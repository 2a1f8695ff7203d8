// Reading H.264 slice headers (ITU-T H.264 7.3.3).
#ifndef PEVRIN_CODECS_H264_SLICE_HEADER_HPP
#define PEVRIN_CODECS_H264_SLICE_HEADER_HPP

#include <kiv/h264_slice.h>

#include "codecs/h264_parameter_sets.hpp"

namespace pv::h264 {

constexpr uint32_t kMostPPSID = 255;
constexpr uint32_t kMostSPSID = 31;

// What is kept of a header; the rest is only stepped over.
using SliceHeader = KivH264SlicePicture;

// False: it cannot be read.

// The NAL unit's header byte, and on to pic_parameter_set_id.
bool pullSliceBeginning(BitReader& reader, SliceHeader& slice);
// From there to bottom_field_flag.
bool pullSliceStructure(BitReader& reader, const KivH264ParsedSPS& sps, SliceHeader& slice);
// From pic_parameter_set_id to behind dec_ref_pic_marking: all that is kept.
bool pullSlicePicture(BitReader& reader, const KivH264ParsedSPS& sps, const KivH264ParsedPPS& pps,
                      SliceHeader& slice);
// From pic_parameter_set_id to the end.
bool PullSliceHeader(BitReader& reader, const KivH264ParsedSPS& sps, const KivH264ParsedPPS& pps,
                     SliceHeader& slice);

constexpr bool hasSliceHeader(uint8_t type) {
  return type == kSlice || type == kPartitionA || type == kIDRSlice || type == kAuxiliarySlice;
}

// Pulls from the head of the slice: pull(reader) gives a status, and runs again with more of the slice when
// the reader has run out. Nothing is signalled.
template <class Pull>
PVStatus readSliceHead(const uint8_t* unit, size_t length, Pull pull) {
  if (!unit || length == 0 || !hasSliceHeader(typeOf(unit))) return kKivBridgeError_InvalidParameter;
  constexpr size_t kUsually = 512, kAtMost = 4096;
  for (const size_t window : {kUsually, kAtMost}) {
    const nal::Rbsp payload(unit, length, window);
    if (!payload.ok()) return kKivBridgeError_NoMemoryForCopy;
    BitReader reader(payload.bytes(), payload.length());
    const PVStatus status = pull(reader);
    if (!reader.ranOut() || length <= window) return status;
  }
  return kKivBridgeError_UnreadableData;
}

inline KivH264InterlaceType interlaceTypeOf(const KivH264ParsedSPS& sps, const SliceHeader& slice) {
  if (slice.fieldPic)
    return slice.bottomField ? kKivH264InterlaceType_BottomField : kKivH264InterlaceType_TopField;
  return sps.mbAdaptiveFrameField ? kKivH264InterlaceType_MBAFFFrame : kKivH264InterlaceType_Frame;
}

struct MeasuredSliceHeader {
  size_t bits;        // in the payload
  size_t clearBytes;  // of the unit
  SliceHeader slice;
  KivH264InterlaceType interlaceType;
};

// Reads and measures a slice's header. findSets(ppsID, sps, pps) points to the sets; false when they are not
// there. Nothing is signalled.
template <class FindSets>
PVStatus measureSliceHeader(const uint8_t* unit, size_t length, FindSets findSets, MeasuredSliceHeader& out) {
  size_t end = 0;
  const PVStatus status = readSliceHead(unit, length, [&](BitReader& reader) -> PVStatus {
    SliceHeader& slice = out.slice = {};
    const KivH264ParsedSPS* sps;
    const KivH264ParsedPPS* pps;
    if (!pullSliceBeginning(reader, slice)) return kKivBridgeError_UnreadableData;
    if (!findSets(slice.ppsID, sps, pps)) return kKivBridgeError_InvalidParameter;
    if (!PullSliceHeader(reader, *sps, *pps, slice)) return kKivBridgeError_UnreadableData;
    end = reader.position();
    out.interlaceType = interlaceTypeOf(*sps, slice);
    return kPVStatus_Success;
  });
  if (status) return status;
  out.bits = end - kUnitHeaderBits;
  out.clearBytes = nal::offsetInUnit(unit, length, (end + 7) / 8);
  return kPVStatus_Success;
}

}  // namespace pv::h264

#endif
