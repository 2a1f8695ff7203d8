#include "parameter_sets.hpp"

#include <fmt/format.h>
#include <kiv/h264_bridge.h>
#include <kiv/hevc_bridge.h>

#include <utility>

namespace {

using Bytes = std::span<const uint8_t>;

// The questions that both bridges answer alike.
struct Questions {
  decltype(&KivH264Bridge_GetSPSWidthAndHeight) size;
  decltype(&KivH264Bridge_GetSPSIsInterlaced) isInterlaced;
  decltype(&KivH264Bridge_GetSPS_VUI_Framerate) frameRate;
  decltype(&KivH264Bridge_GetSPS_VUI_AspectRatio) aspectRatio;
  decltype(&KivH264Bridge_GetSPS_VUI_NCLC) colour;
  decltype(&KivH264Bridge_GetSPS_VUI_FullRangeVideo) fullRange;
  decltype(&KivH264Bridge_GetSPS_VUI_ChromaLocation) chromaLocation;
};
constexpr Questions kAskH264 = {
    KivH264Bridge_GetSPSWidthAndHeight,      KivH264Bridge_GetSPSIsInterlaced,
    KivH264Bridge_GetSPS_VUI_Framerate,      KivH264Bridge_GetSPS_VUI_AspectRatio,
    KivH264Bridge_GetSPS_VUI_NCLC,           KivH264Bridge_GetSPS_VUI_FullRangeVideo,
    KivH264Bridge_GetSPS_VUI_ChromaLocation,
};
constexpr Questions kAskHEVC = {
    KivHEVCBridge_GetSPSWidthAndHeight,      KivHEVCBridge_GetSPSIsInterlaced,
    KivHEVCBridge_GetSPS_VUI_Framerate,      KivHEVCBridge_GetSPS_VUI_AspectRatio,
    KivHEVCBridge_GetSPS_VUI_NCLC,           KivHEVCBridge_GetSPS_VUI_FullRangeVideo,
    KivHEVCBridge_GetSPS_VUI_ChromaLocation,
};

// How far a set could be read.
struct Reading {
  PVStatus status = kPVStatus_Success;
  bool sized = true;  // it leaves a picture
  bool whole = true;  // its usability information does not break off
};

// Asks only for what the set holds: a question without an answer counts as an error.
void askUsability(const Questions& ask, Bytes unit, const KivVideoUsability& vui, SequenceFacts& facts) {
  const auto bytes = unit.data();
  const size_t length = unit.size();
  SequenceFacts::Pair pair{};
  SequenceFacts::Colour colour{};
  bool flag = false;
  float rate = 0;
  if (vui.aspectRatioInfoPresent && ask.aspectRatio(bytes, length, &pair.first, &pair.second) == 0 &&
      pair.first != 0 && pair.second != 0)
    facts.pixelAspectRatio = pair;
  if (vui.colourDescriptionPresent &&
      ask.colour(bytes, length, &colour.primaries, &colour.transfer, &colour.matrix) == 0)
    facts.colour = colour;
  if (vui.videoSignalTypePresent && ask.fullRange(bytes, length, &flag) == 0) facts.fullRange = flag;
  if (vui.chromaLocInfoPresent && ask.chromaLocation(bytes, length, &pair.first, &pair.second) == 0)
    facts.chromaLocation = pair;
  if (vui.timingInfoPresent && vui.numUnitsInTick != 0 && vui.timeScale != 0 &&
      ask.frameRate(bytes, length, &rate, nullptr, nullptr, nullptr, nullptr) == 0)
    facts.frameRate = rate;
}

// vui is null when there is none; lastPart is the last that the bridge reads.
Reading askEverything(const Questions& ask, Bytes unit, const KivVideoUsability* vui, uint8_t lastPart,
                      SequenceFacts& facts) {
  Reading reading;
  bool interlaced = false;
  reading.sized = ask.size(unit.data(), unit.size(), &facts.width, &facts.height) == kPVStatus_Success;
  if (ask.isInterlaced(unit.data(), unit.size(), &interlaced) == kPVStatus_Success)
    facts.interlaced = interlaced;
  if (vui) {
    askUsability(ask, unit, *vui, facts);
    reading.whole = vui->lastPartRead >= lastPart;
  }
  return reading;
}

Reading readH264Sequence(Bytes unit, ParameterSet& set) {
  KivH264ParsedSPS sps;
  if (const PVStatus status = KivH264Bridge_ParseSPS(unit.data(), unit.size(), &sps)) return {status};
  set.id = sps.seqParameterSetID;
  SequenceFacts& facts = set.sequence;
  facts.profile = sps.profileIdc;
  facts.constraintFlags = sps.constraintFlags;
  facts.level = sps.levelIdc;
  facts.countsFields =
      !sps.frameMbsOnly && !sps.mbAdaptiveFrameField && !sps.picStructPresent && sps.picOrderCntType == 1;
  return askEverything(kAskH264, unit, sps.vuiPresent ? &sps.vui : nullptr, kKivVideoUsabilityPart_HRD,
                       facts);
}

Reading readHEVCSequence(Bytes unit, ParameterSet& set) {
  KivHEVCParsedSPS sps;
  if (const PVStatus status = KivHEVCBridge_ParseSPS(unit.data(), unit.size(), &sps)) return {status};
  set.id = sps.spsID;
  SequenceFacts& facts = set.sequence;
  facts.profile = sps.profileIdc;
  facts.highTier = sps.tierFlag;
  facts.level = sps.levelIdc;
  facts.fieldPictures = facts.countsFields = sps.fieldSeq;
  return askEverything(kAskHEVC, unit, sps.vuiPresent ? &sps.vui : nullptr,
                       kKivVideoUsabilityPart_BitstreamRestriction, facts);
}

Reading readPictureSet(Bytes unit, ParameterSet& set) {
  if (set.codec == Codec::H264) {
    KivH264ParsedPPS pps;
    if (const PVStatus status = KivH264Bridge_ParsePPS(unit.data(), unit.size(), &pps)) return {status};
    set.id = pps.picParameterSetID;
    set.spsId = pps.seqParameterSetID;
  } else {
    KivHEVCParsedPPS pps;
    if (const PVStatus status = KivHEVCBridge_ParsePPS(unit.data(), unit.size(), &pps)) return {status};
    set.id = pps.ppsID;
    set.spsId = pps.spsID;
  }
  return {kPVStatus_Success};
}

// Nothing more of a video parameter set is asked for than its ID, the first four bits behind the header.
Reading readVideoSet(Bytes unit, ParameterSet& set) {
  if (unit.size() < 3) return {kKivBridgeError_UnreadableData};
  set.id = unit[2] >> 4;
  return {kPVStatus_Success};
}

Reading readSet(Bytes unit, ParameterSet& set) {
  switch (set.kind) {
    case SetKind::VPS:
      return readVideoSet(unit, set);
    case SetKind::SPS:
      return set.codec == Codec::H264 ? readH264Sequence(unit, set) : readHEVCSequence(unit, set);
    case SetKind::PPS:
      return readPictureSet(unit, set);
  }
  return {kKivBridgeError_InvalidParameter};
}

}  // namespace

std::optional<SetKind> setKindOf(Codec codec, Bytes unit) {
  if (unit.empty() || unit[0] & 0x80) return std::nullopt;
  if (codec == Codec::H264) {
    switch (unit[0] & 0x1F) {
      case 7:
        return SetKind::SPS;
      case 8:
        return SetKind::PPS;
      default:
        return std::nullopt;
    }
  }
  const unsigned layer = (unit[0] & 1u) << 5 | (unit.size() > 1 ? unit[1] >> 3 : 0u);
  if (layer != 0) return std::nullopt;
  switch (unit[0] >> 1) {
    case 32:
      return SetKind::VPS;
    case 33:
      return SetKind::SPS;
    case 34:
      return SetKind::PPS;
    default:
      return std::nullopt;
  }
}

const char* setKindName(SetKind kind) {
  constexpr const char* kNames[] = {"video parameter set", "sequence parameter set", "picture parameter set"};
  return kNames[static_cast<int>(kind)];
}

bool visitParameterSet(Codec codec, Bytes unit, int64_t offset, const std::string& path,
                       ParameterSetVisitor& visitor) {
  const std::optional<SetKind> kind = setKindOf(codec, unit);
  if (!kind) return true;
  ParameterSet set;
  set.codec = codec;
  set.kind = *kind;
  set.offset = offset;
  set.path = path;
  const Reading reading = readSet(unit, set);
  const auto complain = [&](PVStatus status, std::string message) {
    visitor.damaged({path, offset, status, std::move(message)});
  };
  if (reading.status == kKivBridgeError_NoMemoryForCopy) {
    complain(reading.status, "memory ran out");
    return true;
  }
  if (reading.status != kPVStatus_Success) {
    complain(reading.status,
             fmt::format("this {} of {} {} cannot be read: it is cut short or damaged", setKindName(*kind),
                         unit.size(), unit.size() == 1 ? "byte" : "bytes"));
    return true;
  }
  if (!reading.sized)
    complain(kKivBridgeError_UnreadableData,
             fmt::format("sequence parameter set {} leaves no picture inside its cropping", set.id));
  if (!reading.whole)
    complain(kKivBridgeError_UnreadableData,
             fmt::format(
                 "sequence parameter set {} breaks off in its usability information (aspect ratio, colour, "
                 "frame rate); what stands before is shown",
                 set.id));
  return visitor.parameterSet(std::move(set));
}
