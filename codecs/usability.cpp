#include "codecs/usability.hpp"

#include <array>

#include "runtime/error.hpp"

namespace pv::nal {

namespace {

constexpr uint8_t kExtendedSAR = 255;
constexpr uint8_t kUnspecifiedFormat = 5;
constexpr uint8_t kUnspecified = 2;

struct Ratio {
  uint8_t width;
  uint8_t height;
};
// Table E-1, by aspect_ratio_idc; the same in both standards.
constexpr std::array<Ratio, 17> kSampleAspectRatioIndicators = {{{0, 0},
                                                                 {1, 1},
                                                                 {12, 11},
                                                                 {10, 11},
                                                                 {16, 11},
                                                                 {40, 33},
                                                                 {24, 11},
                                                                 {20, 11},
                                                                 {32, 11},
                                                                 {80, 33},
                                                                 {18, 11},
                                                                 {15, 11},
                                                                 {64, 33},
                                                                 {160, 99},
                                                                 {4, 3},
                                                                 {3, 2},
                                                                 {2, 1}}};

template <typename To, typename From>
void write(To* out, From value) {
  if (out) *out = value;
}

}  // namespace

void readUsabilityBeginning(BitReader& reader, KivVideoUsability& vui) {
  vui.aspectRatioInfoPresent = reader.flag();
  if (vui.aspectRatioInfoPresent) {
    vui.aspectRatioIdc = static_cast<uint8_t>(reader.bits(8));
    if (vui.aspectRatioIdc == kExtendedSAR) {
      vui.sarWidth = static_cast<uint16_t>(reader.bits(16));
      vui.sarHeight = static_cast<uint16_t>(reader.bits(16));
    }
  }
  vui.overscanInfoPresent = reader.flag();
  if (vui.overscanInfoPresent) vui.overscanAppropriate = reader.flag();
  vui.videoFormat = kUnspecifiedFormat;
  vui.colourPrimaries = vui.transferCharacteristics = vui.matrixCoefficients = kUnspecified;
  vui.videoSignalTypePresent = reader.flag();
  if (vui.videoSignalTypePresent) {
    vui.videoFormat = static_cast<uint8_t>(reader.bits(3));
    vui.fullRange = reader.flag();
    vui.colourDescriptionPresent = reader.flag();
    if (vui.colourDescriptionPresent) {
      vui.colourPrimaries = static_cast<uint8_t>(reader.bits(8));
      vui.transferCharacteristics = static_cast<uint8_t>(reader.bits(8));
      vui.matrixCoefficients = static_cast<uint8_t>(reader.bits(8));
    }
  }
  vui.chromaLocInfoPresent = reader.flag();
  if (vui.chromaLocInfoPresent) {
    vui.chromaSampleLocTypeTopField = reader.ue();
    vui.chromaSampleLocTypeBottomField = reader.ue();
  }
}

void readTiming(BitReader& reader, KivVideoUsability& vui) {
  vui.timingInfoPresent = reader.flag();
  if (!vui.timingInfoPresent) return;
  vui.numUnitsInTick = reader.bits(32);
  vui.timeScale = reader.bits(32);
}

PVStatus aspectRatio(bool vuiPresent, const KivVideoUsability& vui, uint32_t* horizontalOut,
                     uint32_t* verticalOut) {
  if (!vuiPresent || !vui.aspectRatioInfoPresent) return signalError(kKivBridgeError_InvalidParameter);
  if (vui.aspectRatioIdc == kExtendedSAR) {
    write(horizontalOut, vui.sarWidth);
    write(verticalOut, vui.sarHeight);
  } else if (vui.aspectRatioIdc != 0 && vui.aspectRatioIdc < kSampleAspectRatioIndicators.size()) {
    write(horizontalOut, kSampleAspectRatioIndicators[vui.aspectRatioIdc].width);
    write(verticalOut, kSampleAspectRatioIndicators[vui.aspectRatioIdc].height);
  }
  return kPVStatus_Success;
}

PVStatus colourDescription(bool vuiPresent, const KivVideoUsability& vui, uint32_t* primariesOut,
                           uint32_t* transferOut, uint32_t* matrixOut) {
  if (!vuiPresent || !vui.colourDescriptionPresent) return signalError(kKivBridgeError_InvalidParameter);
  write(primariesOut, vui.colourPrimaries);
  write(transferOut, vui.transferCharacteristics);
  write(matrixOut, vui.matrixCoefficients);
  return kPVStatus_Success;
}

PVStatus fullRange(bool vuiPresent, const KivVideoUsability& vui, bool* fullRangeOut) {
  if (!vuiPresent) return signalError(kKivBridgeError_InvalidParameter);
  write(fullRangeOut, vui.fullRange);
  return kPVStatus_Success;
}

PVStatus chromaLocation(bool vuiPresent, const KivVideoUsability& vui, uint32_t* topOut,
                        uint32_t* bottomOut) {
  if (!vuiPresent || !vui.chromaLocInfoPresent) return signalError(kKivBridgeError_InvalidParameter);
  write(topOut, vui.chromaSampleLocTypeTopField);
  write(bottomOut, vui.chromaSampleLocTypeBottomField);
  return kPVStatus_Success;
}

}  // namespace pv::nal
