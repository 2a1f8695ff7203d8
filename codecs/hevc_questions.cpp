// The questions that one parameter set answers. Each parses the whole set.
#include "codecs/hevc_parameter_sets.hpp"
#include "codecs/usability.hpp"
#include "runtime/error.hpp"

namespace {

using namespace pv;

// Asks the set: answer(parsed) gives the status, signalled if it is not 0.
template <class Answer>
PVStatus askSPS(const uint8_t* bytes, size_t length, Answer answer) {
  KivHEVCParsedSPS sps;
  const PVStatus status = hevc::parseUnit(bytes, length, hevc::kSPS, hevc::hevcbridge_PullParamSetSPS, sps);
  return status ? signalError(status) : answer(sps);
}

template <class Answer>
PVStatus askPPS(const uint8_t* bytes, size_t length, bool (*pull)(BitReader&, KivHEVCParsedPPS&),
                Answer answer) {
  KivHEVCParsedPPS pps;
  const PVStatus status = hevc::parseUnit(bytes, length, hevc::kPPS, pull, pps);
  return status ? signalError(status) : answer(pps);
}

template <class Value>
void write(Value* out, Value value) {
  if (out) *out = value;
}

}  // namespace

PVStatus KivHEVCBridge_ParseSPS(const uint8_t* bytes, size_t length, KivHEVCParsedSPS* out) {
  if (!out) return signalError(kKivBridgeError_InvalidParameter);
  return askSPS(bytes, length, [=](const KivHEVCParsedSPS& sps) {
    *out = sps;
    return kPVStatus_Success;
  });
}

PVStatus KivHEVCBridge_ParsePPS(const uint8_t* bytes, size_t length, KivHEVCParsedPPS* out) {
  if (!out) return signalError(kKivBridgeError_InvalidParameter);
  return askPPS(bytes, length, hevc::pullPPS, [=](const KivHEVCParsedPPS& pps) {
    *out = pps;
    return kPVStatus_Success;
  });
}

PVStatus KivHEVCBridge_GetWidthAndHeightFromParsedSPS(const KivHEVCParsedSPS* sps, int32_t* widthOut,
                                                      int32_t* heightOut) {
  if (!sps) return signalError(kKivBridgeError_InvalidParameter);
  int32_t width, height;
  if (!hevc::pictureSize(*sps, width, height)) return signalError(kKivBridgeError_UnreadableData);
  write(widthOut, width);
  write(heightOut, height);
  return kPVStatus_Success;
}

PVStatus KivHEVCBridge_GetSPSWidthAndHeight(const uint8_t* bytes, size_t length, int32_t* widthOut,
                                            int32_t* heightOut) {
  return askSPS(bytes, length, [=](const KivHEVCParsedSPS& sps) {
    return KivHEVCBridge_GetWidthAndHeightFromParsedSPS(&sps, widthOut, heightOut);
  });
}

PVStatus KivHEVCBridge_GetSPSIsInterlaced(const uint8_t* bytes, size_t length, bool* isInterlacedOut) {
  return askSPS(bytes, length, [=](const KivHEVCParsedSPS& sps) {
    if (sps.vuiPresent && sps.vui.lastPartRead < kKivVideoUsabilityPart_FieldInfo)
      return signalError(kKivBridgeError_UnreadableData);
    write(isInterlacedOut, sps.fieldSeq || (sps.interlacedSource && !sps.progressiveSource));
    return PVStatus{kPVStatus_Success};
  });
}

PVStatus KivHEVCBridge_GetSPS_VUI_Framerate(const uint8_t* bytes, size_t length, float* picturesPerSecondOut,
                                            bool* fixedFrameRateOut, bool* frameFieldInfoPresentOut,
                                            bool* hrdPresentOut, uint32_t* delayBitsOut) {
  return askSPS(bytes, length, [=](const KivHEVCParsedSPS& sps) {
    double ticksPerSecond;
    if (PVStatus status = nal::timing(sps.vuiPresent, sps.vui, &ticksPerSecond)) return status;
    write(picturesPerSecondOut, static_cast<float>(ticksPerSecond));
    write(fixedFrameRateOut, sps.fixedPicRate);
    write(frameFieldInfoPresentOut, sps.frameFieldInfoPresent);
    write(hrdPresentOut, sps.nalHRDPresent || sps.vclHRDPresent);
    write(delayBitsOut, sps.auCpbRemovalDelayLength + sps.dpbOutputDelayLength);
    return PVStatus{kPVStatus_Success};
  });
}

PVStatus KivHEVCBridge_GetSPS_VUI_AspectRatio(const uint8_t* bytes, size_t length, uint32_t* horizontalOut,
                                              uint32_t* verticalOut) {
  return askSPS(bytes, length, [=](const KivHEVCParsedSPS& sps) {
    return nal::aspectRatio(sps.vuiPresent, sps.vui, horizontalOut, verticalOut);
  });
}

PVStatus KivHEVCBridge_GetSPS_VUI_NCLC(const uint8_t* bytes, size_t length, uint32_t* colourPrimariesOut,
                                       uint32_t* transferCharacteristicsOut,
                                       uint32_t* matrixCoefficientsOut) {
  return askSPS(bytes, length, [=](const KivHEVCParsedSPS& sps) {
    return nal::colourDescription(sps.vuiPresent, sps.vui, colourPrimariesOut, transferCharacteristicsOut,
                                  matrixCoefficientsOut);
  });
}

PVStatus KivHEVCBridge_GetSPS_VUI_FullRangeVideo(const uint8_t* bytes, size_t length, bool* fullRangeOut) {
  return askSPS(bytes, length, [=](const KivHEVCParsedSPS& sps) {
    return nal::fullRange(sps.vuiPresent, sps.vui, fullRangeOut);
  });
}

PVStatus KivHEVCBridge_GetSPS_VUI_ChromaLocation(const uint8_t* bytes, size_t length, uint32_t* topFieldOut,
                                                 uint32_t* bottomFieldOut) {
  return askSPS(bytes, length, [=](const KivHEVCParsedSPS& sps) {
    return nal::chromaLocation(sps.vuiPresent, sps.vui, topFieldOut, bottomFieldOut);
  });
}

PVStatus KivHEVCBridge_GetSPSSequenceID(const uint8_t* bytes, size_t length, uint32_t* spsIDOut) {
  return askSPS(bytes, length, [=](const KivHEVCParsedSPS& sps) {
    write(spsIDOut, sps.spsID);
    return kPVStatus_Success;
  });
}

PVStatus KivHEVCBridge_GetPPSSequenceID(const uint8_t* bytes, size_t length, uint32_t* ppsIDOut,
                                        uint32_t* spsIDOut) {
  return askPPS(bytes, length, hevc::pullPPSBeginning, [=](const KivHEVCParsedPPS& pps) {
    write(ppsIDOut, pps.ppsID);
    write(spsIDOut, pps.spsID);
    return kPVStatus_Success;
  });
}

BRDataRef KivHEVCBridge_CopyDataWithEmulationPreventionBytesRemoved(BRAllocatorRef allocator,
                                                                    BRDataRef data) {
  return nal::copyWithoutEmulationBytes(allocator, data);
}
