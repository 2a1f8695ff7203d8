// Asks any bytes everything that an H.264 sequence parameter set can tell; the answers must agree.
#include <kiv/h264_bridge.h>

#include <cstdlib>
#include <vector>

namespace {

void require(bool holds) {
  if (!holds) std::abort();
}

bool isQuestionStatus(PVStatus status) {
  return status == 0 || status == kKivBridgeError_InvalidParameter ||
         status == kKivBridgeError_UnreadableData;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* input, size_t length) {
  const std::vector<uint8_t> bytes(input, input + length);
  const uint8_t* set = bytes.data();
  KivH264ParsedSPS sps;
  const PVStatus parsed = KivH264Bridge_ParseSPS(set, length, &sps);
  require(isQuestionStatus(parsed));

  int32_t width = -1, height = -1, sameWidth = -1, sameHeight = -1;
  bool interlaced = false, fixed, picStruct, hrd, fullRange;
  float rate = -1;
  uint32_t id, bits = 0, a, b, c;
  const PVStatus size = KivH264Bridge_GetSPSWidthAndHeight(set, length, &width, &height);
  const PVStatus timed =
      KivH264Bridge_GetSPS_VUI_Framerate(set, length, &rate, &fixed, &picStruct, &hrd, &bits);
  require(KivH264Bridge_GetSPSIsInterlaced(set, length, &interlaced) == parsed);
  require(KivH264Bridge_GetSPSSequenceID(set, length, &id) == parsed);
  for (const PVStatus status : {size, timed, KivH264Bridge_GetSPS_VUI_AspectRatio(set, length, &a, &b),
                                KivH264Bridge_GetSPS_VUI_NCLC(set, length, &a, &b, &c),
                                KivH264Bridge_GetSPS_VUI_ChromaLocation(set, length, &a, &b),
                                KivH264Bridge_GetSPS_VUI_FullRangeVideo(set, length, &fullRange)})
    require(isQuestionStatus(status) && (parsed == 0 || status == parsed));
  require(size == 0 ? width > 0 && height > 0 : width == -1 && height == -1);
  require(timed == 0 ? rate > 0 && bits <= 64 : rate < 0);
  if (parsed != 0) return 0;

  require(KivH264Bridge_GetWidthAndHeightFromParsedSPS(&sps, &sameWidth, &sameHeight) == size);
  require(width == sameWidth && height == sameHeight && id == sps.seqParameterSetID);
  require(interlaced != sps.frameMbsOnly && sps.picOrderCntType <= 2);
  // What follows the set does not change it.
  std::vector<uint8_t> longer = bytes;
  longer.insert(longer.end(), {0x55, 0xAA, 0x55});
  KivH264ParsedSPS same;
  require(KivH264Bridge_ParseSPS(longer.data(), longer.size(), &same) == 0);
  require(same.seqParameterSetID == id && same.picWidthInMbs == sps.picWidthInMbs);
  return 0;
}
