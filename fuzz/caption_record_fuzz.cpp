#include <pevrin/closed_caption_description.h>

#include "fuzz/record_fuzz.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const RecordKind kKind = {PVClosedCaptionFormatDescriptionCreateFromBigEndianClosedCaptionDescriptionData,
                                   PVClosedCaptionFormatDescriptionCopyAsBigEndianClosedCaptionDescriptionBlockBuffer,
                                   PVSwapBigEndianClosedCaptionDescriptionToHost, PVSwapHostEndianClosedCaptionDescriptionToBig};
  return fuzzRecord(kKind, data, size);
}
