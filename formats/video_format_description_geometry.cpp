// How large and what part of a video's picture is shown.
#include <bedra/dictionary.h>
#include <bedra/number.h>

#include <cmath>

#include "formats/video_format_description.hpp"

namespace {

BRDictionaryRef dictionaryOf(PVFormatDescriptionRef description, BRStringRef key) {
  BRTypeRef value = PVFormatDescriptionGetExtension(description, key);
  return BRGetTypeID(value) == BRDictionaryGetTypeID() ? static_cast<BRDictionaryRef>(value) : nullptr;
}

double numberOf(BRDictionaryRef dictionary, BRStringRef key) {
  BRTypeRef value = BRDictionaryGetValue(dictionary, key);
  double number = 0;
  if (BRGetTypeID(value) == BRNumberGetTypeID())
    BRNumberGetValue(static_cast<BRNumberRef>(value), kBRNumberTypeFloat64, &number);
  return number;
}

GRSize fullSizeOf(PVFormatDescriptionRef description) {
  const PVVideoDimensions dimensions = PVVideoFormatDescriptionGetDimensions(description);
  return {static_cast<GRFloat>(dimensions.width), static_cast<GRFloat>(dimensions.height)};
}

// The clean aperture's size when it fits into the picture, else the picture's.
GRSize cleanSize(BRDictionaryRef aperture, GRSize full) {
  const GRSize clean{numberOf(aperture, kPVFormatDescriptionKey_CleanApertureWidth),
                     numberOf(aperture, kPVFormatDescriptionKey_CleanApertureHeight)};
  const bool fits =
      clean.width > 0 && clean.width <= full.width && clean.height > 0 && clean.height <= full.height;
  return fits ? clean : full;
}

}  // namespace

GRRect PVVideoFormatDescriptionGetCleanAperture(PVVideoFormatDescriptionRef description,
                                                bool originIsAtTopLeft) {
  const GRSize full = fullSizeOf(description);
  const GRRect whole{{0, 0}, full};
  BRDictionaryRef aperture = dictionaryOf(description, kPVFormatDescriptionExtension_CleanAperture);
  if (!aperture) return whole;
  const GRSize clean = cleanSize(aperture, full);
  const double right = numberOf(aperture, kPVFormatDescriptionKey_CleanApertureHorizontalOffset);
  const double down = numberOf(aperture, kPVFormatDescriptionKey_CleanApertureVerticalOffset);
  const double marginX = (full.width - clean.width) / 2, marginY = (full.height - clean.height) / 2;
  if (!(std::fabs(right) <= marginX && std::fabs(down) <= marginY)) return whole;
  return {{marginX + right, originIsAtTopLeft ? marginY + down : marginY - down}, clean};
}

GRSize PVVideoFormatDescriptionGetPresentationDimensions(PVVideoFormatDescriptionRef description,
                                                         bool usePixelAspectRatio, bool useCleanAperture) {
  GRSize size = fullSizeOf(description);
  if (useCleanAperture)
    if (BRDictionaryRef aperture = dictionaryOf(description, kPVFormatDescriptionExtension_CleanAperture))
      size = cleanSize(aperture, size);
  if (usePixelAspectRatio) {
    BRDictionaryRef shape = dictionaryOf(description, kPVFormatDescriptionExtension_PixelAspectRatio);
    const double across = numberOf(shape, kPVFormatDescriptionKey_PixelAspectRatioHorizontalSpacing);
    const double down = numberOf(shape, kPVFormatDescriptionKey_PixelAspectRatioVerticalSpacing);
    if (across > 0 && down > 0) size.width *= across / down;
  }
  return size;
}
