#include <pevrin/image_description.h>

#include "fuzz/record_fuzz.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const RecordKind kKind = {PVVideoFormatDescriptionCreateFromBigEndianImageDescriptionData,
                                   PVVideoFormatDescriptionCopyAsBigEndianImageDescriptionBlockBuffer,
                                   PVSwapBigEndianImageDescriptionToHost,
                                   PVSwapHostEndianImageDescriptionToBig};
  return fuzzRecord(kKind, data, size);
}
