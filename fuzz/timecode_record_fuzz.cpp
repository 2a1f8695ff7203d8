#include <pevrin/timecode_format_description.h>

#include "fuzz/record_fuzz.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const RecordKind kKind = {PVTimeCodeFormatDescriptionCreateFromBigEndianTimeCodeDescriptionData,
                                   PVTimeCodeFormatDescriptionCopyAsBigEndianTimeCodeDescriptionBlockBuffer,
                                   PVSwapBigEndianTimeCodeDescriptionToHost,
                                   PVSwapHostEndianTimeCodeDescriptionToBig};
  return fuzzRecord(kKind, data, size);
}
