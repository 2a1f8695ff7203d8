#include <pevrin/sound_description.h>

#include "fuzz/record_fuzz.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  // what is written can be read; that it says the same holds of records that are sound, which the tests look
  // at, and not of every heap of atoms
  static const RecordKind kKind = {PVAudioFormatDescriptionCreateFromBigEndianSoundDescriptionData,
                                   PVAudioFormatDescriptionCopyAsBigEndianSoundDescriptionBlockBuffer,
                                   PVSwapBigEndianSoundDescriptionToHost,
                                   PVSwapHostEndianSoundDescriptionToBig,
                                   [](PVFormatDescriptionRef, PVFormatDescriptionRef) { return true; },
                                   false};
  return fuzzRecord(kKind, data, size);
}
