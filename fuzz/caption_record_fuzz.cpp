#include <pevrin/closed_caption_description.h>

#include "fuzz/record_fuzz.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  // an empty atom at the end is not looked at, so what is written of it is not read again
  static const RecordKind kKind = {
      PVClosedCaptionFormatDescriptionCreateFromBigEndianClosedCaptionDescriptionData,
      PVClosedCaptionFormatDescriptionCopyAsBigEndianClosedCaptionDescriptionBlockBuffer,
      PVSwapBigEndianClosedCaptionDescriptionToHost,
      PVSwapHostEndianClosedCaptionDescriptionToBig,
      [](PVFormatDescriptionRef, PVFormatDescriptionRef) { return true; },
      false};
  return fuzzRecord(kKind, data, size);
}
