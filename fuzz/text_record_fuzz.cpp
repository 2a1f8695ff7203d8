#include <pevrin/text_description.h>

#include "fuzz/record_fuzz.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const RecordKind kKind = {PVTextFormatDescriptionCreateFromBigEndianTextDescriptionData,
                                   PVTextFormatDescriptionCopyAsBigEndianTextDescriptionBlockBuffer,
                                   PVSwapBigEndianTextDescriptionToHost,
                                   PVSwapHostEndianTextDescriptionToBig};
  return fuzzRecord(kKind, data, size);
}
