// The questions about one slice, whose parameter sets come with it.
#include "codecs/h264_slice_header.hpp"
#include "runtime/error.hpp"

namespace {

using namespace pv;

// Pulls the slice's beginning and, with a sequence parameter set, its structure.
PVStatus readSlice(const uint8_t* unit, size_t length, const KivH264ParsedSPS* sps,
                   h264::SliceHeader& slice) {
  return h264::readSliceHead(unit, length, [&](BitReader& reader) -> PVStatus {
    slice = {};
    if (!h264::pullSliceBeginning(reader, slice)) return kKivBridgeError_UnreadableData;
    if (sps && !h264::pullSliceStructure(reader, *sps, slice)) return kKivBridgeError_UnreadableData;
    return kPVStatus_Success;
  });
}

}  // namespace

PVStatus KivH264Bridge_GetPPSSequenceIDFromSlice(const uint8_t* bytes, size_t length, uint32_t* ppsIDOut) {
  h264::SliceHeader slice;
  if (PVStatus status = readSlice(bytes, length, nullptr, slice)) return signalError(status);
  if (ppsIDOut) *ppsIDOut = slice.ppsID;
  return kPVStatus_Success;
}

PVStatus KivH264Bridge_GetInterlaceTypeFromSlice(const uint8_t* bytes, size_t length, const uint8_t* spsBytes,
                                                 size_t spsLength, KivH264InterlaceType* typeOut) {
  KivH264ParsedSPS sps;
  if (PVStatus status = h264::parseUnit(spsBytes, spsLength, h264::kSPS, h264::PullParamSetSPS, sps))
    return signalError(status);
  h264::SliceHeader slice;
  if (PVStatus status = readSlice(bytes, length, &sps, slice)) return signalError(status);
  if (typeOut) *typeOut = h264::interlaceTypeOf(sps, slice);
  return kPVStatus_Success;
}

PVStatus KivH264Bridge_MeasureSliceHeader(const uint8_t* bytes, size_t length, const uint8_t* spsBytes,
                                          size_t spsLength, const uint8_t* ppsBytes, size_t ppsLength,
                                          size_t* headerBitsOut, size_t* clearBytesOut) {
  KivH264ParsedSPS sps;
  KivH264ParsedPPS pps;
  if (PVStatus status = h264::parseUnit(spsBytes, spsLength, h264::kSPS, h264::PullParamSetSPS, sps))
    return signalError(status);
  if (PVStatus status = h264::parseUnit(ppsBytes, ppsLength, h264::kPPS, h264::pullPPS, pps))
    return signalError(status);
  const auto findSets = [&](uint32_t ppsID, const KivH264ParsedSPS*& spsOut,
                            const KivH264ParsedPPS*& ppsOut) {
    spsOut = &sps;
    ppsOut = &pps;
    return ppsID == pps.picParameterSetID && pps.seqParameterSetID == sps.seqParameterSetID;
  };
  h264::MeasuredSliceHeader header;
  if (PVStatus status = h264::measureSliceHeader(bytes, length, findSets, header)) return signalError(status);
  if (headerBitsOut) *headerBitsOut = header.bits;
  if (clearBytesOut) *clearBytesOut = header.clearBytes;
  return kPVStatus_Success;
}

PVStatus KivH264Bridge_GetSlicePicture(const uint8_t* bytes, size_t length, const KivH264ParsedSPS* sps,
                                       const KivH264ParsedPPS* pps, KivH264SlicePicture* pictureOut) {
  if (!sps || !pps || !pictureOut || pps->seqParameterSetID != sps->seqParameterSetID)
    return signalError(kKivBridgeError_InvalidParameter);
  h264::SliceHeader slice;
  const PVStatus status = h264::readSliceHead(bytes, length, [&](BitReader& reader) -> PVStatus {
    slice = {};
    if (!h264::pullSliceBeginning(reader, slice)) return kKivBridgeError_UnreadableData;
    if (slice.ppsID != pps->picParameterSetID) return kKivBridgeError_InvalidParameter;
    if (!h264::pullSlicePicture(reader, *sps, *pps, slice)) return kKivBridgeError_UnreadableData;
    return kPVStatus_Success;
  });
  if (status) return signalError(status);
  *pictureOut = slice;
  return kPVStatus_Success;
}
