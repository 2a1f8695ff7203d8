// Parses any bytes as an H.264 picture parameter set.
#include <kiv/h264_bridge.h>

#include <cstdlib>
#include <vector>

namespace {

void require(bool holds) {
  if (!holds) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* input, size_t length) {
  const std::vector<uint8_t> bytes(input, input + length);
  KivH264ParsedPPS pps;
  uint32_t ppsID = 0, spsID = 0;
  const PVStatus parsed = KivH264Bridge_ParsePPS(bytes.data(), length, &pps);
  const PVStatus asked = KivH264Bridge_GetPPSSequenceID(bytes.data(), length, &ppsID, &spsID);
  for (const PVStatus status : {parsed, asked})
    require(status == 0 || status == kKivBridgeError_InvalidParameter ||
            status == kKivBridgeError_UnreadableData);
  if (parsed != 0) return 0;
  require(asked == 0 && ppsID == pps.picParameterSetID && spsID == pps.seqParameterSetID);
  require(pps.numSliceGroups >= 1 && pps.numSliceGroups <= 8 && pps.sliceGroupMapType <= 6);
  require(pps.numRefIdxL0DefaultActive >= 1 && pps.numRefIdxL1DefaultActive >= 1);
  require((pps.sliceGroupMapType >= 3 && pps.sliceGroupMapType <= 5) == (pps.sliceGroupChangeRate != 0));
  return 0;
}
