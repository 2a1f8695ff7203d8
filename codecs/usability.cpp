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

// The parts. Each leaves its fields alone when it cannot be read to its end.

void readAspectRatio(BitReader& reader, KivVideoUsability& vui) {
  if (!reader.flag()) return;
  const uint32_t indicator = reader.bits(8);
  const bool extended = indicator == kExtendedSAR;
  const uint32_t width = reader.bits(extended ? 16 : 0);
  const uint32_t height = reader.bits(extended ? 16 : 0);
  if (!reader.ok()) return;
  vui.aspectRatioInfoPresent = true;
  vui.aspectRatioIdc = static_cast<uint8_t>(indicator);
  vui.sarWidth = static_cast<uint16_t>(width);
  vui.sarHeight = static_cast<uint16_t>(height);
}

void readOverscan(BitReader& reader, KivVideoUsability& vui) {
  if (!reader.flag()) return;
  vui.overscanAppropriate = reader.flag();
  vui.overscanInfoPresent = reader.ok();
}

void readVideoSignalType(BitReader& reader, KivVideoUsability& vui) {
  if (!reader.flag()) return;
  const uint32_t format = reader.bits(3);
  const bool fullRange = reader.flag();
  const bool hasColours = reader.flag();
  const uint32_t colours = reader.bits(hasColours ? 24 : 0);
  if (!reader.ok()) return;
  vui.videoSignalTypePresent = true;
  vui.videoFormat = static_cast<uint8_t>(format);
  vui.fullRange = fullRange;
  vui.colourDescriptionPresent = hasColours;
  if (!hasColours) return;
  vui.colourPrimaries = static_cast<uint8_t>(colours >> 16);
  vui.transferCharacteristics = static_cast<uint8_t>(colours >> 8);
  vui.matrixCoefficients = static_cast<uint8_t>(colours);
}

void readChromaLocation(BitReader& reader, KivVideoUsability& vui) {
  if (!reader.flag()) return;
  const uint32_t top = reader.ue();
  const uint32_t bottom = reader.ue();
  if (!reader.ok()) return;
  vui.chromaLocInfoPresent = true;
  vui.chromaSampleLocTypeTopField = top;
  vui.chromaSampleLocTypeBottomField = bottom;
}

// Whether a question about the part can be answered.
PVStatus findPart(bool vuiPresent, const KivVideoUsability& vui, int part, bool partPresent) {
  if (!vuiPresent) return kKivBridgeError_InvalidParameter;
  if (vui.lastPartRead < part) return kKivBridgeError_UnreadableData;
  if (!partPresent) return kKivBridgeError_InvalidParameter;
  return kPVStatus_Success;
}

}  // namespace

void endPart(const BitReader& reader, KivVideoUsability& vui, uint8_t part) {
  if (reader.ok()) vui.lastPartRead = part;
}

void inferUsability(KivVideoUsability& vui) {
  vui = {};
  vui.videoFormat = kUnspecifiedFormat;
  vui.colourPrimaries = vui.transferCharacteristics = vui.matrixCoefficients = kUnspecified;
}

void readUsabilityBeginning(BitReader& reader, KivVideoUsability& vui) {
  inferUsability(vui);
  readAspectRatio(reader, vui);
  endPart(reader, vui, kKivVideoUsabilityPart_AspectRatio);
  readOverscan(reader, vui);
  endPart(reader, vui, kKivVideoUsabilityPart_Overscan);
  readVideoSignalType(reader, vui);
  endPart(reader, vui, kKivVideoUsabilityPart_VideoSignalType);
  readChromaLocation(reader, vui);
  endPart(reader, vui, kKivVideoUsabilityPart_ChromaLocation);
}

void readTiming(BitReader& reader, KivVideoUsability& vui) {
  const bool present = reader.flag();
  const uint32_t units = reader.bits(present ? 32 : 0);
  const uint32_t scale = reader.bits(present ? 32 : 0);
  endPart(reader, vui, kKivVideoUsabilityPart_Timing);
  if (!present || !reader.ok()) return;
  vui.timingInfoPresent = true;
  vui.numUnitsInTick = units;
  vui.timeScale = scale;
}

PVStatus aspectRatio(bool vuiPresent, const KivVideoUsability& vui, uint32_t* horizontalOut,
                     uint32_t* verticalOut) {
  if (PVStatus status =
          findPart(vuiPresent, vui, kKivVideoUsabilityPart_AspectRatio, vui.aspectRatioInfoPresent))
    return signalError(status);
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
  if (PVStatus status =
          findPart(vuiPresent, vui, kKivVideoUsabilityPart_VideoSignalType, vui.colourDescriptionPresent))
    return signalError(status);
  write(primariesOut, vui.colourPrimaries);
  write(transferOut, vui.transferCharacteristics);
  write(matrixOut, vui.matrixCoefficients);
  return kPVStatus_Success;
}

PVStatus fullRange(bool vuiPresent, const KivVideoUsability& vui, bool* fullRangeOut) {
  if (PVStatus status = findPart(vuiPresent, vui, kKivVideoUsabilityPart_VideoSignalType, true))
    return signalError(status);
  write(fullRangeOut, vui.fullRange);
  return kPVStatus_Success;
}

PVStatus chromaLocation(bool vuiPresent, const KivVideoUsability& vui, uint32_t* topOut,
                        uint32_t* bottomOut) {
  if (PVStatus status =
          findPart(vuiPresent, vui, kKivVideoUsabilityPart_ChromaLocation, vui.chromaLocInfoPresent))
    return signalError(status);
  write(topOut, vui.chromaSampleLocTypeTopField);
  write(bottomOut, vui.chromaSampleLocTypeBottomField);
  return kPVStatus_Success;
}

PVStatus timing(bool vuiPresent, const KivVideoUsability& vui, double* ticksPerSecondOut) {
  const bool usable = vui.timingInfoPresent && vui.numUnitsInTick != 0 && vui.timeScale != 0;
  if (PVStatus status = findPart(vuiPresent, vui, kKivVideoUsabilityPart_Timing, usable))
    return signalError(status);
  *ticksPerSecondOut = static_cast<double>(vui.timeScale) / vui.numUnitsInTick;
  return kPVStatus_Success;
}

}  // namespace pv::nal
