#include <fmt/format.h>
#include <pevrin/audio_format_description.h>
#include <pevrin/text_format_description.h>
#include <pevrin/timecode_format_description.h>
#include <pevrin/video_format_description.h>

#include <algorithm>

#include "atom_type.hpp"
#include "description_report.hpp"
#include "property_values.hpp"
#include "report.hpp"

namespace {

using Parts = std::vector<std::string>;

std::string sizeText(double width, double height) { return fmt::format("{:.6g} x {:.6g}", width, height); }

// "ITU_R_709_2": names of colours are shown without the key that some of them begin with.
std::optional<std::string_view> shortName(std::optional<std::string_view> name) {
  for (const std::string_view key :
       {"IMImageBufferColorPrimaries_", "IMImageBufferTransferFunction_", "IMImageBufferYCbCrMatrix_"})
    if (name && name->starts_with(key)) name->remove_prefix(key.size());
  return name;
}

Parts videoParts(PVFormatDescriptionRef video) {
  const auto [width, height] = PVVideoFormatDescriptionGetDimensions(video);
  const GRSize shown = PVVideoFormatDescriptionGetPresentationDimensions(video, true, true);
  Parts parts{sizeText(width, height), "shown as " + sizeText(shown.width, shown.height)};
  if (const auto ratio = pixelAspectOf(video))
    parts.push_back(fmt::format("pixel aspect ratio {:.6g}:{:.6g}", ratio->horizontal, ratio->vertical));
  const auto string = [&](BRStringRef key) { return stringIn(PVFormatDescriptionGetExtension(video, key)); };
  const auto colour = [&](BRStringRef key) { return shortName(string(key)); };
  const auto primaries = colour(kPVFormatDescriptionExtension_ColorPrimaries),
             transfer = colour(kPVFormatDescriptionExtension_TransferFunction),
             matrix = colour(kPVFormatDescriptionExtension_YCbCrMatrix);
  if (primaries && primaries == transfer && primaries == matrix) {
    parts.push_back(fmt::format("colour {}", *primaries));
  } else {
    if (primaries) parts.push_back(fmt::format("primaries {}", *primaries));
    if (transfer) parts.push_back(fmt::format("transfer {}", *transfer));
    if (matrix) parts.push_back(fmt::format("matrix {}", *matrix));
  }
  const auto full =
      booleanIn(PVFormatDescriptionGetExtension(video, kPVFormatDescriptionExtension_FullRangeVideo));
  if (full) parts.emplace_back(*full ? "full range" : "limited range");
  const auto fields =
      numberIn(PVFormatDescriptionGetExtension(video, kPVFormatDescriptionExtension_FieldCount));
  if (fields) parts.emplace_back(*fields == 2 ? "interlaced" : "progressive");
  if (const auto name = string(kPVFormatDescriptionExtension_FormatName))
    parts.push_back(fmt::format("\"{}\"", printable(*name)));
  return parts;
}

// Empty for a format that has no other name than its ID.
const char* soundName(AudioFormatID format) {
  struct Name {
    AudioFormatID format;
    const char* name;
  };
  static constexpr Name kNames[] = {{kAudioFormatMPEG4AAC, "AAC"},
                                    {kAudioFormatMPEG4AAC_HE, "HE-AAC"},
                                    {kAudioFormatMPEG4AAC_HE_V2, "HE-AAC v2"},
                                    {kAudioFormatMPEGLayer1, "MPEG layer 1"},
                                    {kAudioFormatMPEGLayer2, "MPEG layer 2"},
                                    {kAudioFormatMPEGLayer3, "MP3"},
                                    {kAudioFormatAC3, "AC-3"},
                                    {kAudioFormatEnhancedAC3, "E-AC-3"},
                                    {kAudioFormatLossless, "ALAC"},
                                    {kAudioFormatFLAC, "FLAC"},
                                    {kAudioFormatOpus, "Opus"},
                                    {kAudioFormatALaw, "A-law"},
                                    {kAudioFormatULaw, "mu-law"},
                                    {kAudioFormatAMR, "AMR"},
                                    {kAudioFormatAMR_WB, "AMR wide band"}};
  const auto found = std::ranges::find(kNames, format, &Name::format);
  return found == std::end(kNames) ? "" : found->name;
}

std::string pcmText(const AudioStreamBasicDescription& format) {
  const uint32_t flags = format.formatFlags, bits = format.bitsPerChannel;
  const char* order = bits <= 8 ? "" : flags & kAudioFormatFlagIsBigEndian ? " big-endian" : " little-endian";
  const char* numbers = flags & kAudioFormatFlagIsFloat           ? " floating point"
                        : flags & kAudioFormatFlagIsSignedInteger ? ""
                                                                  : " unsigned";
  return fmt::format("PCM of {} bits{}{}", bits, order, numbers);
}

Parts audioParts(PVFormatDescriptionRef audio) {
  const AudioStreamBasicDescription format = *PVAudioFormatDescriptionGetStreamBasicDescription(audio);
  const AudioFormatID id = format.formatID;
  const double rate = format.sampleRate;
  const uint32_t channels = format.channelsPerFrame;
  Parts parts;
  if (id == kAudioFormatLinearPCM)
    parts.push_back(pcmText(format));
  else if (const std::string name = soundName(id); !name.empty())
    parts.push_back(name);
  parts.push_back(fmt::format("{} Hz", rate));
  parts.push_back(channels == 1 ? "1 channel" : fmt::format("{} channels", channels));
  return parts;
}

Parts timeCodeParts(PVFormatDescriptionRef timecode) {
  const PVTime frame = PVTimeCodeFormatDescriptionGetFrameDuration(timecode);
  const int64_t value = frame.value;
  const int32_t timescale = frame.timescale;
  const uint32_t flags = PVTimeCodeFormatDescriptionGetTimeCodeFlags(timecode);
  Parts parts{fmt::format("a frame is {}/{} of a second", value, timescale),
              fmt::format("{} frames count as a second", PVTimeCodeFormatDescriptionGetFrameQuanta(timecode)),
              flags & kPVTimeCodeFlag_DropFrame ? "drop frame" : "non-drop frame"};
  if (const auto name = sourceNameOf(timecode)) parts.push_back(fmt::format("from \"{}\"", printable(*name)));
  return parts;
}

Parts textParts(PVFormatDescriptionRef text) {
  Parts parts{PVFormatDescriptionGetMediaType(text) == kPVMediaType_Text ? "text" : "subtitles"};
  uint16_t font = 0;
  double size = 0;
  BRStringRef name = nullptr;
  if (PVTextFormatDescriptionGetDefaultStyle(text, &font, nullptr, nullptr, nullptr, &size, nullptr) != 0)
    return parts;
  if (PVTextFormatDescriptionGetFontName(text, font, &name) == 0 && BRStringGetLengthBytes(name) > 0)
    parts.push_back(fmt::format("font \"{}\"", printable(*stringIn(name))));
  parts.push_back(fmt::format("font size {}", size));
  return parts;
}

Parts partsOf(PVFormatDescriptionRef description) {
  switch (PVFormatDescriptionGetMediaType(description)) {
    case kPVMediaType_Video:
      return videoParts(description);
    case kPVMediaType_Audio:
      return audioParts(description);
    case kPVMediaType_TimeCode:
      return timeCodeParts(description);
    case kPVMediaType_Text:
    case kPVMediaType_Subtitle:
      return textParts(description);
    case kPVMediaType_ClosedCaption:
      return {"closed captions"};
    default:
      return {};
  }
}

}  // namespace

std::string descriptionText(const SampleDescription& sample) {
  const Parts parts = partsOf(sample.description.get());
  return fmt::format("{}{}{}", typeText(sample.format), parts.empty() ? "" : "  ", fmt::join(parts, ", "));
}
