// Finding parameter sets in the 'avcC' record.
#include "codecs/h264_avcc.hpp"

#include <bedra/data.h>
#include <bedra/runtime.h>

#include "runtime/error.hpp"

namespace {

using namespace pv;
using h264::AVCCWalker;

// Takes the index-th of the sets that it is shown.
struct Finder {
  size_t index;
  const uint8_t* found = nullptr;
  size_t size = 0;
  size_t seen = 0;

  auto visitor() {
    return [this](const uint8_t* bytes, size_t length) {
      if (seen++ != index) return;
      found = bytes;
      size = length;
    };
  }
};

constexpr auto kIgnore = [](const uint8_t*, size_t) {};

PVStatus answer(const Finder& finder, const uint8_t** pointerOut, size_t* lengthOut) {
  if (!finder.found) return signalError(kKivBridgeError_InvalidParameter);
  if (pointerOut) *pointerOut = finder.found;
  if (lengthOut) *lengthOut = finder.size;
  return kPVStatus_Success;
}

}  // namespace

bool h264::isAVCC(BRDataRef record) {
  return record && BRGetTypeID(record) == BRDataGetTypeID() &&
         isAVCC(BRDataGetBytePtr(record), BRDataGetLength(record));
}

PVStatus KivH264Bridge_GetH264ParameterSetAtIndex(BRDataRef avcC, size_t index, const uint8_t** pointerOut,
                                                  size_t* sizeOut, size_t* countOut,
                                                  int32_t* nalUnitHeaderLengthOut) {
  if (pointerOut) *pointerOut = nullptr;
  if (sizeOut) *sizeOut = 0;
  if (countOut) *countOut = 0;
  if (nalUnitHeaderLengthOut) *nalUnitHeaderLengthOut = 0;
  if (!h264::isAVCC(avcC)) return signalError(kKivBridgeError_InvalidParameter);
  AVCCWalker walker(BRDataGetBytePtr(avcC), BRDataGetLength(avcC));
  Finder finder{index};
  size_t count = walker.sequenceSets(finder.visitor());
  count += walker.pictureSets(finder.visitor());
  count += walker.extensionSets(finder.visitor());
  if (!walker.ok()) return signalError(kKivBridgeError_InvalidParameter);
  if (pointerOut || sizeOut)
    if (PVStatus status = answer(finder, pointerOut, sizeOut)) return status;
  if (countOut) *countOut = count;
  if (nalUnitHeaderLengthOut) *nalUnitHeaderLengthOut = h264::nalUnitHeaderLengthOf(BRDataGetBytePtr(avcC));
  return kPVStatus_Success;
}

PVStatus KivH264Bridge_GetSPSAndPPSCountFromAVCC(BRDataRef avcC, size_t* spsCountOut, size_t* ppsCountOut) {
  if (spsCountOut) *spsCountOut = 0;
  if (ppsCountOut) *ppsCountOut = 0;
  if (!h264::isAVCC(avcC)) return signalError(kKivBridgeError_InvalidParameter);
  AVCCWalker walker(BRDataGetBytePtr(avcC), BRDataGetLength(avcC));
  const size_t spsCount = walker.sequenceSets(kIgnore);
  const size_t ppsCount = walker.pictureSets(kIgnore);
  if (!walker.ok()) return signalError(kKivBridgeError_InvalidParameter);
  if (spsCountOut) *spsCountOut = spsCount;
  if (ppsCountOut) *ppsCountOut = ppsCount;
  return kPVStatus_Success;
}

PVStatus KivH264Bridge_GetNALUnitHeaderLengthFromAVCC(BRDataRef avcC, int32_t* nalUnitHeaderLengthOut) {
  if (nalUnitHeaderLengthOut) *nalUnitHeaderLengthOut = 0;
  if (!h264::isAVCC(avcC)) return signalError(kKivBridgeError_InvalidParameter);
  if (nalUnitHeaderLengthOut) *nalUnitHeaderLengthOut = h264::nalUnitHeaderLengthOf(BRDataGetBytePtr(avcC));
  return kPVStatus_Success;
}

PVStatus KivH264Bridge_GetSPSFromAVCC(const uint8_t* avcC, size_t length, size_t index,
                                      const uint8_t** pointerOut, size_t* lengthOut) {
  if (!h264::isAVCC(avcC, length)) return signalError(kKivBridgeError_InvalidParameter);
  AVCCWalker walker(avcC, length);
  Finder finder{index};
  walker.sequenceSets(finder.visitor());
  walker.pictureSets(kIgnore);
  if (!walker.ok()) return signalError(kKivBridgeError_InvalidParameter);
  return answer(finder, pointerOut, lengthOut);
}

PVStatus KivH264Bridge_GetPPSFromAVCC(const uint8_t* avcC, size_t length, size_t index,
                                      const uint8_t** pointerOut, size_t* lengthOut) {
  if (!h264::isAVCC(avcC, length)) return signalError(kKivBridgeError_InvalidParameter);
  AVCCWalker walker(avcC, length);
  Finder finder{index};
  walker.sequenceSets(kIgnore);
  walker.pictureSets(finder.visitor());
  if (!walker.ok()) return signalError(kKivBridgeError_InvalidParameter);
  return answer(finder, pointerOut, lengthOut);
}
