#include "property_values.hpp"

#include <pevrin/timecode_format_description.h>
#include <pevrin/video_format_description.h>

std::optional<PixelAspect> pixelAspectOf(PVFormatDescriptionRef description) {
  BRDictionaryRef ratio = dictionaryIn(
      PVFormatDescriptionGetExtension(description, kPVFormatDescriptionExtension_PixelAspectRatio));
  const auto horizontal =
      numberIn(BRDictionaryGetValue(ratio, kPVFormatDescriptionKey_PixelAspectRatioHorizontalSpacing));
  const auto vertical =
      numberIn(BRDictionaryGetValue(ratio, kPVFormatDescriptionKey_PixelAspectRatioVerticalSpacing));
  if (!horizontal || !vertical) return std::nullopt;
  return PixelAspect{*horizontal, *vertical};
}

std::optional<std::string_view> sourceNameOf(PVFormatDescriptionRef description) {
  BRDictionaryRef source = dictionaryIn(PVFormatDescriptionGetExtension(
      description, kPVTimeCodeFormatDescriptionExtension_SourceReferenceName));
  return stringIn(BRDictionaryGetValue(source, kPVTimeCodeFormatDescriptionKey_Value));
}
