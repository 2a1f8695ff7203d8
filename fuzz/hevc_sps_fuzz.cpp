// Asks any bytes, as a sequence parameter set, every question; the answers must agree with the parsed record.
#include <kiv/hevc_bridge.h>

#include <cstdlib>
#include <vector>

namespace {

void require(bool holds) {
  if (!holds) std::abort();
}

bool isKnown(PVStatus status) {
  return status == 0 || status == kKivBridgeError_InvalidParameter ||
         status == kKivBridgeError_UnreadableData;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* input, size_t length) {
  const std::vector<uint8_t> unit(input, input + length);
  const uint8_t* bytes = unit.data();
  KivHEVCParsedSPS sps;
  const PVStatus status = KivHEVCBridge_ParseSPS(bytes, length, &sps);
  require(isKnown(status));
  int32_t width = 0, height = 0;
  uint32_t id = 99, a = 0, b = 0, c = 0;
  bool flag = false;
  float rate = 0;
  require(KivHEVCBridge_GetSPSWidthAndHeight(bytes, length, &width, &height) == status);
  require(KivHEVCBridge_GetSPSSequenceID(bytes, length, &id) == status);
  const PVStatus ratio = KivHEVCBridge_GetSPS_VUI_AspectRatio(bytes, length, &a, &b);
  const PVStatus colours = KivHEVCBridge_GetSPS_VUI_NCLC(bytes, length, &a, &b, &c);
  const PVStatus range = KivHEVCBridge_GetSPS_VUI_FullRangeVideo(bytes, length, &flag);
  const PVStatus chroma = KivHEVCBridge_GetSPS_VUI_ChromaLocation(bytes, length, &a, &b);
  const PVStatus interlaced = KivHEVCBridge_GetSPSIsInterlaced(bytes, length, &flag);
  const PVStatus timing = KivHEVCBridge_GetSPS_VUI_Framerate(bytes, length, &rate, &flag, &flag, &flag, &a);
  for (const PVStatus each : {ratio, colours, range, chroma, interlaced, timing}) {
    require(isKnown(each));
    require(status == 0 || each == status);
  }
  if (status != 0) return 0;
  require(width > 0 && height > 0 && static_cast<uint32_t>(width) <= sps.picWidthInLumaSamples &&
          static_cast<uint32_t>(height) <= sps.picHeightInLumaSamples);
  require(id == sps.spsID && id < 16 && sps.bitDepthLuma <= 16 && sps.maxSubLayers <= 7);
  require(sps.vuiPresent || (sps.vui.lastPartRead == 0 && interlaced == 0));
  require((ratio == 0) == sps.vui.aspectRatioInfoPresent);
  require((colours == 0) == sps.vui.colourDescriptionPresent);
  require((chroma == 0) == sps.vui.chromaLocInfoPresent);
  require(timing != 0 || (sps.vui.timingInfoPresent && rate > 0 && a <= 64));
  require(sps.minSpatialSegmentationIdc <= 4095);
  return 0;
}
