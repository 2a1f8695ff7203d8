// Parses any bytes as a picture parameter set.
#include <kiv/hevc_bridge.h>

#include <cstdlib>
#include <vector>

namespace {

void require(bool holds) {
  if (!holds) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* input, size_t length) {
  const std::vector<uint8_t> unit(input, input + length);
  KivHEVCParsedPPS pps;
  uint32_t ppsID = 99, spsID = 99;
  const PVStatus ids = KivHEVCBridge_GetPPSSequenceID(unit.data(), length, &ppsID, &spsID);
  const PVStatus status = KivHEVCBridge_ParsePPS(unit.data(), length, &pps);
  require(ids == 0 || ids == kKivBridgeError_InvalidParameter || ids == kKivBridgeError_UnreadableData);
  require(status == ids || (ids == 0 && status == kKivBridgeError_UnreadableData));
  require(ids == 0 ? ppsID < 64 && spsID < 16 : ppsID == 99 && spsID == 99);
  require(status != 0 || (pps.ppsID == ppsID && pps.spsID == spsID));
  return 0;
}
