// The questions that one parameter set answers. Each parses the whole set.
#include "codecs/h264_parameter_sets.hpp"
#include "codecs/usability.hpp"
#include "runtime/error.hpp"

namespace {

using namespace pv;

// Asks the set: answer(parsed) gives the status, signalled if it is not 0.
template <class Answer>
PVStatus askSPS(const uint8_t* bytes, size_t length, Answer answer) {
  KivH264ParsedSPS sps;
  const PVStatus status = h264::parseUnit(bytes, length, h264::kSPS, h264::PullParamSetSPS, sps);
  return status ? signalError(status) : answer(sps);
}

template <class Answer>
PVStatus askPPS(const uint8_t* bytes, size_t length, bool (*pull)(BitReader&, KivH264ParsedPPS&),
                Answer answer) {
  KivH264ParsedPPS pps;
  const PVStatus status = h264::parseUnit(bytes, length, h264::kPPS, pull, pps);
  return status ? signalError(status) : answer(pps);
}

template <class Value>
void write(Value* out, Value value) {
  if (out) *out = value;
}

// Pictures are fields, as far as a set can tell. The flags alone do not: encoders set them for frames, too.
bool hasPlainFields(const KivH264ParsedSPS& sps) {
  return sps.vui.lastPartRead >= kKivVideoUsabilityPart_HRD && !sps.frameMbsOnly &&
         !sps.mbAdaptiveFrameField && !sps.picStructPresent && sps.picOrderCntType == 1;
}

}  // namespace

PVStatus KivH264Bridge_ParseSPS(const uint8_t* bytes, size_t length, KivH264ParsedSPS* out) {
  if (!out) return signalError(kKivBridgeError_InvalidParameter);
  return askSPS(bytes, length, [=](const KivH264ParsedSPS& sps) {
    *out = sps;
    return kPVStatus_Success;
  });
}

PVStatus KivH264Bridge_ParsePPS(const uint8_t* bytes, size_t length, KivH264ParsedPPS* out) {
  if (!out) return signalError(kKivBridgeError_InvalidParameter);
  return askPPS(bytes, length, h264::pullPPS, [=](const KivH264ParsedPPS& pps) {
    *out = pps;
    return kPVStatus_Success;
  });
}

PVStatus KivH264Bridge_GetWidthAndHeightFromParsedSPS(const KivH264ParsedSPS* sps, int32_t* widthOut,
                                                      int32_t* heightOut) {
  if (!sps) return signalError(kKivBridgeError_InvalidParameter);
  int32_t width, height;
  if (!h264::frameSize(*sps, width, height)) return signalError(kKivBridgeError_UnreadableData);
  write(widthOut, width);
  write(heightOut, height);
  return kPVStatus_Success;
}

PVStatus KivH264Bridge_GetSPSWidthAndHeight(const uint8_t* bytes, size_t length, int32_t* widthOut,
                                            int32_t* heightOut) {
  return askSPS(bytes, length, [=](const KivH264ParsedSPS& sps) {
    return KivH264Bridge_GetWidthAndHeightFromParsedSPS(&sps, widthOut, heightOut);
  });
}

PVStatus KivH264Bridge_GetSPSIsInterlaced(const uint8_t* bytes, size_t length, bool* isInterlacedOut) {
  return askSPS(bytes, length, [=](const KivH264ParsedSPS& sps) {
    write(isInterlacedOut, !sps.frameMbsOnly);
    return PVStatus{kPVStatus_Success};
  });
}

PVStatus KivH264Bridge_GetSPSPicOrderCntCycle(const uint8_t* bytes, size_t length,
                                              KivH264PicOrderCntCycle* cycleOut) {
  if (!cycleOut) return signalError(kKivBridgeError_InvalidParameter);
  h264::PicOrderCntCycle cycle;
  PVStatus status = h264::parseUnit(bytes, length, h264::kSPS, h264::pullPicOrderCntCycle, cycle);
  if (!status && !cycle.present) status = kKivBridgeError_InvalidParameter;
  if (status) return signalError(status);
  *cycleOut = cycle;
  return kPVStatus_Success;
}

PVStatus KivH264Bridge_GetSPS_VUI_Framerate(const uint8_t* bytes, size_t length, float* framesPerSecondOut,
                                            bool* fixedFrameRateOut, bool* picStructPresentOut,
                                            bool* hrdPresentOut, uint32_t* delayBitsOut) {
  return askSPS(bytes, length, [=](const KivH264ParsedSPS& sps) {
    double rate;
    if (PVStatus status = nal::timing(sps.vuiPresent, sps.vui, &rate)) return status;
    if (!hasPlainFields(sps)) rate /= 2;
    write(framesPerSecondOut, static_cast<float>(rate));
    write(fixedFrameRateOut, sps.fixedFrameRate);
    write(picStructPresentOut, sps.picStructPresent);
    write(hrdPresentOut, sps.nalHRDPresent || sps.vclHRDPresent);
    write(delayBitsOut, sps.cpbRemovalDelayLength + sps.dpbOutputDelayLength);
    return PVStatus{kPVStatus_Success};
  });
}

PVStatus KivH264Bridge_GetSPS_VUI_AspectRatio(const uint8_t* bytes, size_t length, uint32_t* horizontalOut,
                                              uint32_t* verticalOut) {
  return askSPS(bytes, length, [=](const KivH264ParsedSPS& sps) {
    return nal::aspectRatio(sps.vuiPresent, sps.vui, horizontalOut, verticalOut);
  });
}

PVStatus KivH264Bridge_GetSPS_VUI_NCLC(const uint8_t* bytes, size_t length, uint32_t* colourPrimariesOut,
                                       uint32_t* transferCharacteristicsOut,
                                       uint32_t* matrixCoefficientsOut) {
  return askSPS(bytes, length, [=](const KivH264ParsedSPS& sps) {
    return nal::colourDescription(sps.vuiPresent, sps.vui, colourPrimariesOut, transferCharacteristicsOut,
                                  matrixCoefficientsOut);
  });
}

PVStatus KivH264Bridge_GetSPS_VUI_FullRangeVideo(const uint8_t* bytes, size_t length, bool* fullRangeOut) {
  return askSPS(bytes, length, [=](const KivH264ParsedSPS& sps) {
    return nal::fullRange(sps.vuiPresent, sps.vui, fullRangeOut);
  });
}

PVStatus KivH264Bridge_GetSPS_VUI_ChromaLocation(const uint8_t* bytes, size_t length, uint32_t* topFieldOut,
                                                 uint32_t* bottomFieldOut) {
  return askSPS(bytes, length, [=](const KivH264ParsedSPS& sps) {
    return nal::chromaLocation(sps.vuiPresent, sps.vui, topFieldOut, bottomFieldOut);
  });
}

PVStatus KivH264Bridge_GetSPSSequenceID(const uint8_t* bytes, size_t length, uint32_t* spsIDOut) {
  return askSPS(bytes, length, [=](const KivH264ParsedSPS& sps) {
    write(spsIDOut, sps.seqParameterSetID);
    return kPVStatus_Success;
  });
}

PVStatus KivH264Bridge_GetPPSSequenceID(const uint8_t* bytes, size_t length, uint32_t* ppsIDOut,
                                        uint32_t* spsIDOut) {
  return askPPS(bytes, length, h264::pullPPSBeginning, [=](const KivH264ParsedPPS& pps) {
    write(ppsIDOut, pps.picParameterSetID);
    write(spsIDOut, pps.seqParameterSetID);
    return kPVStatus_Success;
  });
}

BRDataRef KivH264Bridge_CopyDataWithEmulationPreventionBytesRemoved(BRAllocatorRef allocator,
                                                                    BRDataRef data) {
  return nal::copyWithoutEmulationBytes(allocator, data);
}
